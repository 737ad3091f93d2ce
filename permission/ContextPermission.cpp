#include "permission/ContextPermission.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include "platform/config/ApiWrapper.h"
#include "platform/kr/KRBroker.h"
#include "platform/kr/KeyCatalogue.h"
#include "platform/kr/SharedKeys.h"
#include "platform/packages/BehaviorsCache.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger logger("Nimbra.ContextPermission");

constexpr const char* kWatchedKeys[] = {keys::kState, keys::kAsleep, keys::kOnPod};

constexpr const char* kDialogPrefix = "dialog:";
constexpr const char* kActionPrefix = "action:";
constexpr const char* kLauncherTag = "launcher";

constexpr const char* kSolitary = "solitary";

constexpr const char* kMemory = "KRMemory";
constexpr const char* kSpeech = "KRTextToSpeech";
constexpr const char* kLanguageProperty = "languageTTS";

const boost::shared_ptr<KRBroker>& notNull(const boost::shared_ptr<KRBroker>& broker)
{
    if (!broker)
        throw std::invalid_argument("the context permission needs a broker");
    return broker;
}

/// A flag in memory: a bool, or an int that is not 0. Whatever else is there counts as false.
bool isSet(const KRValue& value)
{
    return (value.isBool() && value.toBool()) || (value.isInt() && value.toInt() != 0);
}

}  // namespace

ContextPermission::ContextPermission(const boost::shared_ptr<KRBroker>& broker,
                                     BehaviorsCache* behaviors,
                                     ContextPermissionResponder* responder)
    : broker_(notNull(broker)), behaviors_(behaviors), responder_(responder)
{
    readLocale("Exception caught when getting current locale at init: ");
}

ContextPermission::~ContextPermission()
{
    disconnectSignals();
}

BehaviorsCache& ContextPermission::behaviors() const
{
    if (!behaviors_)
        throw std::runtime_error("This object is null");
    return *behaviors_;
}

void ContextPermission::connectSignals()
{
    {
        const vo::Lock lock(connectionsMutex_);
        for (const std::string key : kWatchedKeys) {
            broker_->keys().addRead(key, "ContextPermission");
            try {
                connectKey(key);
            } catch (const std::exception&) {
                logger.error("connectSignals", "Cannot subscribe to: " + key);
            }
        }
        // Before the present speech service is looked up, so that none is missed in between.
        if (!connections_.services.isConnected())
            connections_.services =
                broker_->session().registered().connect([this](const vo::AnyObject& service) {
                    if (service.name() == kSpeech)
                        followSpeech();
                });
    }
    followSpeech();
}

void ContextPermission::followSpeech()
{
    try {
        const vo::Lock lock(connectionsMutex_);
        if (!connections_.services.isConnected())
            return;
        connectLocale();
    } catch (const std::exception& e) {
        logger.error("connectSignals",
                     std::string("Cannot connect to KRTextToSpeech.languageTTS: ") + e.what());
        return;
    }
    readLocale("Exception caught when getting current locale: ");
}

void ContextPermission::connectKey(const std::string& key)
{
    const vo::AnyObject memory = broker_->session().service(kMemory);
    if (!connections_.keys.count(key)) {
        connections_.keys[key] = memory.call<vo::AnyObject>("subscriber", key)
                                     .connect("signal", [this, key](const KRValue& value) {
                                         _memoryCallback(key, value);
                                     });
    }
    // With the lock held, as a change that comes after this reading is to be stored after it.
    const vo::Lock lock(contextMutex_);
    values_[key] = memory.call<KRValue>("getData", key);
}

void ContextPermission::connectLocale()
{
    const vo::AnyObject speech = broker_->session().service(kSpeech);
    if (connections_.speech.object() == speech.object())
        return;
    // Whatever the service before still tells is older than what this one will answer.
    connections_.speech = {};
    connections_.locale.disconnect();
    connections_.locale = speech.follow<std::string>(
        kLanguageProperty, [this](const std::string& locale) { _localeChangedCallback(locale); });
    connections_.speech = speech;
}

void ContextPermission::disconnectSignals()
{
    // Not under the lock: disconnecting waits for callbacks in progress.
    Connections ended;
    {
        const vo::Lock lock(connectionsMutex_);
        std::swap(ended, connections_);
    }
    const auto disconnect = [](const std::string& key, vo::Connection& connection) {
        if (!connection.disconnect())
            logger.error("disconnectSignals", "Cannot unsubscribe to key: " + key);
    };
    ended.services.disconnect();
    for (auto& [key, connection] : ended.keys)
        disconnect(key, connection);
    // A speech service that has gone took the connection with it.
    if (ended.speech && !ended.speech.object()->isClosed())
        disconnect(kLanguageProperty, ended.locale);
}

void ContextPermission::readLocale(const std::string& failure)
{
    unsigned number = 0;
    {
        const vo::Lock lock(localeMutex_);
        number = ++lastLocale_;
    }
    try {
        const auto locale = broker_->session().service(kSpeech).call<std::string>("locale");
        const vo::Lock lock(localeMutex_);
        if (number < currentLocale_)
            return;
        currentLocale_ = number;
        locale_ = locale;
    } catch (const std::exception& e) {
        logger.error("readLocale", failure + e.what());
    }
}

void ContextPermission::_localeChangedCallback(const std::string& locale)
{
    const vo::Lock lock(localeMutex_);
    currentLocale_ = ++lastLocale_;
    if (locale_ != locale)
        locale_ = locale;
}

void ContextPermission::_memoryCallback(const std::string& key, const KRValue& value)
{
    {
        const vo::Lock lock(contextMutex_);
        KRValue& stored = values_[key];
        if (stored == value)
            return;
        stored = value;
    }
    if (responder_)
        responder_->onContextChanged();
}

std::vector<std::string> ContextPermission::checkPermissionViolations(
    const std::string& activity) const
{
    try {
        return violations(activity);
    } catch (const std::exception& e) {
        logger.error("checkPermissionViolations", "Will assume permissions are not ok for: " +
                                                      activity + " because of error: " + e.what());
        return {"error"};
    }
}

std::vector<std::string> ContextPermission::violations(const std::string& activity) const
{
    const vo::SharedLock lock(contextMutex_);
    if (BehaviorsCache::hasActivityPrefixes({kDialogPrefix}, activity))
        return {};
    if (BehaviorsCache::hasActivityPrefixes({kActionPrefix}, activity))
        return actionViolations(BehaviorsCache::stripActivityPrefix(kActionPrefix, activity));
    return behaviorViolations(activity);
}

std::vector<std::string> ContextPermission::actionViolations(const std::string& module) const
{
    std::vector<std::string> result;
    addMissingPermissions(
        ApiWrapper::importModule(module).call<std::vector<std::string>>("getPermissions"), result);
    return result;
}

std::vector<std::string> ContextPermission::behaviorViolations(const std::string& activity) const
{
    std::vector<std::string> result;
    const vo::BehaviorInfo behavior = behaviors().getBehaviorInfo(activity);
    std::string locale;
    {
        const vo::Lock lock(localeMutex_);
        locale = locale_;
    }
    if (!_isActivityCompatibleWithLocale(activity, locale))
        result.emplace_back("language");
    if (isNatureRefused(behavior))
        result.emplace_back("nature");

    std::vector<std::string> permissions;
    for (const char* name :
         {vo::BehaviorInfo::k_permCanRunOnPod, vo::BehaviorInfo::k_permCanRunInSleep}) {
        if (behavior.hasPermission(name))
            permissions.emplace_back(name);
    }
    addMissingPermissions(permissions, result);
    return result;
}

/// A launch condition is guarded by the same rules (see the launchpad's package tracking).
bool ContextPermission::isNatureRefused(const vo::BehaviorInfo& behavior) const
{
    const KRValue& value = contextValue(keys::kState);
    if (!value.isString())
        return false;
    const std::string& state = value.toString();
    return state == "disabled" || state == "safeguard" ||
           (state != kSolitary && behavior.nature() == kSolitary);
}

void ContextPermission::addMissingPermissions(const std::vector<std::string>& permissions,
                                              std::vector<std::string>& violations) const
{
    static constexpr std::pair<const char*, const char*> kRules[] = {
        {keys::kOnPod, vo::BehaviorInfo::k_permCanRunOnPod},
        {keys::kAsleep, vo::BehaviorInfo::k_permCanRunInSleep}};
    for (const auto& [key, name] : kRules) {
        if (isSet(contextValue(key)) &&
            std::find(permissions.begin(), permissions.end(), name) == permissions.end())
            violations.emplace_back(name);
    }
}

/// A key that was never received has the empty value.
const KRValue& ContextPermission::contextValue(const std::string& key) const
{
    static const KRValue kEmpty;
    const auto found = values_.find(key);
    return found == values_.end() ? kEmpty : found->second;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the signature that its users have
bool ContextPermission::_isActivityCompatibleWithLocale(std::string activity,
                                                        const std::string& locale) const
{
    const auto languages = behaviors().packageSupportedLanguages(activity);
    return languages.empty() ||
           std::find(languages.begin(), languages.end(), locale) != languages.end();
}

bool ContextPermission::isUserRequestable(const vo::BehaviorInfo& behavior)
{
    if (behavior.isUserRequestable())
        return true;
    const auto& tags = behavior.languagesToTags();
    return std::any_of(tags.begin(), tags.end(), [](const auto& language) {
        return std::count(language.second.begin(), language.second.end(), kLauncherTag) != 0;
    });
}

void ContextPermission::onBehaviorsInstalled(const vo::PackageInfo& package,
                                             const std::list<vo::BehaviorInfo>& behaviors)
{
    bool changed = false;
    {
        const vo::Lock lock(cacheMutex_);
        for (const vo::BehaviorInfo& behavior : behaviors) {
            const std::string key = vo::behaviorKey(package, behavior);
            this->behaviors().onBehaviorInstalled(key, package, behavior);
            if (!isUserRequestable(behavior))
                continue;
            cache_[key] = checkPermissionViolations(key);
            changed = true;
        }
    }
    if (changed)
        publish();
}

void ContextPermission::onBehaviorsRemoved(const vo::PackageInfo& package,
                                           const std::list<vo::BehaviorInfo>& behaviors)
{
    bool changed = false;
    {
        const vo::Lock lock(cacheMutex_);
        for (const vo::BehaviorInfo& behavior : behaviors) {
            const std::string key = vo::behaviorKey(package, behavior);
            this->behaviors().onBehaviorRemoved(key);
            changed = cache_.erase(key) > 0 || changed;
        }
    }
    if (changed)
        publish();
}

void ContextPermission::refreshBehaviorsPermissions()
{
    bool changed = false;
    {
        const vo::Lock lock(cacheMutex_);
        for (auto& [activity, stored] : cache_) {
            auto current = checkPermissionViolations(activity);
            if (current == stored)
                continue;
            stored = std::move(current);
            changed = true;
        }
    }
    if (changed)
        publish();
}

std::vector<std::string> ContextPermission::getPermissionsCache(const std::string& activity) const
{
    const vo::SharedLock lock(cacheMutex_);
    const auto found = cache_.find(activity);
    if (found == cache_.end())
        throw std::runtime_error("The focused application is not user requestable");
    return found->second;
}

/// Sets the property to the whole cache. Its followers run inside of the set and may call back, so
/// no lock is held; one setter at a time keeps an older cache from replacing a newer one.
void ContextPermission::publish()
{
    {
        const vo::Lock lock(publishMutex_);
        changed_ = true;
        if (std::exchange(publishing_, true))
            return;
    }
    while (true) {
        {
            const vo::Lock lock(publishMutex_);
            publishing_ = std::exchange(changed_, false);
            if (!publishing_)
                return;
        }
        Violations current;
        {
            const vo::SharedLock lock(cacheMutex_);
            current = cache_;
        }
        permissions_.set(std::move(current));
    }
}

}  // namespace KR
