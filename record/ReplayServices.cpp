#include "record/ReplayServices.h"

#include <algorithm>
#include <utility>

#include "platform/vo/Session.h"

namespace KR {

ReplayServices::ReplayServices(const boost::shared_ptr<KRBroker>& broker,
                               std::vector<vo::PackageInfo> packages)
    : broker_(broker), packages_(std::move(packages))
{
    const auto manager = std::make_shared<vo::ServiceObject>("PackageManager");
    manager->method("packages", [this] { return packages_; })
        .method("hasPackage",
                [this](const std::string& uuid) {
                    return std::any_of(packages_.begin(), packages_.end(),
                                       [&](const auto& each) { return each.uuid() == uuid; });
                })
        .method("removePkg", [this](const std::string& uuid) { remove(uuid); })
        .signal("onPackageInstalled", installed_)
        .signal("onPackageRemoved", removed_);
    add(manager);
    const auto animation = std::make_shared<vo::ServiceObject>("KRAnimationPlayer");
    animation->method("_declarePathForTagsPermanently", [](const std::string&) {});
    add(animation);
    add(std::make_shared<vo::ServiceObject>("KRBehaviorManager"));
}

ReplayServices::~ReplayServices()
{
    for (const std::string& name : names_)
        broker_->session().unregisterService(name);
}

void ReplayServices::add(const std::shared_ptr<vo::ServiceObject>& service)
{
    broker_->session().registerService(service);
    names_.push_back(service->name());
}

void ReplayServices::remove(const std::string& uuid)
{
    packages_.erase(std::remove_if(packages_.begin(), packages_.end(),
                                   [&](const auto& each) { return each.uuid() == uuid; }),
                    packages_.end());
}

void ReplayServices::change(const vo::PackageInfo& package, bool installed)
{
    remove(package.uuid());
    if (installed)
        packages_.push_back(package);
    (installed ? installed_ : removed_)(package);
}

}  // namespace KR
