#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>

#include "platform/kr/KRBroker.h"
#include "platform/packages/KRBehaviorManager.h"
#include "platform/packages/PackageManager.h"
#include "platform/vo/ServiceObject.h"
#include "platform/vo/Signal.h"

namespace KR {

/// The robot's application packages: the services "PackageManager" and, where there is a packages
/// folder, "KRBehaviorManager".
///
/// Programs live in real time, even where the robot lives by another clock. Packages live by the
/// robot's clock, so that on virtual time a look at what was changed by hand never comes in between
/// the operations of a scenario.
class InstalledPackages {
public:
    /// `folder` is the packages folder; empty for a robot without packages. KRError when it cannot
    /// be used.
    InstalledPackages(const boost::shared_ptr<KRBroker>& broker, const std::string& folder);
    /// Stops the behaviours, and takes the services away.
    ~InstalledPackages();
    InstalledPackages(const InstalledPackages&) = delete;
    InstalledPackages& operator=(const InstalledPackages&) = delete;

private:
    void registerNone();

    // Constant after construction, and synchronised by themselves.
    const boost::shared_ptr<KRBroker> broker_;
    vo::Signal<vo::PackageInfo> never_;  ///< both signals, without packages
    std::shared_ptr<vo::ServiceObject> none_;
    std::unique_ptr<PackageManager> packages_;
    std::unique_ptr<KRBehaviorManager> behaviors_;
};

}  // namespace KR
