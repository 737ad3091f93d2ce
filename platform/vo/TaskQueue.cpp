#include "platform/vo/TaskQueue.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "platform/vo/LogException.h"

namespace vo {

namespace {

/// Longest single wait for a task: keeps far due times inside the range of the steady clock, for
/// one idle wake-up a day.
constexpr Duration kLongestWait = std::chrono::hours(24);

}  // namespace

TaskQueue::TaskQueue(std::string name, Steady::time_point start)
    : name_(std::move(name)), start_(start)
{
}

Executor::TaskId TaskQueue::post(Executor::Task task, Duration delay)
{
    const bool isDueNow = delay <= Duration::zero();
    const Duration due = dueAt(uptime(), delay);
    Executor::TaskId id = 0;
    std::shared_ptr<TaskQueue> woken;  // held, because the task may destroy its executor
    {
        const Lock<Mutex> lock(mutex_);
        if (closed_)
            return 0;
        id = isDueNow ? queue_.pushNow(due, std::move(task))
                      : queue_.pushLater(due, std::move(task));
        if (needsWake(due))
            woken = shared_from_this();
    }
    if (woken)
        woken->wake();
    return id;
}

bool TaskQueue::cancel(Executor::TaskId id)
{
    std::optional<Executor::Task> removed;
    const Lock<Mutex> lock(mutex_);
    removed = queue_.remove(id);
    return removed.has_value();
}

bool TaskQueue::isCurrent() const
{
    const Lock<Mutex> lock(mutex_);
    return running_ == std::this_thread::get_id();
}

void TaskQueue::close()
{
    {
        std::vector<Executor::Task> dropped;
        const Lock<Mutex> lock(mutex_);
        closed_ = true;
        dropped = queue_.removeIf([](const Executor::Task&) { return true; });
        onClose();
    }
    const Lock<Mutex> lock(mutex_);
    while (running_ != std::thread::id() && running_ != std::this_thread::get_id())
        taskEnded_.wait(mutex_);
}

Executor::Task TaskQueue::beginTask()
{
    running_ = std::this_thread::get_id();
    return queue_.pop();
}

// When it returns, what the task holds is gone: those who wait for its end rely on that.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void TaskQueue::run(Executor::Task task) const
{
    try {
        task();
    } catch (...) {
        logCurrentException("Executor", name_);
    }
}

void TaskQueue::endTask()
{
    running_ = std::thread::id();
    if (closed_)
        taskEnded_.notifyAll();
}

Duration TaskQueue::nextWake() const
{
    return std::min(queue_.nextDue(), dueAt(uptime(), kLongestWait));
}

}  // namespace vo
