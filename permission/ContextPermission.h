#pragma once

#include <boost/shared_ptr.hpp>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "permission/ContextPermissionResponder.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/AnyObject.h"
#include "platform/vo/Connection.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/PackageInfo.h"
#include "platform/vo/Property.h"

namespace KR {

class BehaviorsCache;
class KRBroker;

/// Tells whether an activity may run in the robot's present context, and why it may not.
///
/// The context is the life state, sleep, the charging station (memory keys) and the language that
/// the robot speaks. Activities are named "dialog:" and a topic, "action:" and a module, or by the
/// key of a behaviour: package uuid, "/", behaviour path.
///
/// The reasons against an activity, in this order: "language", "nature", the permission names
/// vo::BehaviorInfo::k_permCanRunOnPod and k_permCanRunInSleep; or "error" alone.
///
/// Owned by the host. Thread-safe. Lock order: the cache lock, the context lock, the locale's
/// mutex. An action module is asked for its permissions with the context lock held shared, so it
/// must not wait for a change of the context meanwhile. Lines are logged with locks held, so a
/// listener of the log must not call this.
class ContextPermission {
public:
    /// The reasons against each activity of the cache, by activity name.
    using Violations = std::map<std::string, std::vector<std::string>>;

    /// Knows the language that the robot speaks, but nothing else of the context before
    /// connectSignals(). `behaviors` and `responder` outlive this; the responder may be null.
    /// std::invalid_argument for a null broker.
    ContextPermission(const boost::shared_ptr<KRBroker>& broker, BehaviorsCache* behaviors,
                      ContextPermissionResponder* responder);
    /// Disconnects the signals.
    ~ContextPermission();
    ContextPermission(const ContextPermission&) = delete;
    ContextPermission& operator=(const ContextPermission&) = delete;

    /// Reads the context and follows it from then on; the responder is told of later changes of
    /// the memory keys. What fails is logged and left out; a later call tries it again. The
    /// language is that of the speech service that is there, whenever it comes or is replaced.
    void connectSignals();
    /// When it returns, the responder is not being called and never will be again (except when
    /// called from the responder).
    void disconnectSignals();

    /// The reasons against an activity now; none when it may run. Never throws a std::exception:
    /// whatever fails is logged, and gives "error".
    std::vector<std::string> checkPermissionViolations(const std::string& activity) const;

    /// Whether a user may ask for a behaviour: it says so, or has the tag "launcher" in any
    /// language.
    static bool isUserRequestable(const vo::BehaviorInfo& behavior);

    /// Makes the behaviours of a package known to the behaviours cache, and keeps the reasons
    /// against those that a user may ask for.
    void onBehaviorsInstalled(const vo::PackageInfo& package,
                              const std::list<vo::BehaviorInfo>& behaviors);
    void onBehaviorsRemoved(const vo::PackageInfo& package,
                            const std::list<vo::BehaviorInfo>& behaviors);

    /// Brings the reasons of every kept activity up to date.
    void refreshBehaviorsPermissions();

    /// The kept reasons against an activity; std::runtime_error for one that is not kept.
    std::vector<std::string> getPermissionsCache(const std::string& activity) const;

    /// All kept reasons, as they were after the latest change of theirs. It is set with no lock
    /// held, before the operation that makes the change returns, unless another thread is just
    /// setting it and so sets it for this one too.
    vo::Property<Violations>& permissions() { return permissions_; }

private:
    BehaviorsCache& behaviors() const;
    void connectKey(const std::string& key) VO_REQUIRES(connectionsMutex_);
    /// Follows and reads the language of the speech service that is there, while connected.
    void followSpeech() VO_EXCLUDES(connectionsMutex_);
    void connectLocale() VO_REQUIRES(connectionsMutex_);
    void readLocale(const std::string& failure) VO_EXCLUDES(connectionsMutex_);
    void _memoryCallback(const std::string& key, const KRValue& value);
    void _localeChangedCallback(const std::string& locale);

    std::vector<std::string> violations(const std::string& activity) const;
    std::vector<std::string> actionViolations(const std::string& module) const
        VO_REQUIRES_SHARED(contextMutex_);
    std::vector<std::string> behaviorViolations(const std::string& activity) const
        VO_REQUIRES_SHARED(contextMutex_);
    void addMissingPermissions(const std::vector<std::string>& permissions,
                               std::vector<std::string>& violations) const
        VO_REQUIRES_SHARED(contextMutex_);
    bool _isActivityCompatibleWithLocale(std::string activity, const std::string& locale) const;
    bool isNatureRefused(const vo::BehaviorInfo& behavior) const VO_REQUIRES_SHARED(contextMutex_);
    const KRValue& contextValue(const std::string& key) const VO_REQUIRES_SHARED(contextMutex_);
    void publish();

    // Constant after construction.
    const boost::shared_ptr<KRBroker> broker_;
    BehaviorsCache* const behaviors_;
    ContextPermissionResponder* const responder_;

    // Synchronised by itself.
    vo::Property<Violations> permissions_;

    /// Held while signals are being connected; before all others.
    vo::Mutex connectionsMutex_;
    struct Connections {
        vo::Connection services;  ///< from connectSignals() to disconnectSignals()
        std::map<std::string, vo::Connection> keys;
        vo::AnyObject speech;  ///< the service whose language is followed
        vo::Connection locale;
    };
    Connections connections_ VO_GUARDED_BY(connectionsMutex_);

    /// The cache lock.
    mutable vo::SharedMutex cacheMutex_ VO_ACQUIRED_BEFORE(contextMutex_);
    Violations cache_ VO_GUARDED_BY(cacheMutex_);

    /// The context lock.
    mutable vo::SharedMutex contextMutex_ VO_ACQUIRED_BEFORE(localeMutex_);
    std::map<std::string, KRValue> values_ VO_GUARDED_BY(contextMutex_);

    mutable vo::Mutex localeMutex_;
    std::string locale_ VO_GUARDED_BY(localeMutex_);
    // Readings, from their begin, and changes are numbered, so that an older one that ends late
    // does not replace a newer one.
    unsigned lastLocale_ VO_GUARDED_BY(localeMutex_) = 0;     ///< number given last
    unsigned currentLocale_ VO_GUARDED_BY(localeMutex_) = 0;  ///< number of locale_

    /// Held for a moment only; comes with no other lock.
    vo::Mutex publishMutex_;
    bool changed_ VO_GUARDED_BY(publishMutex_) = false;     ///< since permissions_ was last set
    bool publishing_ VO_GUARDED_BY(publishMutex_) = false;  ///< somebody sets permissions_
};

}  // namespace KR
