#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace vo {

class Executor;

/// All periods and delays of the platform are whole microseconds.
using Duration = std::chrono::microseconds;
/// A wall-clock instant, microseconds since the Unix epoch (UTC).
using TimePoint = std::chrono::time_point<std::chrono::system_clock, Duration>;

/// A delay given as an unsigned number; one beyond Duration's range becomes its end, some 300,000
/// years.
inline Duration fromMicroseconds(std::uint64_t microseconds)
{
    const auto limit = static_cast<std::uint64_t>(Duration::max().count());
    return Duration(static_cast<Duration::rep>(std::min(microseconds, limit)));
}

/// Where the platform takes its time and its threads from.
///
/// Nothing else reads a system clock, sleeps or creates a thread for tasks. That is what makes a
/// run repeatable: under a VirtualClock time stands still until somebody advances it, and every
/// task of every executor then runs in due order, the same order every time.
///
/// Thread-safe. A clock outlives every executor that it made, and is not destroyed by a task of
/// one.
class Clock {
public:
    /// Where an executor's tasks run under the real clock. A virtual clock ignores it.
    enum class Threading {
        shared,  ///< on one of a small pool of platform threads
        own      ///< on a thread of its own: for work that is never to wait behind others
    };

    virtual ~Clock() = default;

    /// The wall clock. It can jump in either direction (summer time, a user setting the clock);
    /// stamps and calendars use it, delays do not.
    virtual TimePoint now() const = 0;

    /// Time since this clock was made; never goes back. Delays and periods are counted on it.
    virtual Duration uptime() const = 0;

    /// Uptime as of the machine's latest timer tick, so up to some milliseconds late, or even less
    /// than an uptime() that was read before. It costs a fraction of what uptime() does.
    virtual Duration roughUptime() const { return uptime(); }

    /// Whether executors run their tasks on threads of their own. If not, whoever advances the
    /// clock runs them, and work that blocks keeps its time from going on.
    virtual bool hasThreads() const { return true; }

    /// Makes a serial task queue on this clock. The name is for logs and debuggers.
    virtual std::shared_ptr<Executor> makeExecutor(const std::string& name,
                                                   Threading threading) = 0;

    /// Does work that may never end, and waits for it no longer than `limit`. False when it has
    /// not ended by then: it goes on by itself, and whatever it uses must live on with it. The
    /// work throws nothing.
    ///
    /// The real clock does it on a thread of its own. A virtual one does it right here, where time
    /// stands still meanwhile, and so waits to the end.
    virtual bool runWithin(Duration limit, std::function<void()> work) = 0;
};

/// The machine's clock, with real threads.
std::shared_ptr<Clock> makeRealClock();

}  // namespace vo
