#pragma once

#include <optional>

#include "platform/vo/TaskQueue.h"

namespace vo {

/// Tasks with a thread of their own, which sleeps on a condition variable until the first is due:
/// of all ways to wake a thread that is the quickest.
class DedicatedQueue final : public TaskQueue {
public:
    using TaskQueue::TaskQueue;

    /// The thread's work: ends when it is closed.
    void work();
    /// See TaskHint.
    void expectTask() VO_EXCLUDES(mutex_);

private:
    bool needsWake(Duration due) override VO_REQUIRES(mutex_);
    void wake() override { woken_.notifyOne(); }
    void onClose() override VO_REQUIRES(mutex_) { woken_.notifyOne(); }

    std::optional<Executor::Task> nextTask();

    static constexpr Duration kAwake = Duration::min();
    /// Some times what it takes a thread to come to.
    static constexpr Duration kSleepsSoundly = std::chrono::microseconds(200);

    Condition woken_;
    /// What is due before wakes it; kAwake also when it was woken and has not come to yet.
    Duration asleepUntil_ VO_GUARDED_BY(mutex_) = kAwake;
    Duration asleepSince_ VO_GUARDED_BY(mutex_) = Duration::zero();
};

}  // namespace vo
