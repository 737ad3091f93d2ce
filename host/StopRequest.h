#pragma once

#include <condition_variable>

#include "platform/vo/Clock.h"
#include "platform/vo/Executor.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// The wish that the program ends, and the place to wait for it. Thread-safe.
class StopRequest {
public:
    /// `signal` is the signal that asks for it, 0 for another reason. The first one stays.
    void request(int signal = 0);
    bool isRequested() const;
    /// 0 when no signal asked.
    int signal() const;

    void wait() const;
    /// Waits until the request, or until `duration` has passed on the clock of `timer`, which runs
    /// on other threads. False when the request came.
    bool waitFor(vo::Executor& timer, vo::Duration duration) const;

private:
    mutable vo::Mutex mutex_;
    mutable std::condition_variable_any changed_;
    bool requested_ VO_GUARDED_BY(mutex_) = false;
    int signal_ VO_GUARDED_BY(mutex_) = 0;
};

}  // namespace KR
