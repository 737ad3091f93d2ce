#include "platform/vo/PeriodicTask.h"

#include <stdexcept>
#include <thread>
#include <utility>

#include "platform/vo/Application.h"
#include "platform/vo/Executor.h"
#include "platform/vo/LogException.h"
#include "platform/vo/Mutex.h"

namespace vo {

// Each start has an executor of its own, which goes with the stop, so that a stopped task holds
// nothing of the clock. A run that stops and starts its own task goes on beside the new executor;
// it then is that run that posts the first one of the new start, as it ends.
class PeriodicTask::Impl : public std::enable_shared_from_this<Impl> {
public:
    void setName(const std::string& name);
    void setCallback(std::function<void()> callback);
    void setPeriod(Duration period);
    void setCompensation(bool compensate);
    void start(bool immediate);
    void stop();
    bool isRunning() const;

private:
    using Callback = std::shared_ptr<const std::function<void()>>;

    void run(std::uint64_t start);
    Callback beginRun(std::uint64_t start);
    void endRun(std::uint64_t start);
    void postRun(Duration delay) VO_REQUIRES(mutex_);
    void checkStopped() const VO_REQUIRES(mutex_);
    std::string name() const;

    // Held while a clock's or an executor's is taken, never the other way round.
    mutable Mutex mutex_;
    Condition runEnded_;
    std::string name_ VO_GUARDED_BY(mutex_) = "unnamed";
    Callback callback_ VO_GUARDED_BY(mutex_);  // shared with its run, which may replace it
    Duration period_ VO_GUARDED_BY(mutex_){0};
    bool compensate_ VO_GUARDED_BY(mutex_) = false;
    std::shared_ptr<Executor> executor_ VO_GUARDED_BY(mutex_);  // null while stopped
    std::uint64_t starts_ VO_GUARDED_BY(mutex_) = 0;            // names the present start
    Duration firstDelay_ VO_GUARDED_BY(mutex_){0};              // of the present start
    std::uint64_t runs_ VO_GUARDED_BY(mutex_) = 0;              // names the latest run
    std::thread::id runner_ VO_GUARDED_BY(mutex_);              // who is in it, if anybody
};

void PeriodicTask::Impl::setName(const std::string& name)
{
    const Lock<Mutex> lock(mutex_);
    checkStopped();
    name_ = name;
}

void PeriodicTask::Impl::setCallback(std::function<void()> callback)
{
    // What is replaced goes after the lock.
    Callback other =
        callback ? std::make_shared<const std::function<void()>>(std::move(callback)) : nullptr;
    const Lock<Mutex> lock(mutex_);
    checkStopped();
    callback_.swap(other);
}

void PeriodicTask::Impl::setPeriod(Duration period)
{
    const Lock<Mutex> lock(mutex_);
    checkStopped();
    period_ = period;
}

void PeriodicTask::Impl::setCompensation(bool compensate)
{
    const Lock<Mutex> lock(mutex_);
    checkStopped();
    compensate_ = compensate;
}

void PeriodicTask::Impl::start(bool immediate)
{
    const auto clock = Application::currentClock();
    const Lock<Mutex> lock(mutex_);
    if (executor_)
        return;
    if (!callback_ || period_ == Duration::zero())
        throw std::logic_error("periodic task '" + name_ + "' has no callback or no period");
    if (!clock)
        throw std::logic_error("periodic task '" + name_ + "' has no Application to run on");
    executor_ = clock->makeExecutor(name_, Clock::Threading::shared);
    ++starts_;
    firstDelay_ = immediate ? Duration::zero() : period_;
    if (runner_ == std::thread::id())
        postRun(firstDelay_);
}

void PeriodicTask::Impl::stop()
{
    // Destroyed after the lock, which drops the next run; one that has just begun may be about to
    // ask for the lock, to find that it comes too late.
    std::shared_ptr<Executor> executor;
    const Lock<Mutex> lock(mutex_);
    executor.swap(executor_);
    const std::uint64_t latest = runs_;
    while (runs_ == latest && runner_ != std::thread::id() && runner_ != std::this_thread::get_id())
        runEnded_.wait(mutex_);
}

bool PeriodicTask::Impl::isRunning() const
{
    const Lock<Mutex> lock(mutex_);
    return executor_ != nullptr;
}

void PeriodicTask::Impl::run(std::uint64_t start)
{
    auto callback = beginRun(start);
    if (!callback)
        return;
    try {
        (*callback)();
    } catch (...) {
        logCurrentException("PeriodicTask", name());
    }
    callback.reset();
    endRun(start);
}

PeriodicTask::Impl::Callback PeriodicTask::Impl::beginRun(std::uint64_t start)
{
    const Lock<Mutex> lock(mutex_);
    if (!executor_ || start != starts_)
        return nullptr;
    ++runs_;
    runner_ = std::this_thread::get_id();
    // Posted before the run, the next one is due a period after this one's start. The executor
    // holds it back while this one goes on, and as it posts its successor only when it begins,
    // what was missed is not made up for.
    if (compensate_)
        postRun(period_);
    return callback_;
}

void PeriodicTask::Impl::endRun(std::uint64_t start)
{
    const Lock<Mutex> lock(mutex_);
    runner_ = std::thread::id();
    runEnded_.notifyAll();
    if (!executor_)
        return;
    if (start != starts_)
        postRun(firstDelay_);
    else if (!compensate_)
        postRun(period_);
}

// A queue that held the task alive would keep it from being destroyed, and so from stopping.
void PeriodicTask::Impl::postRun(Duration delay)
{
    executor_->post(
        [weak = weak_from_this(), start = starts_] {
            if (const auto self = weak.lock())
                self->run(start);
        },
        delay);
}

void PeriodicTask::Impl::checkStopped() const
{
    if (executor_)
        throw std::logic_error("periodic task '" + name_ + "' is running");
}

std::string PeriodicTask::Impl::name() const
{
    const Lock<Mutex> lock(mutex_);
    return name_;
}

PeriodicTask::PeriodicTask() : impl_(std::make_shared<Impl>()) {}

PeriodicTask::~PeriodicTask()
{
    impl_->stop();
}

void PeriodicTask::setName(const std::string& name)
{
    impl_->setName(name);
}

void PeriodicTask::setCallback(std::function<void()> callback)
{
    impl_->setCallback(std::move(callback));
}

void PeriodicTask::setUsPeriod(std::uint64_t microseconds)
{
    if (microseconds == 0)
        throw std::invalid_argument("the period of a periodic task is at least 1 us");
    impl_->setPeriod(fromMicroseconds(microseconds));
}

void PeriodicTask::compensateCallbackTime(bool compensate)
{
    impl_->setCompensation(compensate);
}

void PeriodicTask::start(bool immediate)
{
    impl_->start(immediate);
}

void PeriodicTask::stop()
{
    impl_->stop();
}

bool PeriodicTask::isRunning() const
{
    return impl_->isRunning();
}

}  // namespace vo
