#include "host/StopRequest.h"

namespace KR {

void StopRequest::request(int signal)
{
    const vo::Lock lock(mutex_);
    if (requested_)
        return;
    requested_ = true;
    signal_ = signal;
    changed_.notify_all();
}

bool StopRequest::isRequested() const
{
    const vo::Lock lock(mutex_);
    return requested_;
}

int StopRequest::signal() const
{
    const vo::Lock lock(mutex_);
    return signal_;
}

void StopRequest::wait() const
{
    const vo::Lock lock(mutex_);
    while (!requested_)
        changed_.wait(mutex_);
}

bool StopRequest::waitFor(vo::Executor& timer, vo::Duration duration) const
{
    // Shared with the task, which may run on while this returns.
    const auto isOver = std::make_shared<bool>(false);
    const auto task = timer.post(
        [this, isOver] {
            const vo::Lock lock(mutex_);
            *isOver = true;
            changed_.notify_all();
        },
        duration);
    bool requested = false;
    {
        const vo::Lock lock(mutex_);
        while (!requested_ && !*isOver)
            changed_.wait(mutex_);
        requested = requested_;
    }
    timer.cancel(task);
    return !requested;
}

}  // namespace KR
