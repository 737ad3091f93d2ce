#include "plugins/NimbraLaunchpadPluginModule.h"

#include <boost/make_shared.hpp>

#include "platform/kr/KRBroker.h"
#include "platform/kr/KRError.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {
const vo::Logger pluginModuleLog("LaunchpadPluginModule");
}

const std::string NimbraLaunchpadPluginModule::fLaunchPadPrefix = "Launchpad";

NimbraLaunchpadPluginModule::NimbraLaunchpadPluginModule(boost::shared_ptr<KRBroker>& broker,
                                                         const std::string& name)
    : KRModule(broker, name)
{
    name_ = name;
    try {
        memoryProxy_ = boost::make_shared<KRMemoryProxy>(getParentBroker(), getName());
    } catch (const KRError& e) {
        pluginModuleLog.warning("NimbraLaunchpadPluginModule",
                                std::string("error at initialisation. Got: ") + e.what());
        throw;
    }
}

void NimbraLaunchpadPluginModule::exit()
{
    KRModule::exit();
}

// Plugins are written against these signatures, which take by value.
// NOLINTBEGIN(performance-unnecessary-value-param)
std::string NimbraLaunchpadPluginModule::xAddLaunchpadPrefix(std::string name) const
{
    return fLaunchPadPrefix + "/" + name;
}

void NimbraLaunchpadPluginModule::xDeclareLaunchpadEvent(std::string name)
{
    memoryProxy_->declareEvent(xAddLaunchpadPrefix(name), getName());
}

void NimbraLaunchpadPluginModule::xDescribe(KeyDescription datum)
{
    if (datum.empty)
        emptyValues_[datum.key] = *datum.empty;
    datum.key = xAddLaunchpadPrefix(datum.key);
    publishedKeys_.push_back(datum.key);
    getParentBroker()->keys().addPublished(datum, getName());
}

void NimbraLaunchpadPluginModule::xReads(const std::string& key)
{
    getParentBroker()->keys().addRead(key, getName());
}

void NimbraLaunchpadPluginModule::xRaiseLaunchpadEvent(std::string name, KRValue value) const
{
    memoryProxy_->raiseEvent(xAddLaunchpadPrefix(name), value);
}

void NimbraLaunchpadPluginModule::xRaiseEmpty(const std::string& name) const
{
    xRaiseLaunchpadEvent(name, emptyValues_.at(name));
}

void NimbraLaunchpadPluginModule::xSubscribeMicroEvent(std::string event, std::string callback)
{
    memoryProxy_->subscribeToMicroEvent(event, getName(), getName() + callback, callback);
}

void NimbraLaunchpadPluginModule::xUnsubscribeMicroEvent(std::string event)
{
    memoryProxy_->unsubscribeToMicroEvent(event, getName());
}

unsigned int NimbraLaunchpadPluginModule::xCheckDataSize(const KRValue& value,
                                                         unsigned int expected) const
{
    if (!value.isArray())
        throw KRError(getName(), "CheckDataSize",
                      "Couldn't get size, possibly because it's not an array.");
    const auto size = static_cast<unsigned int>(value.getSize());
    if (size < expected)
        throw KRError(getName(), "CheckDataSize",
                      "Incorrect Data Size. Expected: " + std::to_string(expected) +
                          " Got: " + std::to_string(size));
    return size;
}

std::uint64_t NimbraLaunchpadPluginModule::xGetDelayUSec(float seconds)
{
    return static_cast<std::uint64_t>(seconds * 1000000.0F);
}

void NimbraLaunchpadPluginModule::xTryCancelFuture(vo::Future<void> future)
{
    if (future.isValid())
        future.cancel();
}
// NOLINTEND(performance-unnecessary-value-param)

}  // namespace KR
