#include <algorithm>
#include <boost/asio/defer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <condition_variable>
#include <future>
#include <memory>
#include <optional>
#include <pthread.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/vo/Clock.h"
#include "platform/vo/DueQueue.h"
#include "platform/vo/Executor.h"
#include "platform/vo/LogException.h"
#include "platform/vo/Mutex.h"

namespace vo {

namespace {

namespace asio = boost::asio;
using Steady = std::chrono::steady_clock;

/// Threads that the shared executors run on. More than the cores of a small robot, because its
/// tasks wait for services more than they compute, and a slow one is not to hold up the others.
constexpr std::size_t kPoolThreads = 4;

/// Tasks that an executor runs before it lets another one have the thread: enough that going to
/// the back of the pool's queue costs nothing beside the work, few enough that nobody starves.
constexpr int kTasksPerTurn = 32;

/// Longest single wait of a timer: keeps far due times inside the range of the steady clock, for
/// one idle wake-up a day.
constexpr Duration kLongestWait = std::chrono::hours(24);

/// Longest thread name that the system takes.
constexpr std::size_t kThreadNameLength = 15;

Duration uptimeSince(Steady::time_point start)
{
    return std::chrono::floor<Duration>(Steady::now() - start);
}

// The tasks of one executor, run one at a time by the threads of a pool.
//
//     idle --due task posted, or timer--> draining --nothing due--> idle
//
// While it is draining, no second thread touches it, and a post costs no wake-up: the drain finds
// the task by itself. While it is idle and has tasks, the timer is armed for the first of them.
//
// Held by its executor, by a drain and by an armed timer: it lives until the last has let go.
class TaskRunner : public std::enable_shared_from_this<TaskRunner> {
public:
    TaskRunner(asio::thread_pool& threads, std::string name, Steady::time_point start)
        : threads_(threads), name_(std::move(name)), start_(start), timer_(threads)
    {
    }

    Executor::TaskId post(Executor::Task task, Duration delay);
    bool cancel(Executor::TaskId id);
    bool isCurrent() const;
    void close();

private:
    void drain();
    void onTimer();
    std::optional<Executor::Task> nextTask();
    void endTask() VO_REQUIRES(mutex_);
    void armTimer() VO_REQUIRES(mutex_);

    // Constant after construction.
    asio::thread_pool& threads_;
    const std::string name_;
    const Steady::time_point start_;

    // No other lock of ours is taken while this one is held.
    mutable Mutex mutex_;
    std::condition_variable_any taskEnded_;
    DueQueue<Executor::Task> queue_ VO_GUARDED_BY(mutex_);
    asio::steady_timer timer_ VO_GUARDED_BY(mutex_);
    std::optional<Duration> armedFor_ VO_GUARDED_BY(mutex_);  // until its handler has run
    std::thread::id running_ VO_GUARDED_BY(mutex_);           // who runs a task, if anybody
    bool draining_ VO_GUARDED_BY(mutex_) = false;
    bool closed_ VO_GUARDED_BY(mutex_) = false;
};

Executor::TaskId TaskRunner::post(Executor::Task task, Duration delay)
{
    const bool isDue = delay <= Duration::zero();
    const Duration due = dueAt(uptimeSince(start_), delay);
    Executor::TaskId id = 0;
    bool wake = false;
    {
        const Lock<Mutex> lock(mutex_);
        if (closed_)
            return 0;
        id = isDue ? queue_.pushNow(due, std::move(task)) : queue_.pushLater(due, std::move(task));
        if (!draining_ && !isDue)
            armTimer();
        else if (!draining_)
            wake = draining_ = true;
    }
    if (wake)
        asio::post(threads_, [self = shared_from_this()] { self->drain(); });
    return id;
}

void TaskRunner::drain()
{
    for (int i = 0; i < kTasksPerTurn; ++i) {
        auto task = nextTask();
        if (!task)
            return;
        try {
            (*task)();
        } catch (...) {
            logCurrentException("Executor", name_);
        }
        task.reset();  // what the task holds is gone before those who wait for it go on
    }
    {
        const Lock<Mutex> lock(mutex_);
        endTask();
    }
    // To the back of the pool's queue, without waking another thread for it.
    asio::defer(threads_, [self = shared_from_this()] { self->drain(); });
}

/// Ends the task before, if any.
std::optional<Executor::Task> TaskRunner::nextTask()
{
    const Lock<Mutex> lock(mutex_);
    endTask();
    if (!queue_.empty() && queue_.nextDue() <= uptimeSince(start_)) {
        running_ = std::this_thread::get_id();
        return queue_.pop();
    }
    draining_ = false;
    if (!queue_.empty())
        armTimer();
    return std::nullopt;
}

void TaskRunner::endTask()
{
    running_ = std::thread::id();
    if (closed_)
        taskEnded_.notify_all();
}

// A timer that is armed for an earlier time is left alone, also when that time's task has been
// cancelled: it finds nothing due and arms itself anew, which costs less than moving it.
void TaskRunner::armTimer()
{
    const Duration wake = std::min(queue_.nextDue(), dueAt(uptimeSince(start_), kLongestWait));
    if (armedFor_ && *armedFor_ <= wake)
        return;
    armedFor_ = wake;
    timer_.expires_at(start_ + wake);
    timer_.async_wait([self = shared_from_this()](const boost::system::error_code& error) {
        if (!error)
            self->onTimer();
    });
}

void TaskRunner::onTimer()
{
    {
        const Lock<Mutex> lock(mutex_);
        armedFor_.reset();
        if (draining_)
            return;
        draining_ = true;
    }
    drain();
}

bool TaskRunner::cancel(Executor::TaskId id)
{
    std::optional<Executor::Task> removed;
    const Lock<Mutex> lock(mutex_);
    removed = queue_.remove(id);
    return removed.has_value();
}

bool TaskRunner::isCurrent() const
{
    const Lock<Mutex> lock(mutex_);
    return running_ == std::this_thread::get_id();
}

void TaskRunner::close()
{
    {
        std::vector<Executor::Task> dropped;
        const Lock<Mutex> lock(mutex_);
        closed_ = true;
        dropped = queue_.removeIf([](const Executor::Task&) { return true; });
        timer_.cancel();
    }
    const Lock<Mutex> lock(mutex_);
    while (running_ != std::thread::id() && running_ != std::this_thread::get_id())
        taskEnded_.wait(mutex_);
}

// Threads of executors that were destroyed by one of their own tasks, and so could not join them.
class RetiredThreads {
public:
    void add(std::unique_ptr<asio::thread_pool> thread)
    {
        const Lock<Mutex> lock(mutex_);
        threads_.push_back(std::move(thread));
    }

private:
    Mutex mutex_;
    std::vector<std::unique_ptr<asio::thread_pool>> threads_ VO_GUARDED_BY(mutex_);
};

class SharedExecutor : public Executor {
public:
    SharedExecutor(asio::thread_pool& threads, const std::string& name, Steady::time_point start)
        : runner_(std::make_shared<TaskRunner>(threads, name, start))
    {
    }
    ~SharedExecutor() override { runner_->close(); }

    TaskId post(Task task, Duration delay) override
    {
        return runner_->post(std::move(task), delay);
    }
    bool cancel(TaskId id) override { return runner_->cancel(id); }
    bool isCurrent() const override { return runner_->isCurrent(); }
    void close() override { runner_->close(); }

private:
    const std::shared_ptr<TaskRunner> runner_;
};

// A shared executor on a pool of one thread that nobody else has.
class OwnThreadExecutor final : public Executor {
public:
    OwnThreadExecutor(const std::string& name, Steady::time_point start, RetiredThreads& retired)
        : retired_(retired),
          thread_(std::make_unique<asio::thread_pool>(1)),
          executor_(std::make_unique<SharedExecutor>(*thread_, name, start))
    {
        asio::post(*thread_, [threadName = name.substr(0, kThreadNameLength)] {
            pthread_setname_np(pthread_self(), threadName.c_str());
        });
    }

    ~OwnThreadExecutor() override
    {
        executor_.reset();
        if (!thread_->get_executor().running_in_this_thread())
            return;
        thread_->stop();
        retired_.add(std::move(thread_));
    }

    TaskId post(Task task, Duration delay) override
    {
        return executor_->post(std::move(task), delay);
    }
    bool cancel(TaskId id) override { return executor_->cancel(id); }
    bool isCurrent() const override { return executor_->isCurrent(); }
    void close() override { executor_->close(); }

private:
    RetiredThreads& retired_;
    std::unique_ptr<asio::thread_pool> thread_;
    std::unique_ptr<SharedExecutor> executor_;  // after the thread: its timer needs it
};

// Destroying it joins its threads, so none of its tasks may be the last to hold it.
class RealClock final : public Clock {
public:
    TimePoint now() const override
    {
        return std::chrono::floor<Duration>(std::chrono::system_clock::now());
    }
    Duration uptime() const override { return uptimeSince(start_); }

    std::shared_ptr<Executor> makeExecutor(const std::string& name, Threading threading) override
    {
        if (threading == Threading::own)
            return std::make_shared<OwnThreadExecutor>(name, start_, retired_);
        return std::make_shared<SharedExecutor>(pool_, name, start_);
    }

    bool runWithin(Duration limit, std::function<void()> work) override
    {
        std::packaged_task<void()> task(std::move(work));
        const std::future<void> end = task.get_future();
        std::thread(std::move(task)).detach();
        return end.wait_for(limit) == std::future_status::ready;
    }

private:
    const Steady::time_point start_ = Steady::now();
    RetiredThreads retired_;
    asio::thread_pool pool_{kPoolThreads};
};

}  // namespace

std::shared_ptr<Clock> makeRealClock()
{
    return std::make_shared<RealClock>();
}

}  // namespace vo
