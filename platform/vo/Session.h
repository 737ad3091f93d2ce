#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/vo/AnyObject.h"
#include "platform/vo/Future.h"
#include "platform/vo/Signal.h"

namespace vo {

/// The register of services by name. Owned by the Application. Thread-safe.
class Session {
public:
    Session();
    /// Closes.
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Registers an object under its name, and ends the waits for it. std::runtime_error when the
    /// name is taken or empty, or the session closed.
    void registerService(std::shared_ptr<ServiceObject> object);
    /// Takes a service away and closes its object. False when there is none of that name.
    bool unregisterService(const std::string& name);

    /// The service of that name; std::runtime_error "no service named 'X'" when there is none.
    AnyObject service(const std::string& name) const;
    /// The same, or a null handle.
    AnyObject findService(const std::string& name) const;
    /// Ends with the handle as soon as there is a service of that name. It can be cancelled; the
    /// end of the session cancels it.
    Future<AnyObject> waitForService(const std::string& name);

    /// Emitted when a service has been registered, on the registering thread and with no lock held.
    /// By then the service may be gone again, and another one be there in its place.
    Signal<AnyObject>& registered() { return registered_; }

    /// Names in ascending order.
    std::vector<std::string> services() const;

    /// Closes all services, which may still use the session meanwhile, and cancels the waits. From
    /// then on nothing can be registered or waited for. Idempotent.
    void close();

private:
    class Impl;
    // Constant after construction. Shared with the cancelling of waits.
    std::shared_ptr<Impl> impl_;
    // Synchronised by itself.
    Signal<AnyObject> registered_;
};

/// The service of that name in the current application's session; std::runtime_error when there
/// is none, std::logic_error without an application.
AnyObject import(const std::string& name);

}  // namespace vo
