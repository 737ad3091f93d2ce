#include "robot/KRLeds.h"

#include "platform/kr/KRError.h"

namespace KR {

namespace {

/// A fade that nobody would see the end of is a mistake.
constexpr double kMaxFadeSeconds = 3600;

const std::map<std::string, double> kSets{{"day", 0.8}, {"night", 0.1}, {"alert", 1.0}};

}  // namespace

KRLeds::KRLeds(const boost::shared_ptr<KRBroker>& broker)
    : KRModule(broker, kName),
      clock_(broker->clock()),
      groups_{{"chest", {}}, {"ears", {}}, {"eyes", {}}, {"feet", {}}}
{
    setModuleDescription("The lights");
    bindMethod("fade", &KRLeds::fade, this, "Brings a group of lights to an intensity",
               {{"group", "chest, ears, eyes or feet"},
                {"intensity", "0 (off) to 1 (full)"},
                {"seconds", "the time that it takes"}});
    bindMethod("getIntensity", &KRLeds::getIntensity, this, "The intensity of a group",
               {{"group", "chest, ears, eyes or feet"}});
    bindMethod("setConfigurationSet", &KRLeds::setConfigurationSet, this,
               "Sets all lights: day, night or alert", {{"name", "the set"}});
    bindMethod("getConfigurationSet", &KRLeds::getConfigurationSet, this, "The set in use");
}

void KRLeds::fade(const std::string& group, double intensity, double seconds)
{
    if (!(intensity >= 0 && intensity <= 1))
        throw KRError(kName, "fade", "the intensity must be between 0 and 1");
    if (!(seconds >= 0 && seconds <= kMaxFadeSeconds))
        throw KRError(kName, "fade", "the time must be between 0 and 3600 seconds");
    const vo::Lock lock(mutex_);
    const auto light = groups_.find(group);
    if (light == groups_.end())
        throw KRError(kName, "fade", "there is no group '" + group + "'");
    const auto length = static_cast<std::int64_t>(seconds * 1e6);
    light->second = {intensityNow(light->second), intensity, clock_->uptime(),
                     vo::Duration(length)};
}

double KRLeds::intensityNow(const Light& light) const
{
    const vo::Duration passed = clock_->uptime() - light.begin;
    if (passed >= light.length)
        return light.to;
    const double part =
        static_cast<double>(passed.count()) / static_cast<double>(light.length.count());
    return light.from + (light.to - light.from) * part;
}

double KRLeds::getIntensity(const std::string& group) const
{
    const vo::Lock lock(mutex_);
    const auto light = groups_.find(group);
    if (light == groups_.end())
        throw KRError(kName, "getIntensity", "there is no group '" + group + "'");
    return intensityNow(light->second);
}

void KRLeds::setConfigurationSet(const std::string& name)
{
    const auto set = kSets.find(name);
    if (set == kSets.end())
        throw KRError(kName, "setConfigurationSet", "there is no set '" + name + "'");
    const vo::Lock lock(mutex_);
    set_ = name;
    for (auto& group : groups_)
        group.second = {set->second, set->second, {}, {}};
}

std::string KRLeds::getConfigurationSet() const
{
    const vo::Lock lock(mutex_);
    return set_;
}

}  // namespace KR
