#include "platform/packages/BehaviorsCache.h"

#include <algorithm>
#include <stdexcept>

namespace KR {

namespace {

bool beginsWith(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

bool BehaviorsCache::hasActivityPrefixes(const std::vector<std::string>& prefixes,
                                         const std::string& activity)
{
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&](const std::string& prefix) { return beginsWith(activity, prefix); });
}

std::string BehaviorsCache::stripActivityPrefix(const std::string& prefix,
                                                const std::string& activity)
{
    return beginsWith(activity, prefix) ? activity.substr(prefix.size()) : activity;
}

vo::BehaviorInfo BehaviorsCache::getBehaviorInfo(const std::string& activity) const
{
    const vo::SharedLock lock(mutex_);
    return entry(activity).behavior;
}

std::list<std::string> BehaviorsCache::packageSupportedLanguages(const std::string& activity) const
{
    const vo::SharedLock lock(mutex_);
    return entry(activity).languages;
}

void BehaviorsCache::onBehaviorInstalled(const std::string& key, const vo::PackageInfo& package,
                                         const vo::BehaviorInfo& behavior)
{
    const vo::Lock lock(mutex_);
    entries_[key] = {behavior, package.supportedLanguages()};
}

void BehaviorsCache::onBehaviorRemoved(const std::string& key)
{
    const vo::Lock lock(mutex_);
    entries_.erase(key);
}

const BehaviorsCache::Entry& BehaviorsCache::entry(const std::string& activity) const
{
    const auto found = entries_.find(activity);
    if (found == entries_.end())
        throw std::runtime_error("no behaviour '" + activity + "' is installed");
    return found->second;
}

}  // namespace KR
