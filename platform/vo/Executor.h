#pragma once

#include <cstdint>
#include <functional>

#include "platform/vo/Clock.h"

namespace vo {

/// A serial task queue: tasks run one at a time, in order of due time, and tasks of equal due time
/// in the order posted.
///
/// State machine: open --close()--> closed. Closed is final.
///
/// Thread-safe. An exception that leaves a task is logged and the queue goes on.
class Executor {
public:
    using Task = std::function<void()>;
    /// Names one posted task; 0 is never given.
    using TaskId = std::uint64_t;

    virtual ~Executor() = default;

    /// Posts a task to run `delay` after now; it never runs inside this call. A negative delay
    /// counts as zero. Returns 0, and drops the task, when the executor is closed.
    virtual TaskId post(Task task, Duration delay = Duration::zero()) = 0;

    /// Removes a task that has not begun. True if it was removed and so will never run; false if
    /// it has begun, has run, or is unknown.
    virtual bool cancel(TaskId id) = 0;

    /// True when called from a task of this executor.
    virtual bool isCurrent() const = 0;

    /// Refuses new tasks, drops those that have not begun, and waits for the one that is running
    /// (which it does not when called from that very task). Idempotent.
    virtual void close() = 0;

private:
    friend struct TaskHint;
    /// See TaskHint.
    virtual void expectTask() {}
};

}  // namespace vo
