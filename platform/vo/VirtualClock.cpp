#include "platform/vo/VirtualClock.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/vo/DueQueue.h"
#include "platform/vo/Executor.h"
#include "platform/vo/LogException.h"
#include "platform/vo/Mutex.h"

namespace vo {

namespace {

// An executor as the queue knows it.
struct Owner {
    explicit Owner(std::string n) : name(std::move(n)) {}

    const std::string name;
    bool closed = false;  // guarded by the mutex of the clock
};

struct OwnedTask {
    std::shared_ptr<Owner> owner;
    Executor::Task task;
};

}  // namespace

class VirtualClock::Impl {
public:
    Impl(TimePoint start, std::size_t maxTasksPerInstant)
        : maxTasksPerInstant_(maxTasksPerInstant), wallStart_(start.time_since_epoch())
    {
    }

    TimePoint now() const { return TimePoint(wallStart_.load() + uptime_.load()); }
    Duration uptime() const { return uptime_; }
    void jumpWallClock(Duration offset)
    {
        const Lock<Mutex> lock(mutex_);
        wallStart_ = wallStart_.load() + offset;
    }

    std::optional<Duration> untilNextTask() const;
    void advance(Duration duration);
    void dropAll();

    Executor::TaskId post(const std::shared_ptr<Owner>& owner, Executor::Task task, Duration delay);
    bool cancel(const Owner& owner, Executor::TaskId id);
    bool isCurrent(const Owner& owner) const;
    void close(Owner& owner);

private:
    // The right to advance, held by one thread at a time.
    class Turn {
    public:
        explicit Turn(Impl& clock) : clock_(clock) { clock_.beginTurn(); }
        ~Turn() { clock_.endTurn(); }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        Impl& clock_;
    };

    void beginTurn();
    void endTurn();
    std::optional<OwnedTask> nextTask(Duration target);
    bool isRunning(const Owner& owner) const VO_REQUIRES(mutex_)
    {
        return running_.get() == &owner;
    }

    // Constant after construction.
    const std::size_t maxTasksPerInstant_;

    // No other lock is taken while this one is held.
    mutable Mutex mutex_;
    Condition changed_;                      // a task or a turn has ended
    int waiting_ VO_GUARDED_BY(mutex_) = 0;  // for that
    // Changed under the mutex, read without it: each stamp asks for the time.
    std::atomic<Duration> wallStart_;
    std::atomic<Duration> uptime_{Duration::zero()};
    DueQueue<OwnedTask> queue_ VO_GUARDED_BY(mutex_);
    std::size_t tasksAtInstant_ VO_GUARDED_BY(mutex_) = 0;
    std::thread::id advancer_ VO_GUARDED_BY(mutex_);
    std::shared_ptr<Owner> running_ VO_GUARDED_BY(mutex_);
};

std::optional<Duration> VirtualClock::Impl::untilNextTask() const
{
    const Lock<Mutex> lock(mutex_);
    if (queue_.empty())
        return std::nullopt;
    return queue_.nextDue() - uptime();
}

void VirtualClock::Impl::advance(Duration duration)
{
    const Turn turn(*this);
    const Duration target = dueAt(uptime(), duration);
    while (auto due = nextTask(target)) {
        try {
            due->task();
        } catch (...) {
            logCurrentException("Executor", due->owner->name);
        }
        due.reset();  // what the task holds is gone before those who wait for it go on
    }
}

void VirtualClock::Impl::beginTurn()
{
    const auto self = std::this_thread::get_id();
    const Lock<Mutex> lock(mutex_);
    if (advancer_ == self)
        throw std::logic_error("VirtualClock: advanced from one of its own tasks");
    ++waiting_;
    while (advancer_ != std::thread::id())
        changed_.wait(mutex_);
    --waiting_;
    advancer_ = self;
    tasksAtInstant_ = 0;
}

void VirtualClock::Impl::endTurn()
{
    const Lock<Mutex> lock(mutex_);
    advancer_ = std::thread::id();
    running_.reset();  // when a turn ends by an exception
    if (waiting_ > 0)
        changed_.notifyAll();
}

// Ends the task before, if any. The next task that is due until `target`, and the clock at its due
// time; none when all have run, and the clock at the target.
std::optional<OwnedTask> VirtualClock::Impl::nextTask(Duration target)
{
    const Lock<Mutex> lock(mutex_);
    if (running_ && running_->closed)
        changed_.notifyAll();
    running_.reset();
    if (queue_.empty() || queue_.nextDue() > target) {
        uptime_ = target;
        return std::nullopt;
    }
    if (queue_.nextDue() > uptime()) {
        uptime_ = queue_.nextDue();
        tasksAtInstant_ = 0;
    }
    if (tasksAtInstant_ == maxTasksPerInstant_)
        throw std::runtime_error("VirtualClock: more than " + std::to_string(maxTasksPerInstant_) +
                                 " tasks at one instant");
    ++tasksAtInstant_;
    OwnedTask due = queue_.pop();
    running_ = due.owner;
    return due;
}

void VirtualClock::Impl::dropAll()
{
    std::vector<OwnedTask> dropped;
    const Lock<Mutex> lock(mutex_);
    dropped = queue_.removeIf([](const OwnedTask&) { return true; });
}

Executor::TaskId VirtualClock::Impl::post(const std::shared_ptr<Owner>& owner, Executor::Task task,
                                          Duration delay)
{
    const Lock<Mutex> lock(mutex_);
    if (owner->closed)
        return 0;
    OwnedTask owned{owner, std::move(task)};
    if (delay <= Duration::zero())
        return queue_.pushNow(uptime_, std::move(owned));
    return queue_.pushLater(dueAt(uptime_, delay), std::move(owned));
}

bool VirtualClock::Impl::cancel(const Owner& owner, Executor::TaskId id)
{
    std::optional<OwnedTask> removed;
    const Lock<Mutex> lock(mutex_);
    const OwnedTask* const task = queue_.find(id);
    if (task && task->owner.get() == &owner)
        removed = queue_.remove(id);
    return removed.has_value();
}

bool VirtualClock::Impl::isCurrent(const Owner& owner) const
{
    const Lock<Mutex> lock(mutex_);
    return isRunning(owner) && advancer_ == std::this_thread::get_id();
}

void VirtualClock::Impl::close(Owner& owner)
{
    {
        std::vector<OwnedTask> dropped;
        const Lock<Mutex> lock(mutex_);
        owner.closed = true;
        dropped =
            queue_.removeIf([&owner](const OwnedTask& task) { return task.owner.get() == &owner; });
    }
    const Lock<Mutex> lock(mutex_);
    while (isRunning(owner) && advancer_ != std::this_thread::get_id())
        changed_.wait(mutex_);
}

namespace {

// Speaks for one owner; `Queue` is the clock's, kept alive.
template <class Queue>
class VirtualExecutor final : public Executor {
public:
    VirtualExecutor(std::shared_ptr<Queue> queue, const std::string& name)
        : queue_(std::move(queue)), owner_(std::make_shared<Owner>(name))
    {
    }
    ~VirtualExecutor() override { queue_->close(*owner_); }

    TaskId post(Task task, Duration delay) override
    {
        return queue_->post(owner_, std::move(task), delay);
    }
    bool cancel(TaskId id) override { return queue_->cancel(*owner_, id); }
    bool isCurrent() const override { return queue_->isCurrent(*owner_); }
    void close() override { queue_->close(*owner_); }

private:
    const std::shared_ptr<Queue> queue_;
    const std::shared_ptr<Owner> owner_;
};

}  // namespace

VirtualClock::VirtualClock(TimePoint start, std::size_t maxTasksPerInstant)
    : impl_(std::make_shared<Impl>(start, maxTasksPerInstant))
{
}

// Tasks may hold executors, and these the queue.
VirtualClock::~VirtualClock()
{
    impl_->dropAll();
}

TimePoint VirtualClock::now() const
{
    return impl_->now();
}

Duration VirtualClock::uptime() const
{
    return impl_->uptime();
}

std::shared_ptr<Executor> VirtualClock::makeExecutor(const std::string& name, Threading)
{
    return std::make_shared<VirtualExecutor<Impl>>(impl_, name);
}

bool VirtualClock::runWithin(Duration /*limit*/, std::function<void()> work)
{
    work();
    return true;
}

void VirtualClock::advance(Duration duration)
{
    if (duration < Duration::zero())
        throw std::invalid_argument("VirtualClock: time does not go back");
    impl_->advance(duration);
}

std::optional<Duration> VirtualClock::untilNextTask() const
{
    return impl_->untilNextTask();
}

void VirtualClock::jumpWallClock(Duration offset)
{
    impl_->jumpWallClock(offset);
}

}  // namespace vo
