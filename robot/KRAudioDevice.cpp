#include "robot/KRAudioDevice.h"

#include <map>

#include "platform/kr/KRError.h"

namespace KR {

namespace {

const std::map<std::string, int> kSets{{"day", 60}, {"night", 30}};

}  // namespace

KRAudioDevice::KRAudioDevice(const boost::shared_ptr<KRBroker>& broker) : KRModule(broker, kName)
{
    setModuleDescription("The loudspeaker");
    bindMethod("setOutputVolume", &KRAudioDevice::setOutputVolume, this, "Sets the volume",
               {{"percent", "0 to 100"}});
    bindMethod("getOutputVolume", &KRAudioDevice::getOutputVolume, this, "The volume in percent");
    bindMethod("setConfigurationSet", &KRAudioDevice::setConfigurationSet, this,
               "Sets the volume for the day or the night", {{"name", "day or night"}});
    bindMethod("getConfigurationSet", &KRAudioDevice::getConfigurationSet, this, "The set in use");
}

void KRAudioDevice::setOutputVolume(int percent)
{
    if (percent < 0 || percent > 100)
        throw KRError(kName, "setOutputVolume", "the volume must be between 0 and 100");
    const vo::Lock lock(mutex_);
    volume_ = percent;
}

int KRAudioDevice::getOutputVolume() const
{
    const vo::Lock lock(mutex_);
    return volume_;
}

void KRAudioDevice::setConfigurationSet(const std::string& name)
{
    const auto set = kSets.find(name);
    if (set == kSets.end())
        throw KRError(kName, "setConfigurationSet", "there is no set '" + name + "'");
    const vo::Lock lock(mutex_);
    set_ = name;
    volume_ = set->second;
}

std::string KRAudioDevice::getConfigurationSet() const
{
    const vo::Lock lock(mutex_);
    return set_;
}

}  // namespace KR
