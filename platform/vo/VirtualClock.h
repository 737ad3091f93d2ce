#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "platform/vo/Clock.h"

namespace vo {

/// A clock that stands still until it is advanced.
///
/// All executors of one virtual clock share one queue, ordered by due time and then by the order
/// of posting, and the thread that advances the clock runs their tasks one after the other. There
/// is no other thread, so a run is repeatable to the last bit, and when an advance returns
/// everything that was due has happened.
///
/// Any thread may post, cancel and close; one thread at a time may advance (a second one waits).
/// A task must not advance the clock that runs it, nor wait for another task: nothing would run
/// that other task. Both are errors of the caller; the first is answered with std::logic_error.
class VirtualClock : public Clock {
public:
    /// Tasks that may run at one instant before an advance gives up with std::runtime_error: two
    /// tasks that post each other without delay would otherwise hang it. Far above any real burst
    /// (the largest tests raise some hundred thousand events at one instant).
    static constexpr std::size_t kMaxTasksPerInstant = 10'000'000;

    /// Starts at `start`.
    explicit VirtualClock(TimePoint start, std::size_t maxTasksPerInstant = kMaxTasksPerInstant);
    ~VirtualClock() override;

    TimePoint now() const override;
    Duration uptime() const override;
    bool hasThreads() const override { return false; }
    std::shared_ptr<Executor> makeExecutor(const std::string& name, Threading threading) override;
    bool runWithin(Duration limit, std::function<void()> work) override;

    /// Moves time forward by `duration` (not negative), stopping on the way at each due instant to
    /// run what is due there, up to and including the last instant. std::invalid_argument for a
    /// negative duration.
    void advance(Duration duration);

    /// Runs what is due now, and what that posts without delay.
    void runPending() { advance(Duration::zero()); }

    /// Time until the next task is due (zero if one is due now); nothing if no task waits.
    std::optional<Duration> untilNextTask() const;

    /// Makes the wall clock jump, as summer time or a user would; uptime and delays are untouched.
    void jumpWallClock(Duration offset);

private:
    class Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace vo
