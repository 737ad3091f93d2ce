#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

#include "platform/vo/Mutex.h"
#include "platform/vo/PackageInfo.h"

namespace KR {

/// What is known of the installed behaviours, by behaviour key: package uuid, "/", behaviour path.
///
/// It knows what it was told by onBehaviorInstalled() and onBehaviorRemoved(). Thread-safe; values
/// are handed out as copies.
class BehaviorsCache {
public:
    /// Whether the name of an activity begins with one of `prefixes`.
    static bool hasActivityPrefixes(const std::vector<std::string>& prefixes,
                                    const std::string& activity);
    /// The name without its prefix; the name as it is when it does not begin with `prefix`.
    static std::string stripActivityPrefix(const std::string& prefix, const std::string& activity);

    /// std::runtime_error for an activity that is no installed behaviour.
    vo::BehaviorInfo getBehaviorInfo(const std::string& activity) const;
    /// Languages of the package that the behaviour belongs to; empty for one that works in every
    /// language. Errors as above.
    std::list<std::string> packageSupportedLanguages(const std::string& activity) const;

    /// Adds a behaviour, or replaces what was known of it.
    void onBehaviorInstalled(const std::string& key, const vo::PackageInfo& package,
                             const vo::BehaviorInfo& behavior);
    /// Does nothing for a key that is not known.
    void onBehaviorRemoved(const std::string& key);

private:
    struct Entry {
        vo::BehaviorInfo behavior;
        std::list<std::string> languages;
    };

    const Entry& entry(const std::string& activity) const VO_REQUIRES_SHARED(mutex_);

    mutable vo::SharedMutex mutex_;
    std::map<std::string, Entry> entries_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
