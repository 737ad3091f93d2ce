#include "plugins/builtin/BuiltinPlugins.h"

#include "platform/kr/KRModule.h"
#include "plugins/builtin/ActivitiesPlugin.h"
#include "plugins/builtin/BatteryPlugin.h"
#include "plugins/builtin/HardwareInfoPlugin.h"
#include "plugins/builtin/HumanTrackedPlugin.h"
#include "plugins/builtin/PerceptionHeavyPlugin.h"
#include "plugins/builtin/PosturePlugin.h"
#include "plugins/builtin/TemperaturePlugin.h"
#include "plugins/builtin/TimingPlugin.h"

namespace KR {
namespace {

template <class Plugin>
boost::shared_ptr<NimbraLaunchpadPluginModule> make(const boost::shared_ptr<KRBroker>& broker)
{
    return KRModule::createModule<Plugin>(broker);
}

}  // namespace

const std::vector<BuiltinPlugin>& builtinPlugins()
{
    static const std::vector<BuiltinPlugin> kPlugins{
        {"Activities", false, make<ActivitiesPlugin>},
        {"Timing", false, make<TimingPlugin>},
        {"Temperature", false, make<TemperaturePlugin>},
        {"HardwareInfo", false, make<HardwareInfoPlugin>},
        {"Battery", false, make<BatteryPlugin>},
        {"Posture", false, make<PosturePlugin>},
        {"HumanTracked", true, make<HumanTrackedPlugin>},
        {"PerceptionHeavy", true, make<PerceptionHeavyPlugin>},
    };
    return kPlugins;
}

}  // namespace KR
