#include "plugins/builtin/PerceptionHeavyPlugin.h"

#include <boost/lexical_cast.hpp>
#include <mutex>

#include "platform/kr/KRBroker.h"
#include "platform/kr/KRError.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger perceptionHeavyPluginLog("LaunchpadPluginPerceptionHeavy");

const std::string kPreferenceDomain = "com.halvex.nimbra.PerceptionHeavyPlugin";

const std::string kWavingKey = "WavingDetection/PersonWaving";
const std::string kPopulationUpdatedKey = "PeoplePerception/PopulationUpdated";
const std::string kPeopleZonesKey = "EngagementZones/PeopleInZonesUpdated";
const std::string kMovementZonesKey = "EngagementZones/MovementsInZonesUpdated";
const std::string kVisiblePeopleKey = "PeoplePerception/VisiblePeopleList";

/// A person who waves is there for this long after the time in which they would have disappeared.
constexpr float kWavingMargin = 0.6F;  // seconds
/// Far beyond any real time of disappearance, and within what a delay can hold.
constexpr float kMaxDisappearance = 86400.0F;  // seconds

constexpr double kMinConfidence = 0.1;

// A movement is told in one of two lengths, which differ in where its confidences stand.
constexpr unsigned int kShortBlob = 3;
constexpr unsigned int kLongBlob = 6;

}  // namespace

const std::string PerceptionHeavyPlugin::fEventRaisedWavingDetection = "WavingDetection";
const std::string PerceptionHeavyPlugin::fEventRaisedPeopleNotSeen = "PeopleNotSeen";
const std::string PerceptionHeavyPlugin::fEventRaisedNumPeopleZone = "NumPeopleZone";
const std::string PerceptionHeavyPlugin::fEventRaisedNoPeopleInZones = "NoPeopleInZones";
const std::string PerceptionHeavyPlugin::fEventRaisedNumMotionZone = "NumMotionZone";
const std::string PerceptionHeavyPlugin::fEventRaisedNoMotionInZones = "NoMotionInZones";

PerceptionHeavyPlugin::PerceptionHeavyPlugin(boost::shared_ptr<KRBroker> broker)
    : NimbraLaunchpadPluginModule(broker, "_LaunchpadPluginPerceptionHeavy"),
      preferenceProxy_(getParentBroker()->getProxy("KRPreferenceManager")),
      peopleProxy_(getParentBroker()->getProxy("KRPeoplePerception")),
      engagementZonesProxy_(getParentBroker()->getProxy("KREngagementZones")),
      gazeAnalysisProxy_(getParentBroker()->getProxy("KRGazeAnalysis")),
      movementProxy_(getParentBroker()->getProxy("KRMovementDetection")),
      people_{"EngagementZones/PeopleInZone", fEventRaisedNumPeopleZone,
              fEventRaisedNoPeopleInZones, &PerceptionHeavyPlugin::xCountPeople},
      movements_{"EngagementZones/LastMovementsInZone", fEventRaisedNumMotionZone,
                 fEventRaisedNoMotionInZones, &PerceptionHeavyPlugin::xCountMovements}
{
    try {
        wavingProxy_ = getParentBroker()->getProxy("KRWavingDetection");
    } catch (const KRError& e) {
        perceptionHeavyPluginLog.info("PerceptionHeavyPlugin",
                                      std::string("nobody will wave: ") + e.what());
    }
    xDeclareLaunchpadEvent(fEventRaisedWavingDetection);
    xDeclareLaunchpadEvent(fEventRaisedPeopleNotSeen);
    for (const Zones* zones : {&people_, &movements_}) {
        for (int zone = 1; zone <= kZones; ++zone)
            xDeclareLaunchpadEvent(zones->count + std::to_string(zone));
        xDeclareLaunchpadEvent(zones->none);
    }
    bindCallbacks();
    describeKeys();
}

void PerceptionHeavyPlugin::describeKeys()
{
    xDescribe(KeyDescription::integer(fEventRaisedWavingDetection, "1 while somebody waves")
                  .between(0, 1)
                  .emptyAs(KRValue()));
    xDescribe(
        KeyDescription::boolean(fEventRaisedPeopleNotSeen, "nobody is visible").emptyAs(KRValue()));
    for (const Zones* zones : {&people_, &movements_}) {
        const std::string what = zones == &people_ ? "people" : "movements";
        for (int zone = 1; zone <= kZones; ++zone) {
            const std::string number = std::to_string(zone);
            xDescribe(KeyDescription::integer(zones->count + number,
                                              std::string(what).append(" in zone ").append(number))
                          .atLeast(0)
                          .emptyAs(KRValue()));
            xReads(zones->key + number);
        }
        xDescribe(
            KeyDescription::boolean(zones->none, "no " + what + " in any zone").emptyAs(KRValue()));
    }
    for (const auto& key :
         {kWavingKey, kPopulationUpdatedKey, kPeopleZonesKey, kMovementZonesKey, kVisiblePeopleKey})
        xReads(key);
}

void PerceptionHeavyPlugin::bindCallbacks()
{
    const auto bind = [this](const std::string& method, auto function,
                             const std::string& description) {
        bindMethod(method, function, this, description,
                   {{"key", "Name of the event"},
                    {"value", "Value of the event"},
                    {"message", "Event message"}});
    };
    bind("_onPersonWaving", &PerceptionHeavyPlugin::_onPersonWaving, "A person waves");
    bind("_onPopulationUpdated", &PerceptionHeavyPlugin::_onPopulationUpdated,
         "The people around the robot were updated");
    bind("_onPeopleInZonesUpdated", &PerceptionHeavyPlugin::_onPeopleInZonesUpdated,
         "The people in the engagement zones were updated");
    bind("_onMovementsInZonesUpdated", &PerceptionHeavyPlugin::_onMovementsInZonesUpdated,
         "The movements in the engagement zones were updated");
}

void PerceptionHeavyPlugin::exit()
{
    {
        const vo::Lock lock(wavingMutex_);
        xTryCancelFuture(wavingTimeout_);
    }
    NimbraLaunchpadPluginModule::exit();
}

void PerceptionHeavyPlugin::_startPlugin()
{
    if (started_)
        return;
    xSubscribeServices();
    try {
        xPushPreferences();
    } catch (const std::exception& e) {
        perceptionHeavyPluginLog.error(
            "_startPlugin", std::string("Fail to update parameters with error: ") + e.what());
    }
    xsetStateOnStart();
    xSubscribeEvents();
}

void PerceptionHeavyPlugin::xSubscribeServices()
{
    for (const auto& service :
         {peopleProxy_, movementProxy_, engagementZonesProxy_, gazeAnalysisProxy_, wavingProxy_}) {
        if (service)
            service->call("subscribe", getName());
    }
}

void PerceptionHeavyPlugin::xPushPreferences()
{
    peopleProxy_->call("setMaximumDetectionRange", xGetKRPreferenceValue("PPMaxDist", 3.5F));
    engagementZonesProxy_->call("setFirstLimitDistance", xGetKRPreferenceValue("EZDist1", 1.5F));
    engagementZonesProxy_->call("setSecondLimitDistance", xGetKRPreferenceValue("EZDist2", 2.5F));
    engagementZonesProxy_->call("setLimitAngle", xGetKRPreferenceValue("EZAngle", 90.0F));
}

void PerceptionHeavyPlugin::xsetStateOnStart()
{
    xCheckForPeopleNotSeen(true);
    xCheckForPeopleZones(true);
    xCheckForMovementZones(true);
}

void PerceptionHeavyPlugin::xSubscribeEvents()
{
    started_ = true;  // an event may come at once
    try {
        xSubscribeMicroEvent(kWavingKey, "_onPersonWaving");
        xSubscribeMicroEvent(kPopulationUpdatedKey, "_onPopulationUpdated");
        xSubscribeMicroEvent(kPeopleZonesKey, "_onPeopleInZonesUpdated");
        xSubscribeMicroEvent(kMovementZonesKey, "_onMovementsInZonesUpdated");
    } catch (...) {
        started_ = false;
        throw;
    }
}

void PerceptionHeavyPlugin::_stopPlugin()
{
    if (!started_)
        return;
    {
        const vo::Lock lock(wavingMutex_);
        xTryCancelFuture(wavingTimeout_);
        started_ = false;
    }
    for (const auto& key : {kWavingKey, kPopulationUpdatedKey, kPeopleZonesKey, kMovementZonesKey})
        xUnsubscribeMicroEvent(key);
    // A check in progress ends before the empty values; a later one finds the plugin stopped.
    for (auto* mutex : {&peopleNotSeenMutex_, &people_.mutex, &movements_.mutex})
        const vo::Lock lock(*mutex);
    xRaiseEmptyEvents();
}

float PerceptionHeavyPlugin::xGetKRPreferenceValue(const std::string& key, float defaultValue)
{
    try {
        const auto value = preferenceProxy_->call<KRValue>("getValue", kPreferenceDomain, key);
        if (value.isNumber())
            return vo::fromValue<float>(vo::toValue(value));  // refuses what no float can hold
        return boost::lexical_cast<float>(value.toString());
    } catch (const std::exception& e) {
        perceptionHeavyPluginLog.error("xGetKRPreferenceValue",
                                       std::string("Error when getting preferences: ") + e.what());
        return defaultValue;
    }
}

void PerceptionHeavyPlugin::_onPersonWaving(const std::string&, const KRValue&, const std::string&)
{
    xCheckForWaving();
}

void PerceptionHeavyPlugin::_onPopulationUpdated(const std::string&, const KRValue&,
                                                 const std::string&)
{
    const vo::Lock lock(peopleNotSeenMutex_);
    if (started_)
        checkForPeopleNotSeen(false);
}

void PerceptionHeavyPlugin::_onPeopleInZonesUpdated(const std::string&, const KRValue&,
                                                    const std::string&)
{
    const vo::Lock lock(people_.mutex);
    if (started_)
        checkZones(people_, false);
}

void PerceptionHeavyPlugin::_onMovementsInZonesUpdated(const std::string&, const KRValue&,
                                                       const std::string&)
{
    const vo::Lock lock(movements_.mutex);
    if (started_)
        checkZones(movements_, false);
}

void PerceptionHeavyPlugin::xCheckForWaving()
{
    const vo::Lock lock(wavingMutex_);
    if (!started_)
        return;
    xTryCancelFuture(wavingTimeout_);
    xRaiseLaunchpadEvent(fEventRaisedWavingDetection, 1);
    const std::uint64_t length = xGetDelayUSec(xGetSecondsUntilDisappearance() + kWavingMargin);
    waveEnd_ = getParentBroker()->clock()->uptime() + vo::Duration(length);
    wavingTimeout_ = vo::getEventLoop()->async(
        [weak = weak_from_this()] {
            if (const auto plugin = weak.lock())
                static_cast<PerceptionHeavyPlugin&>(*plugin).xWavingTimeout();
        },
        length);
}

/// Without a usable answer a wave ends early, rather than never.
float PerceptionHeavyPlugin::xGetSecondsUntilDisappearance()
{
    try {
        const auto seconds = peopleProxy_->call<float>("getTimeBeforePersonDisappears");
        if (seconds >= 0.0F && seconds <= kMaxDisappearance)
            return seconds;
        perceptionHeavyPluginLog.warning(
            "xCheckForWaving", "No time of disappearance: " + std::to_string(seconds) + " s");
    } catch (const KRError& e) {
        perceptionHeavyPluginLog.warning("xCheckForWaving",
                                         std::string("No time of disappearance: ") + e.what());
    }
    return 0.0F;
}

void PerceptionHeavyPlugin::xWavingTimeout()
{
    // Whoever holds it has a new wave, whose own time-out will come, or stops the plugin.
    const std::unique_lock<vo::Mutex> lock(wavingMutex_, std::try_to_lock);
    if (!lock.owns_lock() || !started_)
        return;
    // One that was on its way when the wave was renewed could not be cancelled any more.
    if (getParentBroker()->clock()->uptime() >= waveEnd_)
        xRaiseLaunchpadEvent(fEventRaisedWavingDetection, 0);
}

void PerceptionHeavyPlugin::xCheckForPeopleNotSeen(bool force)
{
    const vo::Lock lock(peopleNotSeenMutex_);
    checkForPeopleNotSeen(force);
}

void PerceptionHeavyPlugin::checkForPeopleNotSeen(bool force)
{
    bool notSeen = false;
    try {
        xCheckDataSize(memoryProxy_->getData(kVisiblePeopleKey), 1);
    } catch (const KRError&) {
        notSeen = true;
    }
    if (notSeen == lastPeopleNotSeen_ && !force)
        return;
    xRaiseLaunchpadEvent(fEventRaisedPeopleNotSeen, notSeen);
    lastPeopleNotSeen_ = notSeen;
}

void PerceptionHeavyPlugin::xCheckForPeopleZones(bool force)
{
    const vo::Lock lock(people_.mutex);
    checkZones(people_, force);
}

void PerceptionHeavyPlugin::xCheckForMovementZones(bool force)
{
    const vo::Lock lock(movements_.mutex);
    checkZones(movements_, force);
}

void PerceptionHeavyPlugin::checkZones(Zones& zones, bool force)
{
    bool none = true;
    for (int zone = 1; zone <= kZones; ++zone) {
        const int count = xCountInZone(zones, zone);
        int& last = zones.lastCounts[static_cast<std::size_t>(zone - 1)];
        if (count != last || force) {
            xRaiseLaunchpadEvent(zones.count + std::to_string(zone), count);
            last = count;
        }
        none = none && count == 0;
    }
    if (none != zones.lastNone || force) {
        xRaiseLaunchpadEvent(zones.none, none);
        zones.lastNone = none;
    }
}

int PerceptionHeavyPlugin::xCountInZone(const Zones& zones, int zone)
{
    try {
        return (this->*zones.counter)(memoryProxy_->getData(zones.key + std::to_string(zone)));
    } catch (const KRError& e) {
        // Usual before the first update.
        perceptionHeavyPluginLog.verbose("xCountInZone",
                                         std::string("Cannot get data: ") + e.what());
        return 0;
    }
}

int PerceptionHeavyPlugin::xCountPeople(const KRValue& people)
{
    return static_cast<int>(xCheckDataSize(people, 0));
}

int PerceptionHeavyPlugin::xCountMovements(const KRValue& movements)
{
    if (xCheckDataSize(movements, 0) == 0)
        return 0;
    int count = 0;
    for (const auto& blob : movements[1].toArray())
        count += xFilterMovementBlob(blob) ? 1 : 0;
    return count;
}

bool PerceptionHeavyPlugin::xFilterMovementBlob(const KRValue& blob)
{
    // Whether an element of an entry is too low; KRError when it is not there.
    const auto isLow = [&](std::size_t entry, unsigned int element) {
        xCheckDataSize(blob[entry], element + 1);
        return blob[entry][element].toFloat() < kMinConfidence;
    };
    try {
        const unsigned int size = xCheckDataSize(blob, kShortBlob);
        if (isLow(2, 1))
            return false;
        if (size == kLongBlob)
            return !isLow(4, 0) && !isLow(4, 1);
        if (size == kShortBlob)
            return !isLow(1, 2) && !isLow(1, 3);
        return true;
    } catch (const KRError& e) {
        perceptionHeavyPluginLog.error("xFilterMovementBlob",
                                       std::string("Error filtering movement blob: ") + e.what());
        return false;
    }
}

void PerceptionHeavyPlugin::xRaiseEmptyEvents()
{
    xRaiseCounts(KRValue());
    xRaiseAbsences(KRValue());
}

void PerceptionHeavyPlugin::xRaiseDefaultEvents()
{
    xRaiseCounts(0);
    xRaiseAbsences(true);
}

void PerceptionHeavyPlugin::xRaiseCounts(const KRValue& value)
{
    xRaiseLaunchpadEvent(fEventRaisedWavingDetection, value);
    for (int zone = 1; zone <= kZones; ++zone) {
        xRaiseLaunchpadEvent(fEventRaisedNumPeopleZone + std::to_string(zone), value);
        xRaiseLaunchpadEvent(fEventRaisedNumMotionZone + std::to_string(zone), value);
    }
}

void PerceptionHeavyPlugin::xRaiseAbsences(const KRValue& value)
{
    xRaiseLaunchpadEvent(fEventRaisedNoPeopleInZones, value);
    xRaiseLaunchpadEvent(fEventRaisedNoMotionInZones, value);
    xRaiseLaunchpadEvent(fEventRaisedPeopleNotSeen, value);
}

}  // namespace KR
