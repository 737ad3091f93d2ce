#pragma once

#include <array>
#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/kr/KRBroker.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"
#include "robot/ChangedKeys.h"
#include "robot/Space.h"
#include "robot/Timer.h"
#include "robot/World.h"

namespace KR {

/// What the simulated robot perceives of the world around it, and the memory keys that tell it. A
/// number in <> is a person's id, one of 1 to 3 a zone of EngagementLimits.
///
///     PeoplePerception/PeopleList               ids of the population
///     PeoplePerception/VisiblePeopleList        ids of those who are seen now
///     PeoplePerception/Person/<id>/Distance     float, metres
///     PeoplePerception/Person/<id>/EngagementZone    int
///     PeoplePerception/Person/<id>/IsLookingAtRobot  int, 0 or 1
///     PeoplePerception/PopulationUpdated        PeopleList, whenever one of the above has changed
///     EngagementZones/PeopleInZone1 (2, 3)      ids of the population there
///     EngagementZones/PeopleInZonesUpdated      1, whenever one of them has changed
///     EngagementZones/LastMovementsInZone1 (2, 3)  [] or [[s, µs] since the epoch, movements]
///     EngagementZones/MovementsInZonesUpdated   1, whenever the movements have changed
///     WavingDetection/PersonWaving              id of a visible person, once a second of waving
///     KRBasicAwareness/HumanTracked             id, -1 for nobody
///
/// A person is seen within the detection range and up to kHalfView to either side. Who is seen is
/// in the population, and stays there, as last seen, for the time before a person disappears. Who
/// was gone is taken for somebody new when they come again. The one who is tracked stays it until
/// they leave the population; then it is the nearest of those who are seen.
///
/// A movement is [[direction, 0], [left, bottom, width, height], [distance, certainty]], the first
/// two in radians from straight ahead and level, after apparentSize(); then metres, and 1.
///
/// Each extractor works while somebody is subscribed to it; people are extracted, too, for the
/// others and for basic awareness. What is not extracted is empty or invalid.
///
/// The world is looked at whenever it, a setting or a subscription changes, before the change
/// returns, and every kCycle for as long as something in it moves. Thread-safe; its mutex is held
/// while it writes memory, and comes before the locks of memory and clock.
class Senses {
public:
    enum class Extractor : std::size_t { people, zones, movements, waves, gazes };
    static constexpr std::size_t kExtractors = 5;

    static constexpr vo::Duration kCycle = std::chrono::milliseconds(200);
    static constexpr double kHalfView = 90;  ///< degrees; the head turns
    /// Ids are used again after this many, so that memory has keys of no more people than this. It
    /// is also the largest population; whoever comes on top of it is not noticed.
    static constexpr int kMaxId = 2 * static_cast<int>(World::kMaxPersons);

    struct Settings {
        double detectionRange = 3.5;  ///< metres
        double secondsBeforeDisappearing = 3;
        EngagementLimits limits;
        bool awareness = true;
    };

    explicit Senses(boost::shared_ptr<KRBroker> broker);
    Senses(const Senses&) = delete;
    Senses& operator=(const Senses&) = delete;

    /// Does something to the world, now on the world's clock, and looks at it. What that throws
    /// leaves this.
    void change(const std::function<void(World& world, vo::Duration now)>& edit)
        VO_EXCLUDES(mutex_);
    void set(const std::function<void(Settings& settings)>& change) VO_EXCLUDES(mutex_);
    Settings settings() const VO_EXCLUDES(mutex_);

    void subscribe(Extractor extractor, const std::string& subscriber) VO_EXCLUDES(mutex_);
    /// Does nothing for one who is not subscribed.
    void unsubscribe(Extractor extractor, const std::string& subscriber) VO_EXCLUDES(mutex_);
    bool isProcessing(Extractor extractor) const VO_EXCLUDES(mutex_);

private:
    struct Known {
        int id;
        Person person;                         ///< as last seen
        std::optional<vo::Duration> lostAt;    ///< uptime; nothing while seen
        std::optional<vo::Duration> lastWave;  ///< uptime
    };

    bool processes(Extractor extractor) const VO_REQUIRES(mutex_);
    bool sees(double distance, double direction) const VO_REQUIRES(mutex_);
    void update() VO_REQUIRES(mutex_);
    void notice(vo::Duration now) VO_REQUIRES(mutex_);
    int newId() VO_REQUIRES(mutex_);
    Known* find(const std::string& name) VO_REQUIRES(mutex_);
    void forget(vo::Duration now) VO_REQUIRES(mutex_);
    std::optional<vo::Duration> untilSomebodyDisappears(vo::Duration now) const VO_REQUIRES(mutex_);
    int chooseTracked() const VO_REQUIRES(mutex_);
    void writePeople() VO_REQUIRES(mutex_);
    bool writePerson(const Known& known) VO_REQUIRES(mutex_);
    void writeZones() VO_REQUIRES(mutex_);
    void writeMovements(vo::Duration now) VO_REQUIRES(mutex_);
    void raiseWaves(vo::Duration now) VO_REQUIRES(mutex_);

    // Constant after construction.
    const boost::shared_ptr<KRBroker> broker_;

    mutable vo::Mutex mutex_;
    World world_ VO_GUARDED_BY(mutex_);
    Settings settings_ VO_GUARDED_BY(mutex_);
    std::array<std::set<std::string>, kExtractors> subscribers_ VO_GUARDED_BY(mutex_);
    std::vector<Known> known_ VO_GUARDED_BY(mutex_);  ///< the population, in order of coming
    int lastId_ VO_GUARDED_BY(mutex_) = 0;
    int tracked_ VO_GUARDED_BY(mutex_) = -1;
    /// Of each zone, those that LastMovements tells.
    std::array<KRValue, 3> movements_ VO_GUARDED_BY(mutex_);
    ChangedKeys keys_ VO_GUARDED_BY(mutex_);
    Timer timer_ VO_GUARDED_BY(mutex_);  ///< the first to go
};

}  // namespace KR
