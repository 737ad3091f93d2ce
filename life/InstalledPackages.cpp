#include "life/InstalledPackages.h"

#include "platform/kr/KRError.h"

namespace KR {

namespace {

constexpr const char* kPackageService = "PackageManager";

}  // namespace

InstalledPackages::InstalledPackages(const boost::shared_ptr<KRBroker>& broker,
                                     const std::string& folder)
    : broker_(broker)
{
    if (folder.empty()) {
        registerNone();
        return;
    }
    packages_ = std::make_unique<PackageManager>(broker->session(), broker->clock(), folder);
    behaviors_ = std::make_unique<KRBehaviorManager>(
        broker->session(), vo::makeRealClock(),
        [packages = packages_.get()](const std::string& uuid) { return packages->find(uuid); });
}

InstalledPackages::~InstalledPackages()
{
    if (none_)
        broker_->session().unregisterService(kPackageService);
}

/// The launchpad asks for packages in any case; here the answer is always that there are none.
void InstalledPackages::registerNone()
{
    none_ = std::make_shared<vo::ServiceObject>(kPackageService);
    none_->method("packages", [] { return std::vector<vo::PackageInfo>(); })
        .method("hasPackage", [](const std::string&) { return false; })
        .method("removePkg",
                [](const std::string& uuid) {
                    throw KRError(kPackageService, "removePkg",
                                  "there is no package '" + uuid + "'");
                })
        .signal("onPackageInstalled", never_)
        .signal("onPackageRemoved", never_);
    broker_->session().registerService(none_);
}

}  // namespace KR
