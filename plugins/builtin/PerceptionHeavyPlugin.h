#pragma once

#include <array>
#include <atomic>
#include <boost/shared_ptr.hpp>
#include <string>

#include "platform/kr/KRProxy.h"
#include "platform/vo/Future.h"
#include "plugins/NimbraLaunchpadPluginModule.h"

namespace KR {

/// Publishes whom and what the robot perceives around it, in three engagement zones (n is 1, 2, 3):
///
///     Launchpad/WavingDetection  int: 1 at every wave, 0 once it is 0.6 s longer ago than it takes
///                                a person to disappear
///     Launchpad/PeopleNotSeen    bool, nobody is visible
///     Launchpad/NumPeopleZone<n>, Launchpad/NoPeopleInZones  int, people in the zone; bool, none
///                                                            in any
///     Launchpad/NumMotionZone<n>, Launchpad/NoMotionInZones  the same for movements that are sure
///                                                            enough
///
/// All are invalid when stopped. It follows the events of the perception services and never polls;
/// what they have not written yet, or wrote in another shape, counts as nobody and nothing.
///
/// Its start subscribes to those services, which switches them on, and hands them four preferences
/// of the domain "com.halvex.nimbra.PerceptionHeavyPlugin": "PPMaxDist" (m, 3.5), "EZDist1" (m,
/// 1.5), "EZDist2" (m, 2.5), "EZAngle" (degrees, 90). Its stop leaves the services on.
///
/// It is heavy on the robot, so it is in no group: whoever wants it enables it by name.
///
/// Four mutexes guard the four concerns. They never nest, and come before the locks of the services
/// and of memory.
class PerceptionHeavyPlugin : public NimbraLaunchpadPluginModule {
public:
    static constexpr int kZones = 3;

    static const std::string fEventRaisedWavingDetection;
    static const std::string fEventRaisedPeopleNotSeen;
    static const std::string fEventRaisedNumPeopleZone;  ///< before the zone's number
    static const std::string fEventRaisedNoPeopleInZones;
    static const std::string fEventRaisedNumMotionZone;  ///< before the zone's number
    static const std::string fEventRaisedNoMotionInZones;

    /// KRError when one of the services is missing. "KRWavingDetection" may be: then nobody waves.
    explicit PerceptionHeavyPlugin(boost::shared_ptr<KRBroker> broker);

    void exit() override;

    /// A preference; the default, after logging why, when it is no number.
    float xGetKRPreferenceValue(const std::string& key, float defaultValue);

    /// Somebody waves.
    void xCheckForWaving();
    /// The time-out of a wave: nobody waves any more, unless a later wave still lasts.
    void xWavingTimeout() VO_NO_THREAD_SAFETY_ANALYSIS;  // which does not see a lock that is tried
    // Each raises what changed, or, forced, everything.
    void xCheckForPeopleNotSeen(bool force);
    void xCheckForPeopleZones(bool force);
    void xCheckForMovementZones(bool force);
    /// Whether a movement is to be counted: none of its confidences is below 0.1. One that is
    /// malformed is logged and not counted.
    bool xFilterMovementBlob(const KRValue& blob);

    void xRaiseEmptyEvents();
    /// The values of a world without people.
    void xRaiseDefaultEvents();

private:
    /// What is counted zone by zone, and how it was last published.
    struct Zones {
        // Constant after construction.
        const std::string key;    ///< of the zones' lists, before the zone's number
        const std::string count;  ///< the datum, before the zone's number
        const std::string none;   ///< the datum
        int (PerceptionHeavyPlugin::*const counter)(const KRValue& list);

        vo::Mutex mutex = {};
        std::array<int, kZones> lastCounts VO_GUARDED_BY(mutex) = {};
        bool lastNone VO_GUARDED_BY(mutex) = false;
    };

    void _startPlugin() override VO_REQUIRES(mutex_);
    void _stopPlugin() override VO_REQUIRES(mutex_);
    void _onPersonWaving(const std::string& key, const KRValue& value, const std::string& message);
    void _onPopulationUpdated(const std::string& key, const KRValue& value,
                              const std::string& message);
    void _onPeopleInZonesUpdated(const std::string& key, const KRValue& value,
                                 const std::string& message);
    void _onMovementsInZonesUpdated(const std::string& key, const KRValue& value,
                                    const std::string& message);
    void bindCallbacks();
    void describeKeys();
    void xSubscribeServices();
    void xPushPreferences();
    void xsetStateOnStart();
    void xSubscribeEvents();
    float xGetSecondsUntilDisappearance();
    void checkForPeopleNotSeen(bool force) VO_REQUIRES(peopleNotSeenMutex_);
    void checkZones(Zones& zones, bool force) VO_REQUIRES(zones.mutex);
    int xCountInZone(const Zones& zones, int zone);
    int xCountPeople(const KRValue& people);
    int xCountMovements(const KRValue& movements);
    /// Raises the same value for waving and every zone's count.
    void xRaiseCounts(const KRValue& value);
    void xRaiseAbsences(const KRValue& value);

    // Constant after construction.
    boost::shared_ptr<KRProxy> preferenceProxy_;
    boost::shared_ptr<KRProxy> peopleProxy_;
    boost::shared_ptr<KRProxy> engagementZonesProxy_;
    boost::shared_ptr<KRProxy> gazeAnalysisProxy_;
    boost::shared_ptr<KRProxy> movementProxy_;
    boost::shared_ptr<KRProxy> wavingProxy_;  ///< null when there is no such service

    /// The callbacks read it without the plugin's mutex.
    std::atomic<bool> started_{false};

    vo::Mutex wavingMutex_;
    vo::Future<void> wavingTimeout_ VO_GUARDED_BY(wavingMutex_);
    vo::Duration waveEnd_ VO_GUARDED_BY(wavingMutex_){};  ///< of the last wave; uptime

    vo::Mutex peopleNotSeenMutex_;
    bool lastPeopleNotSeen_ VO_GUARDED_BY(peopleNotSeenMutex_) = false;

    Zones people_;
    Zones movements_;
};

}  // namespace KR
