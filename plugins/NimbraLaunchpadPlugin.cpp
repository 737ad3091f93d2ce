#include "plugins/NimbraLaunchpadPlugin.h"

#include <algorithm>
#include <boost/weak_ptr.hpp>
#include <utility>

#include "platform/vo/EventLoop.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {
const vo::Logger pluginLog("NimbraLaunchpadPlugin");
}

bool NimbraLaunchpadPlugin::_isPluginRunning()
{
    return running_;
}

std::list<std::string> NimbraLaunchpadPlugin::_getConditions(const std::string&)
{
    return {};
}

std::string NimbraLaunchpadPlugin::getPluginName()
{
    vo::Lock lock(mutex_);
    return name_;
}

void NimbraLaunchpadPlugin::setEnabled(const bool& enabled)
{
    vo::Lock lock(mutex_);
    enabled_ = enabled;
}

bool NimbraLaunchpadPlugin::isEnabled()
{
    vo::Lock lock(mutex_);
    return enabled_;
}

std::list<std::string> NimbraLaunchpadPlugin::getConditions(const std::string& purpose)
{
    vo::Lock lock(mutex_);
    return _getConditions(purpose);
}

std::list<std::string> NimbraLaunchpadPlugin::getGroups()
{
    vo::Lock lock(mutex_);
    return groups_;
}

bool NimbraLaunchpadPlugin::isInGroup(const std::string& group)
{
    vo::Lock lock(mutex_);
    return std::find(groups_.begin(), groups_.end(), group) != groups_.end();
}

void NimbraLaunchpadPlugin::startConditionHit(unsigned int, const KRValue&)
{
    enabled_ = true;
    post(&NimbraLaunchpadPlugin::startIfAllowed);
}

void NimbraLaunchpadPlugin::stopConditionHit(unsigned int, const KRValue&)
{
    enabled_ = false;
    post(&NimbraLaunchpadPlugin::stop);
}

void NimbraLaunchpadPlugin::letConditionsStartWhile(std::function<bool()> allowed)
{
    vo::Lock lock(mutex_);
    startAllowed_ = std::move(allowed);
}

void NimbraLaunchpadPlugin::onSwitched(std::function<void(bool running)> receiver)
{
    vo::Lock lock(mutex_);
    switched_ = std::move(receiver);
}

void NimbraLaunchpadPlugin::retire()
{
    vo::Lock lock(mutex_);
    retired_ = true;
}

void NimbraLaunchpadPlugin::post(void (NimbraLaunchpadPlugin::*operation)())
{
    vo::getEventLoop()->async([weak = weak_from_this(), operation] {
        const auto plugin = weak.lock();
        if (!plugin)
            return;
        try {
            plugin->runPosted(operation);
        } catch (const std::exception& e) {
            // Nobody waits for this, so the log is the only place that can tell.
            pluginLog.error("post", "Error starting/stopping plugin: " + plugin->getPluginName() +
                                        ": " + e.what());
        }
    });
}

void NimbraLaunchpadPlugin::runPosted(void (NimbraLaunchpadPlugin::*operation)())
{
    {
        vo::Lock lock(mutex_);
        if (!retired_)
            (this->*operation)();
    }
    tellSwitches();
}

/// Since the hit it may have been disabled, and whoever would stop it again may be done with that.
void NimbraLaunchpadPlugin::startIfAllowed()
{
    if (enabled_ && (!startAllowed_ || startAllowed_()))
        start();
}

void NimbraLaunchpadPlugin::startPlugin()
{
    {
        vo::Lock lock(mutex_);
        start();
    }
    tellSwitches();
}

void NimbraLaunchpadPlugin::stopPlugin()
{
    {
        vo::Lock lock(mutex_);
        stop();
    }
    tellSwitches();
}

void NimbraLaunchpadPlugin::start()
{
    if (_isPluginRunning())
        return;
    pluginLog.info("startPlugin", "Starting: " + name_);
    _startPlugin();
    pluginLog.info("startPlugin", "Started: " + name_);
    notifications_.add(true);
    running_ = true;
}

void NimbraLaunchpadPlugin::stop()
{
    if (!_isPluginRunning())
        return;
    pluginLog.info("stopPlugin", "Stopping: " + name_);
    _stopPlugin();
    pluginLog.info("stopPlugin", "Stopped: " + name_);
    notifications_.add(false);
    running_ = false;
}

void NimbraLaunchpadPlugin::tellSwitches()
{
    std::function<void(bool)> receiver;
    {
        vo::Lock lock(mutex_);
        receiver = switched_;
    }
    notifications_.deliver([&receiver](bool running) {
        if (receiver)
            receiver(running);
    });
}

bool NimbraLaunchpadPlugin::isPluginRunning()
{
    vo::Lock lock(mutex_);
    return _isPluginRunning();
}

void NimbraLaunchpadPlugin::addConditionID(int id)
{
    vo::Lock lock(mutex_);
    conditionIDs_.push_back(id);
}

void NimbraLaunchpadPlugin::clearConditionIDs()
{
    vo::Lock lock(mutex_);
    conditionIDs_.clear();
}

std::vector<int> NimbraLaunchpadPlugin::getConditionIDs() const
{
    vo::Lock lock(mutex_);
    return conditionIDs_;
}

}  // namespace KR
