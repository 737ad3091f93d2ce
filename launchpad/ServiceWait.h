#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "platform/vo/AnyObject.h"
#include "platform/vo/Future.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/Session.h"

namespace KR {

/// Waits for a service, until it is there or somebody has had enough.
///
///     open --end()--> ended. Ended is final.
///
/// Thread-safe, but one thread at a time calls get().
class ServiceWait {
public:
    explicit ServiceWait(std::string service) : service_(std::move(service)) {}

    /// The service, as soon as there is one. std::runtime_error once this has ended, or when the
    /// session closes.
    vo::AnyObject get(vo::Session& session)
    {
        vo::Future<vo::AnyObject> found;
        {
            const vo::Lock lock(mutex_);
            if (ended_)
                throw std::runtime_error("no longer waiting for " + service_);
            found = found_ = session.waitForService(service_);
        }
        return found.value();
    }

    void end()
    {
        const vo::Lock lock(mutex_);
        ended_ = true;
        if (found_.isValid())
            found_.cancel();
    }

private:
    const std::string service_;

    vo::Mutex mutex_;
    bool ended_ VO_GUARDED_BY(mutex_) = false;
    vo::Future<vo::AnyObject> found_ VO_GUARDED_BY(mutex_);  ///< of the latest get()
};

}  // namespace KR
