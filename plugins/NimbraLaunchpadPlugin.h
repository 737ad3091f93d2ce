#pragma once

#include <atomic>
#include <boost/enable_shared_from_this.hpp>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "platform/kr/KRValue.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/NotificationQueue.h"

namespace KR {

/// Base of every launchpad plugin: a producer of memory data that is switched on and off.
///
///     stopped --startPlugin()--> running --stopPlugin()--> stopped
///
/// Starting and stopping are idempotent and serialised by the plugin's mutex, which stays held
/// while the derived class's hooks run. So a hook reads this class's fields directly: calling a
/// public operation of its own plugin from `_startPlugin`, `_stopPlugin`, `_isPluginRunning` or
/// `_getConditions` would deadlock.
///
/// Whether a plugin is enabled says that it is wanted, not that it runs: the registry brings the
/// two in line.
///
/// Thread-safe. Not copyable. Owned by the registry through a shared pointer. Destruction does not
/// stop the plugin.
class NimbraLaunchpadPlugin : public boost::enable_shared_from_this<NimbraLaunchpadPlugin> {
public:
    NimbraLaunchpadPlugin() = default;
    NimbraLaunchpadPlugin(const NimbraLaunchpadPlugin&) = delete;
    NimbraLaunchpadPlugin& operator=(const NimbraLaunchpadPlugin&) = delete;

    // The order of the virtual operations is part of the interface: first the destructor, then
    // exit and the hooks.
    virtual ~NimbraLaunchpadPlugin() = default;
    /// Releases what the plugin acquired. Called before the plugin is dropped.
    virtual void exit() = 0;

private:
    /// Does the real work of starting; throws when it cannot.
    virtual void _startPlugin() VO_REQUIRES(mutex_) = 0;
    /// Does the real work of stopping; throws when it cannot.
    virtual void _stopPlugin() VO_REQUIRES(mutex_) = 0;
    /// The running flag, unless the derived class knows better.
    virtual bool _isPluginRunning() VO_REQUIRES(mutex_);
    /// The condition texts of one purpose; none, unless the derived class has some.
    virtual std::list<std::string> _getConditions(const std::string& purpose) VO_REQUIRES(mutex_);

public:
    std::string getPluginName();
    void setEnabled(const bool& enabled);
    bool isEnabled();
    /// The condition texts that switch this plugin: purposes are "launchTrigger" and
    /// "terminationTrigger".
    std::list<std::string> getConditions(const std::string& purpose);
    std::list<std::string> getGroups();
    /// Byte for byte.
    bool isInGroup(const std::string& group);

    /// A start condition was hit: marks the plugin as enabled and posts its start to the event
    /// loop. Never blocks; id and value do not matter. A start that fails there is logged, and the
    /// plugin stays enabled; one whose turn comes when the plugin is no longer enabled, must not be
    /// started by conditions, was retired or is gone, does nothing.
    void startConditionHit(unsigned int id, const KRValue& value);
    /// A stop condition was hit: the reverse.
    void stopConditionHit(unsigned int id, const KRValue& value);
    /// Says when conditions may start the plugin: while this is true, which is asked in the turn of
    /// each posted start, with the mutex held. At any time, unless this is called.
    void letConditionsStartWhile(std::function<bool()> allowed);
    /// Ends what conditions do to the plugin, also what they have posted. For good; called before
    /// a plugin is stopped and dropped.
    void retire();

    /// Has every start (true) and stop of the plugin told, in their order, with no lock of the
    /// plugin held: on the thread that has done it, unless another one is just telling. To be set
    /// before the plugin is started.
    void onSwitched(std::function<void(bool running)> receiver);

    /// Starts a plugin that does not run. What `_startPlugin` throws leaves this, and the plugin
    /// counts as it did before.
    void startPlugin();
    /// Stops a plugin that runs; errors likewise.
    void stopPlugin();
    bool isPluginRunning();

    /// Ids of this plugin's conditions with the condition checker, in insertion order, duplicates
    /// kept.
    void addConditionID(int id);
    void clearConditionIDs();
    std::vector<int> getConditionIDs() const;

private:
    /// Runs one of those below on the event loop, unless the plugin is retired by then.
    void post(void (NimbraLaunchpadPlugin::*operation)());
    void runPosted(void (NimbraLaunchpadPlugin::*operation)());
    void startIfAllowed() VO_REQUIRES(mutex_);
    void start() VO_REQUIRES(mutex_);
    void stop() VO_REQUIRES(mutex_);
    /// Tells of what start() and stop() have done.
    void tellSwitches() VO_EXCLUDES(mutex_);

protected:
    // A derived class fills these while it is constructed, and only reads them afterwards.
    std::list<std::string> groups_ VO_GUARDED_BY(mutex_);
    std::string name_ VO_GUARDED_BY(mutex_);

private:
    /// Condition hits write it without the mutex, so that they never wait for a slow start.
    std::atomic<bool> enabled_{false};

protected:
    /// Serialises every public operation. Held while the hooks run, and so taken before any lock
    /// of what the hooks call.
    mutable vo::Mutex mutex_;

private:
    bool running_ VO_GUARDED_BY(mutex_) = false;
    bool retired_ VO_GUARDED_BY(mutex_) = false;
    std::function<bool()> startAllowed_ VO_GUARDED_BY(mutex_);  ///< none for always
    std::function<void(bool)> switched_ VO_GUARDED_BY(mutex_);  ///< may be none
    std::vector<int> conditionIDs_ VO_GUARDED_BY(mutex_);

    // Synchronised by itself: the starts (true) and stops that nobody was told of yet.
    vo::NotificationQueue<bool> notifications_;
};

}  // namespace KR
