#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>
#include <vector>

#include "platform/kr/KRBroker.h"
#include "platform/vo/PackageInfo.h"
#include "platform/vo/ServiceObject.h"
#include "platform/vo/Signal.h"

namespace KR {

/// The services that a launchpad needs to come up, in place of a robot's: "PackageManager", which
/// has the packages of a recording, and those that packages with reflexes or plugins wait for,
/// which do nothing.
///
/// Used by one thread.
class ReplayServices {
public:
    /// `packages` are those that are there at the beginning.
    ReplayServices(const boost::shared_ptr<KRBroker>& broker,
                   std::vector<vo::PackageInfo> packages);
    ~ReplayServices();
    ReplayServices(const ReplayServices&) = delete;
    ReplayServices& operator=(const ReplayServices&) = delete;

    /// A package comes, or goes.
    void change(const vo::PackageInfo& package, bool installed);

private:
    void remove(const std::string& uuid);
    void add(const std::shared_ptr<vo::ServiceObject>& service);

    const boost::shared_ptr<KRBroker> broker_;
    std::vector<vo::PackageInfo> packages_;
    vo::Signal<vo::PackageInfo> installed_;
    vo::Signal<vo::PackageInfo> removed_;
    std::vector<std::string> names_;
};

}  // namespace KR
