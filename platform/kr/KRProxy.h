#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>
#include <vector>

#include "platform/kr/KRError.h"
#include "platform/vo/AnyObject.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"

namespace KR {

class KRBroker;

/// Calls a service by name: the module layer's view of a vo::AnyObject, whose errors arrive as
/// KRError with the service as module and the called method as method. Thread-safe.
class KRProxy {
public:
    /// KRError when there is no such service.
    KRProxy(const KRBroker& broker, const std::string& service);

    const std::string& getServiceName() const { return service_; }
    const vo::AnyObject& object() const { return object_; }

    template <class R = void, class... Args>
    R call(const std::string& method, const Args&... args) const
    {
        try {
            return object_.call<R>(method, args...);
        } catch (const KRError&) {
            throw;
        } catch (const std::exception& e) {
            throw KRError(service_, method, e.what());
        }
    }

    /// The same, but waits for the answer no longer than `limit` (see vo::Clock::runWithin), after
    /// which it raises KRError. A call that was given up so goes on by itself; until it has ended,
    /// further ones are refused with KRError, so that a service that hangs costs one thread.
    template <class R, class... Args>
    R callWithin(vo::Duration limit, const std::string& method, const Args&... args) const
    {
        const vo::Value answer = answerWithin(limit, method, {vo::toValue(args)...});
        try {
            return vo::fromValue<R>(answer);
        } catch (const std::exception& e) {
            throw KRError(service_, method, e.what());
        }
    }

private:
    vo::Value answerWithin(vo::Duration limit, const std::string& method,
                           std::vector<vo::Value> arguments) const;

    // Constant after construction.
    const std::string service_;
    const vo::AnyObject object_;
    const std::shared_ptr<vo::Clock> clock_;

    mutable vo::Mutex mutex_;
    /// The call that was given up last, for as long as it has not ended.
    mutable std::weak_ptr<void> overdue_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
