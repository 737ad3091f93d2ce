#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>

#include "platform/vo/Application.h"
#include "platform/vo/Session.h"

namespace KR {

class KRMemory;
class KRProxy;
class KeyCatalogue;

/// Where modules meet the platform: the application's session, its clock, and shared memory.
///
/// Registers the memory as the service "KRMemory". Thread-safe. Destroyed after every module,
/// proxy and checker that was made on it, and before its application.
class KRBroker {
public:
    static boost::shared_ptr<KRBroker> create(vo::Application& application,
                                              const std::string& name = "main");
    ~KRBroker();
    KRBroker(const KRBroker&) = delete;
    KRBroker& operator=(const KRBroker&) = delete;

    const std::string& getName() const { return name_; }
    vo::Application& application() const { return application_; }
    vo::Session& session() const { return application_.session(); }
    const std::shared_ptr<vo::Clock>& clock() const { return application_.clock(); }
    KRMemory& memory() const { return *memory_; }
    /// What the memory's keys mean.
    KeyCatalogue& keys() const { return *keys_; }

    /// A proxy of the service of that name; KRError when there is none.
    boost::shared_ptr<KRProxy> getProxy(const std::string& service) const;

private:
    KRBroker(vo::Application& application, const std::string& name);

    // Constant after construction.
    std::string name_;
    vo::Application& application_;
    std::unique_ptr<KRMemory> memory_;
    std::unique_ptr<KeyCatalogue> keys_;
};

}  // namespace KR
