#include <boost/asio/defer.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <ctime>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/vo/Clock.h"
#include "platform/vo/DedicatedQueue.h"
#include "platform/vo/Executor.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/TaskQueue.h"

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

// Tasks that the threads of a pool run, one at a time.
//
//     idle --due task posted, or timer--> draining --nothing due--> idle
//
// While it is draining, no second thread touches it, and a post costs no wake-up: the drain finds
// the task by itself. While it is idle and has tasks, the timer is armed for the first of them.
//
// Timers have another thread, which does nothing else: one that waits for timers sleeps in the
// kernel's poll, and is much slower to wake from there than from a condition variable.
//
// Held by its executor, by a drain and by an armed timer.
class PooledQueue final : public TaskQueue {
public:
    PooledQueue(asio::thread_pool& threads, asio::thread_pool& timers, std::string name,
                Steady::time_point start)
        : TaskQueue(std::move(name), start), threads_(threads), timer_(timers)
    {
    }

private:
    bool needsWake(Duration due) override VO_REQUIRES(mutex_);
    void wake() override;
    void onClose() override VO_REQUIRES(mutex_) { timer_.cancel(); }

    std::shared_ptr<PooledQueue> self()
    {
        return std::static_pointer_cast<PooledQueue>(shared_from_this());
    }
    void drain();
    void onTimer();
    std::optional<Executor::Task> nextTask();
    void armTimer() VO_REQUIRES(mutex_);

    // Constant after construction.
    asio::thread_pool& threads_;

    asio::steady_timer timer_ VO_GUARDED_BY(mutex_);
    std::optional<Duration> armedFor_ VO_GUARDED_BY(mutex_);  // until its handler has run
    bool draining_ VO_GUARDED_BY(mutex_) = false;
};

bool PooledQueue::needsWake(Duration due)
{
    if (draining_)
        return false;
    if (due > uptime()) {
        armTimer();
        return false;
    }
    draining_ = true;
    return true;
}

void PooledQueue::wake()
{
    asio::post(threads_, [queue = self()] { queue->drain(); });
}

void PooledQueue::drain()
{
    for (int i = 0; i < kTasksPerTurn; ++i) {
        auto task = nextTask();
        if (!task)
            return;
        run(*std::move(task));
    }
    {
        const Lock<Mutex> lock(mutex_);
        endTask();
    }
    // To the back of the pool's queue, without waking another thread for it.
    asio::defer(threads_, [queue = self()] { queue->drain(); });
}

std::optional<Executor::Task> PooledQueue::nextTask()
{
    const Lock<Mutex> lock(mutex_);
    endTask();
    if (isDue())
        return beginTask();
    draining_ = false;
    if (!queue_.empty())
        armTimer();
    return std::nullopt;
}

// A timer that is armed for an earlier time is left alone, also when that time's task has been
// cancelled: it finds nothing due and arms itself anew, which costs less than moving it.
void PooledQueue::armTimer()
{
    const Duration wake = nextWake();
    if (armedFor_ && *armedFor_ <= wake)
        return;
    armedFor_ = wake;
    timer_.expires_at(start_ + wake);
    timer_.async_wait([queue = self()](const boost::system::error_code& error) {
        if (!error)
            queue->onTimer();
    });
}

void PooledQueue::onTimer()
{
    {
        const Lock<Mutex> lock(mutex_);
        armedFor_.reset();
        if (draining_)
            return;
        draining_ = true;
    }
    wake();
}

class RealExecutor : public Executor {
public:
    explicit RealExecutor(std::shared_ptr<TaskQueue> queue) : queue_(std::move(queue)) {}
    ~RealExecutor() override { queue_->close(); }

    TaskId post(Task task, Duration delay) override { return queue_->post(std::move(task), delay); }
    bool cancel(TaskId id) override { return queue_->cancel(id); }
    bool isCurrent() const override { return queue_->isCurrent(); }
    void close() override { queue_->close(); }

private:
    const std::shared_ptr<TaskQueue> queue_;
};

// Threads of executors that were destroyed by one of their own tasks, and so could not join them.
class RetiredThreads {
public:
    ~RetiredThreads()
    {
        for (std::thread& thread : threads_)
            thread.join();
    }
    void add(std::thread thread)
    {
        const Lock<Mutex> lock(mutex_);
        threads_.push_back(std::move(thread));
    }

private:
    Mutex mutex_;
    std::vector<std::thread> threads_ VO_GUARDED_BY(mutex_);
};

class DedicatedExecutor final : public RealExecutor {
public:
    DedicatedExecutor(const std::shared_ptr<DedicatedQueue>& queue, RetiredThreads& retired)
        : RealExecutor(queue), queue_(queue), retired_(retired), thread_([queue] { queue->work(); })
    {
    }
    ~DedicatedExecutor() override
    {
        close();
        if (thread_.get_id() == std::this_thread::get_id())
            retired_.add(std::move(thread_));
        else
            thread_.join();
    }

private:
    void expectTask() override { queue_->expectTask(); }

    const std::shared_ptr<DedicatedQueue> queue_;
    RetiredThreads& retired_;
    std::thread thread_;
};

// Destroying it joins its threads, so none of its tasks may be the last to hold it.
class RealClock final : public Clock {
public:
    // No timer is to post to the pool when that is gone.
    ~RealClock() override
    {
        timers_.stop();
        timers_.join();
    }

    TimePoint now() const override
    {
        return std::chrono::floor<Duration>(std::chrono::system_clock::now());
    }
    Duration uptime() const override
    {
        return std::chrono::floor<Duration>(Steady::now() - start_);
    }
    Duration roughUptime() const override
    {
        // The steady clock's own ticks, which the standard library does not offer.
        timespec tick{};
        ::clock_gettime(CLOCK_MONOTONIC_COARSE, &tick);
        const auto now = std::chrono::seconds(tick.tv_sec) + std::chrono::nanoseconds(tick.tv_nsec);
        return std::chrono::floor<Duration>(now - start_.time_since_epoch());
    }

    std::shared_ptr<Executor> makeExecutor(const std::string& name, Threading threading) override
    {
        if (threading == Threading::own)
            return std::make_shared<DedicatedExecutor>(
                std::make_shared<DedicatedQueue>(name, start_), retired_);
        return std::make_shared<RealExecutor>(
            std::make_shared<PooledQueue>(pool_, timers_, name, start_));
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
    asio::thread_pool timers_{1};  // before the pool: its drains hold timers
    RetiredThreads retired_;
    asio::thread_pool pool_{kPoolThreads};
};

}  // namespace

std::shared_ptr<Clock> makeRealClock()
{
    return std::make_shared<RealClock>();
}

}  // namespace vo
