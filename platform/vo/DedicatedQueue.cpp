#include "platform/vo/DedicatedQueue.h"

#include <optional>
#include <pthread.h>
#include <utility>

namespace vo {

namespace {

/// Longest thread name that the system takes.
constexpr std::size_t kThreadNameLength = 15;

}  // namespace

void DedicatedQueue::work()
{
    pthread_setname_np(pthread_self(), name_.substr(0, kThreadNameLength).c_str());
    while (auto task = nextTask())
        run(*std::move(task));
}

/// Waits for it; none once it is closed.
std::optional<Executor::Task> DedicatedQueue::nextTask()
{
    const Lock<Mutex> lock(mutex_);
    endTask();
    while (!closed_) {
        if (isDue())
            return beginTask();
        asleepSince_ = uptime();
        if (queue_.empty()) {
            asleepUntil_ = Duration::max();
            woken_.wait(mutex_);
        } else {
            asleepUntil_ = nextWake();
            woken_.waitUntil(mutex_, start_ + asleepUntil_);
        }
        asleepUntil_ = kAwake;
    }
    return std::nullopt;
}

void DedicatedQueue::expectTask()
{
    {
        const Lock<Mutex> lock(mutex_);
        if (asleepUntil_ == kAwake || uptime() - asleepSince_ < kSleepsSoundly)
            return;
        asleepUntil_ = kAwake;
    }
    woken_.notifyOne();
}

bool DedicatedQueue::needsWake(Duration due)
{
    if (due >= asleepUntil_)
        return false;
    asleepUntil_ = kAwake;
    return true;
}

}  // namespace vo
