#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>

#include "platform/kr/KRProxy.h"
#include "plugins/NimbraLaunchpadPluginModule.h"

namespace KR {

/// Publishes what is known of the person whom basic awareness tracks:
///
///     Launchpad/SameTrackedHuman              int: 0 while nobody is tracked; a new person gives
///                                             0 and at once 1
///     Launchpad/DistanceOfTrackedHuman        float, metres; -1.0 for nobody
///     Launchpad/ZoneOfTrackedHuman            int, engagement zone; 0 for nobody
///     Launchpad/TrackedHumanIsLookingAtRobot  int; 0 for nobody
///
/// Each is invalid when stopped; the last three are, too, when the person has no such datum (any
/// more), and zone and looking while "KREngagementZones" and "KRGazeAnalysis" do not process.
///
/// It checks at its start, at every update of the population, and whenever the tracked person
/// changes. A person who comes back after nobody was tracked is the same person still, and raises
/// no "SameTrackedHuman". A tracked id that cannot be read counts as nobody.
///
/// Checks are made one at a time, under a mutex of their own that comes before the locks of the
/// services and of memory.
class HumanTrackedPlugin : public NimbraLaunchpadPluginModule {
public:
    static const std::string fEventRaisedSameTrackedHuman;
    static const std::string fEventRaisedDistanceOfTrackedHuman;
    static const std::string fEventRaisedZoneOfTrackedHuman;
    static const std::string fEventRaisedTrackedHumanIsLookingAtRobot;

    /// KRError when there is no service "KREngagementZones" or "KRGazeAnalysis".
    explicit HumanTrackedPlugin(boost::shared_ptr<KRBroker> broker);

    void exit() override;

    /// One check. Forced, it forgets whom it has seen before.
    void xCheckForTrackedHuman(bool force) VO_EXCLUDES(checkMutex_);
    void xSetStateOnStart() VO_EXCLUDES(checkMutex_);
    void xRaiseEmptyEvents();

private:
    void _startPlugin() override VO_REQUIRES(mutex_);
    void _stopPlugin() override VO_REQUIRES(mutex_);
    void describeKeys();
    void _onPopulationUpdated(const std::string& key, const KRValue& value,
                              const std::string& message);
    void _onHumanTracked(const std::string& key, const KRValue& value, const std::string& message);
    void xCheckIfStarted() VO_EXCLUDES(checkMutex_);
    void xCheck(bool force) VO_REQUIRES(checkMutex_);
    std::int32_t xGetTrackedId();
    void xRaiseSameTrackedHuman() VO_REQUIRES(checkMutex_);
    /// A datum of the tracked person, int or float, `none` for nobody; invalid when unreadable.
    template <class T>
    KRValue xGetPersonData(const std::string& datum, T none) VO_REQUIRES(checkMutex_);
    bool xIsProcessing(const KRProxy& service);

    const std::int32_t noPersonId_ = -1;

    vo::Mutex checkMutex_;
    bool started_ VO_GUARDED_BY(checkMutex_) = false;
    std::int32_t lastId_ VO_GUARDED_BY(checkMutex_) = noPersonId_;  ///< the last person seen
    std::int32_t currentId_ VO_GUARDED_BY(checkMutex_) = noPersonId_;

    // Constant after construction.
    boost::shared_ptr<KRProxy> engagementZonesProxy_;
    boost::shared_ptr<KRProxy> gazeAnalysisProxy_;
};

}  // namespace KR
