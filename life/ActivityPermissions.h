#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>
#include <vector>

#include "permission/ContextPermission.h"
#include "permission/ContextPermissionResponder.h"
#include "platform/kr/KRBroker.h"
#include "platform/packages/BehaviorsCache.h"
#include "platform/vo/AnyObject.h"
#include "platform/vo/CallbackGate.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/ServiceObject.h"

namespace KR {

/// Whether activities may run in the robot's present context: makes the permission object, and
/// refreshes its cache, on the event loop, whenever life state, sleep, charging station or language
/// change.
///
/// It is the service "ContextPermission": the methods "checkPermissionViolations" and
/// "getPermissionsCache", each of an activity, and the property "permissions", the whole cache,
/// which can be followed.
///
/// Thread-safe. A refresh that is still posted when this goes is dropped.
class ActivityPermissions : private ContextPermissionResponder {
public:
    /// The memory keys of the life service and of the battery are written already.
    explicit ActivityPermissions(const boost::shared_ptr<KRBroker>& broker);
    ~ActivityPermissions() override;
    ActivityPermissions(const ActivityPermissions&) = delete;
    ActivityPermissions& operator=(const ActivityPermissions&) = delete;

    /// For the launchpad, which is destroyed before.
    ContextPermission& contextPermission() { return permission_; }

    /// Whether it is an installed behaviour, as far as the launchpad has told.
    bool isBehavior(const std::string& activity) const;

    /// The reasons against an activity, in the context as it is at this moment.
    std::vector<std::string> violations(const std::string& activity);

private:
    void onContextChanged() override { postRefresh(); }
    void postRefresh();
    void followSpeech();
    void registerService();

    // Constant after construction.
    const boost::shared_ptr<KRBroker> broker_;
    vo::Connection services_;

    // Synchronised by themselves. The flag says that a refresh has been posted and not begun.
    const std::shared_ptr<vo::CallbackGate> refreshGate_ = std::make_shared<vo::CallbackGate>();
    std::atomic<bool> refreshPosted_{false};
    BehaviorsCache behaviors_;
    ContextPermission permission_;

    /// Held while the speech service is followed; before the locks of services.
    vo::Mutex speechMutex_;
    vo::AnyObject speech_ VO_GUARDED_BY(speechMutex_);  ///< whose language is followed
    vo::Connection language_ VO_GUARDED_BY(speechMutex_);
};

}  // namespace KR
