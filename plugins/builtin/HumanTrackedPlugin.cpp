#include "plugins/builtin/HumanTrackedPlugin.h"

#include <type_traits>

#include "platform/kr/KRBroker.h"
#include "platform/kr/KRError.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger humanTrackedPluginLog("LaunchpadPluginHumanTracked");

const std::string kPopulationKey = "PeoplePerception/PopulationUpdated";
const std::string kTrackedKey = "KRBasicAwareness/HumanTracked";

// What is known of a person.
constexpr const char* kDistance = "/Distance";
constexpr const char* kZone = "/EngagementZone";
constexpr const char* kIsLooking = "/IsLookingAtRobot";

std::string personKey(const std::string& person, const std::string& datum)
{
    return "PeoplePerception/Person/" + person + datum;
}

}  // namespace

const std::string HumanTrackedPlugin::fEventRaisedSameTrackedHuman = "SameTrackedHuman";
const std::string HumanTrackedPlugin::fEventRaisedDistanceOfTrackedHuman = "DistanceOfTrackedHuman";
const std::string HumanTrackedPlugin::fEventRaisedZoneOfTrackedHuman = "ZoneOfTrackedHuman";
const std::string HumanTrackedPlugin::fEventRaisedTrackedHumanIsLookingAtRobot =
    "TrackedHumanIsLookingAtRobot";

HumanTrackedPlugin::HumanTrackedPlugin(boost::shared_ptr<KRBroker> broker)
    : NimbraLaunchpadPluginModule(broker, "_LaunchpadPluginHumanTracked")
{
    groups_.clear();
    groups_.push_back("solitary");
    groups_.push_back("interactive");
    engagementZonesProxy_ = getParentBroker()->getProxy("KREngagementZones");
    gazeAnalysisProxy_ = getParentBroker()->getProxy("KRGazeAnalysis");
    for (const auto& name :
         {fEventRaisedSameTrackedHuman, fEventRaisedDistanceOfTrackedHuman,
          fEventRaisedZoneOfTrackedHuman, fEventRaisedTrackedHumanIsLookingAtRobot})
        xDeclareLaunchpadEvent(name);
    describeKeys();
    const std::vector<ParameterInfo> parameters = {{"key", "Name of the event"},
                                                   {"value", "Value of the event"},
                                                   {"message", "Event message"}};
    bindMethod("_onPopulationUpdated", &HumanTrackedPlugin::_onPopulationUpdated, this,
               "The people around the robot were updated", parameters);
    bindMethod("_onHumanTracked", &HumanTrackedPlugin::_onHumanTracked, this,
               "The tracked person changed", parameters);
}

void HumanTrackedPlugin::describeKeys()
{
    xDescribe(KeyDescription::integer(fEventRaisedSameTrackedHuman,
                                      "1 while a person is tracked, 0 just before a new one")
                  .between(0, 1)
                  .emptyAs(KRValue()));
    xDescribe(KeyDescription::number(fEventRaisedDistanceOfTrackedHuman, "m; -1 for nobody")
                  .atLeast(-1)
                  .emptyAs(KRValue()));
    xDescribe(KeyDescription::integer(fEventRaisedZoneOfTrackedHuman, "engagement zone; 0 for none")
                  .between(0, 3)
                  .emptyAs(KRValue()));
    xDescribe(KeyDescription::integer(fEventRaisedTrackedHumanIsLookingAtRobot, "1 when so")
                  .between(0, 1)
                  .emptyAs(KRValue()));
    for (const auto& key : {kPopulationKey, kTrackedKey})
        xReads(key);
    for (const auto* datum : {kDistance, kZone, kIsLooking})
        xReads(personKey("*", datum));
}

void HumanTrackedPlugin::exit()
{
    NimbraLaunchpadPluginModule::exit();
}

void HumanTrackedPlugin::_startPlugin()
{
    {
        const vo::Lock lock(checkMutex_);
        if (started_)
            return;
    }
    engagementZonesProxy_->call("subscribe", getName());
    xSetStateOnStart();
    // An event that comes at once waits until the plugin is started.
    const vo::Lock lock(checkMutex_);
    xSubscribeMicroEvent(kPopulationKey, "_onPopulationUpdated");
    xSubscribeMicroEvent(kTrackedKey, "_onHumanTracked");
    started_ = true;
}

void HumanTrackedPlugin::_stopPlugin()
{
    // The check in progress ends before this, and no other one writes over the empty values.
    const vo::Lock lock(checkMutex_);
    if (!started_)
        return;
    try {
        engagementZonesProxy_->call("unsubscribe", getName());
    } catch (const KRError& e) {
        // A service that died is no reason to leave stale data behind.
        humanTrackedPluginLog.warning("_stopPlugin",
                                      std::string("Cannot unsubscribe: ") + e.what());
    }
    xUnsubscribeMicroEvent(kPopulationKey);
    xUnsubscribeMicroEvent(kTrackedKey);
    xRaiseEmptyEvents();
    started_ = false;
}

void HumanTrackedPlugin::_onPopulationUpdated(const std::string&, const KRValue&,
                                              const std::string&)
{
    xCheckIfStarted();
}

void HumanTrackedPlugin::_onHumanTracked(const std::string&, const KRValue&, const std::string&)
{
    xCheckIfStarted();
}

void HumanTrackedPlugin::xCheckIfStarted()
{
    const vo::Lock lock(checkMutex_);
    if (started_)
        xCheck(false);
}

void HumanTrackedPlugin::xCheckForTrackedHuman(bool force)
{
    const vo::Lock lock(checkMutex_);
    xCheck(force);
}

void HumanTrackedPlugin::xSetStateOnStart()
{
    xCheckForTrackedHuman(true);
}

void HumanTrackedPlugin::xCheck(bool force)
{
    if (force)
        lastId_ = noPersonId_;
    currentId_ = xGetTrackedId();
    xRaiseSameTrackedHuman();
    xRaiseLaunchpadEvent(fEventRaisedDistanceOfTrackedHuman, xGetPersonData(kDistance, -1.0));
    xRaiseLaunchpadEvent(fEventRaisedZoneOfTrackedHuman, xIsProcessing(*engagementZonesProxy_)
                                                             ? xGetPersonData(kZone, 0)
                                                             : KRValue());
    xRaiseLaunchpadEvent(
        fEventRaisedTrackedHumanIsLookingAtRobot,
        xIsProcessing(*gazeAnalysisProxy_) ? xGetPersonData(kIsLooking, 0) : KRValue());
}

std::int32_t HumanTrackedPlugin::xGetTrackedId()
{
    try {
        return memoryProxy_->getData(kTrackedKey).toInt32();
    } catch (const KRError& e) {
        humanTrackedPluginLog.warning("xCheckForTrackedHuman",
                                      std::string("Cannot get data: ") + e.what());
        return noPersonId_;
    }
}

void HumanTrackedPlugin::xRaiseSameTrackedHuman()
{
    if (currentId_ == noPersonId_) {
        xRaiseLaunchpadEvent(fEventRaisedSameTrackedHuman, 0);
    } else if (currentId_ != lastId_) {
        // A condition on the rising edge sees every new person, even right after another one.
        xRaiseLaunchpadEvent(fEventRaisedSameTrackedHuman, 0);
        xRaiseLaunchpadEvent(fEventRaisedSameTrackedHuman, 1);
        lastId_ = currentId_;
    }
}

template <class T>
KRValue HumanTrackedPlugin::xGetPersonData(const std::string& datum, T none)
{
    if (currentId_ == noPersonId_)
        return none;
    try {
        const KRValue value = memoryProxy_->getData(personKey(std::to_string(currentId_), datum));
        if constexpr (std::is_floating_point_v<T>)
            return value.toFloat();
        else
            return value.toInt();
    } catch (const KRError&) {
        return {};  // people vanish between two reads
    }
}

bool HumanTrackedPlugin::xIsProcessing(const KRProxy& service)
{
    try {
        return service.call<bool>("isProcessing");
    } catch (const KRError& e) {
        humanTrackedPluginLog.warning("xCheckForTrackedHuman",
                                      std::string("Cannot get data: ") + e.what());
        return false;
    }
}

void HumanTrackedPlugin::xRaiseEmptyEvents()
{
    for (const auto& name :
         {fEventRaisedSameTrackedHuman, fEventRaisedDistanceOfTrackedHuman,
          fEventRaisedZoneOfTrackedHuman, fEventRaisedTrackedHumanIsLookingAtRobot})
        xRaiseEmpty(name);
}

}  // namespace KR
