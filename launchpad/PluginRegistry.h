#pragma once

#include <boost/shared_ptr.hpp>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "platform/conditions/ConditionChecker.h"
#include "platform/vo/Mutex.h"

namespace KR {

class LaunchpadNews;
class NimbraLaunchpadPlugin;

/// What is known of a plugin at one moment.
struct PluginState {
    std::string name;
    std::list<std::string> groups;
    bool enabled = false;
    bool running = false;
    bool builtIn = false;
    std::vector<std::string> publishedKeys;  ///< of a built-in plugin; a behaviour's are unknown
};

/// The loaded plugins by name, with the conditions that start and stop them.
///
/// An operation on several plugins takes them in ascending order of name, tries each, logs each
/// failure, and raises them all as one KRError at its end.
///
/// Thread-safe. Its lock, the plugin lock, is held while plugins start and stop, and so comes
/// before their own locks and those of the checker; shared for what leaves the table as it is, so
/// that such operations run side by side.
class PluginRegistry {
public:
    /// `checker` and `news` outlive the use of this.
    PluginRegistry(ConditionChecker& checker, LaunchpadNews& news) : checker_(checker), news_(news)
    {
    }
    PluginRegistry(const PluginRegistry&) = delete;
    PluginRegistry& operator=(const PluginRegistry&) = delete;

    /// Adds a plugin, and has its conditions start and stop it. One of that name is unloaded first.
    /// Throws for a condition that cannot be registered; the plugin is there nevertheless.
    void add(const std::string& name, const boost::shared_ptr<NimbraLaunchpadPlugin>& plugin)
        VO_EXCLUDES(mutex_);
    bool isLoaded(const std::string& name) const VO_EXCLUDES(mutex_);
    /// Stops and drops a plugin; failures are logged. An unknown name is none.
    void unload(const std::string& name) VO_EXCLUDES(mutex_);
    void unloadAll() VO_EXCLUDES(mutex_);

    /// Says whether a plugin is wanted, and neither starts nor stops it. KRError for an unknown
    /// name.
    void setEnabled(const std::string& name, bool enabled) VO_EXCLUDES(mutex_);
    void startEnabledStopDisabled() VO_EXCLUDES(mutex_);
    void stopAll() VO_EXCLUDES(mutex_);

    /// All in ascending order of name.
    std::vector<std::string> enabled() const VO_EXCLUDES(mutex_);
    std::vector<std::string> ofGroup(const std::string& group) const VO_EXCLUDES(mutex_);
    std::vector<PluginState> states() const VO_EXCLUDES(mutex_);

private:
    friend class NimbraLaunchpadTestAccess;  // defined by the tests alone

    using Plugins = std::map<std::string, boost::shared_ptr<NimbraLaunchpadPlugin>>;
    using Hit = void (NimbraLaunchpadPlugin::*)(unsigned, const KRValue&);

    void addTriggers(const std::string& name, const std::string& purpose, Hit hit)
        VO_REQUIRES(mutex_);
    /// Advances the position past the plugin.
    void unload(Plugins::iterator& position) VO_REQUIRES(mutex_);
    template <class Wanted>
    std::vector<std::string> namesOf(const Wanted& wanted) const VO_EXCLUDES(mutex_);

    // Constant after construction; synchronised by themselves.
    ConditionChecker& checker_;
    LaunchpadNews& news_;

    /// The plugin lock.
    mutable vo::SharedMutex mutex_;
    Plugins plugins_ VO_GUARDED_BY(mutex_);
    /// By plugin: the conditions that start and stop it.
    std::map<std::string, std::vector<unsigned>> triggers_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
