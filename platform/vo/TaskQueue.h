#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "platform/vo/Clock.h"
#include "platform/vo/DueQueue.h"
#include "platform/vo/Executor.h"
#include "platform/vo/Mutex.h"

namespace vo {

/// The tasks of one executor of the real clock, and what it promises of them; see Executor. How a
/// thread comes to run them is the derived class's. A part of RealClock.
///
/// Lives until its executor and the threads that work for it have let go of it.
class TaskQueue : public std::enable_shared_from_this<TaskQueue> {
public:
    using Steady = std::chrono::steady_clock;

    /// `start` is when the clock's uptime was zero.
    TaskQueue(std::string name, Steady::time_point start);
    virtual ~TaskQueue() = default;
    TaskQueue(const TaskQueue&) = delete;
    TaskQueue& operator=(const TaskQueue&) = delete;

    Executor::TaskId post(Executor::Task task, Duration delay);
    bool cancel(Executor::TaskId id);
    bool isCurrent() const;
    void close();

protected:
    /// A task that is due then was put into the queue. True when a thread is to be woken for it.
    virtual bool needsWake(Duration due) VO_REQUIRES(mutex_) = 0;
    /// Called without the lock: what wakes at once is not to find it taken.
    virtual void wake() = 0;
    virtual void onClose() VO_REQUIRES(mutex_) = 0;

    bool isDue() const VO_REQUIRES(mutex_)
    {
        return queue_.isDue([this] { return uptime(); });
    }
    /// Takes out the first task, which the calling thread is to run.
    Executor::Task beginTask() VO_REQUIRES(mutex_);
    void run(Executor::Task task) const VO_EXCLUDES(mutex_);
    /// Ends the task before, if any.
    void endTask() VO_REQUIRES(mutex_);

    /// When to look at the queue again, which is not empty: when its first task is due, and not too
    /// far away for the steady clock.
    Duration nextWake() const VO_REQUIRES(mutex_);
    Duration uptime() const { return std::chrono::floor<Duration>(Steady::now() - start_); }

    // Constant after construction.
    const std::string name_;
    const Steady::time_point start_;

    // No other lock of ours is taken while this one is held.
    mutable Mutex mutex_;
    DueQueue<Executor::Task> queue_ VO_GUARDED_BY(mutex_);
    bool closed_ VO_GUARDED_BY(mutex_) = false;

private:
    std::thread::id running_ VO_GUARDED_BY(mutex_);  ///< who runs a task, if anybody
    Condition taskEnded_;
};

}  // namespace vo
