#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

#include "platform/kr/KRError.h"
#include "platform/vo/AnyObject.h"

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

private:
    std::string service_;
    vo::AnyObject object_;
};

}  // namespace KR
