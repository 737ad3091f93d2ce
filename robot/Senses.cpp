#include "robot/Senses.h"

#include <algorithm>
#include <cmath>

#include "platform/kr/KeyCatalogue.h"

namespace KR {

namespace {

constexpr const char* kPeopleKey = "PeoplePerception/PeopleList";
constexpr const char* kVisibleKey = "PeoplePerception/VisiblePeopleList";
constexpr const char* kPopulationKey = "PeoplePerception/PopulationUpdated";
constexpr const char* kPeopleZonesKey = "EngagementZones/PeopleInZonesUpdated";
constexpr const char* kMovementZonesKey = "EngagementZones/MovementsInZonesUpdated";
constexpr const char* kWavingKey = "WavingDetection/PersonWaving";
constexpr const char* kTrackedKey = "KRBasicAwareness/HumanTracked";
// What is told of a person.
constexpr const char* kDistance = "Distance";
constexpr const char* kZone = "EngagementZone";
constexpr const char* kIsLooking = "IsLookingAtRobot";
constexpr vo::Duration kWavePeriod = std::chrono::seconds(1);
constexpr double kRadians = 3.14159265358979323846 / 180;
constexpr int kZones = 3;

std::string personKey(const std::string& id, const char* datum)
{
    return "PeoplePerception/Person/" + id + "/" + datum;
}

std::string personKey(int id, const char* datum)
{
    return personKey(std::to_string(id), datum);
}

std::string peopleInZoneKey(int zone)
{
    return "EngagementZones/PeopleInZone" + std::to_string(zone);
}

std::string movementsInZoneKey(int zone)
{
    return "EngagementZones/LastMovementsInZone" + std::to_string(zone);
}

KRValue movementValue(const Movement& movement)
{
    const double direction = movement.direction * kRadians;
    const double width = apparentSize(movement.width, movement.distance);
    const double height = apparentSize(movement.height, movement.distance);
    return KRValue::Array{
        KRValue::Array{direction, 0.0},
        KRValue::Array{direction - width / 2, -height / 2, width, height},
        KRValue::Array{movement.distance, 1.0},
    };
}

KRValue stampOf(vo::TimePoint time)
{
    const auto microseconds = time.time_since_epoch().count();
    return KRValue::Array{microseconds / 1'000'000, microseconds % 1'000'000};
}

void describeKeys(KeyCatalogue& keys)
{
    using Key = KeyDescription;
    constexpr const char* kPeople = "KRPeoplePerception";
    constexpr const char* kZonesService = "KREngagementZones";
    keys.addPublished(Key::list(kPeopleKey, "ids of those who are around"), kPeople);
    keys.addPublished(Key::list(kVisibleKey, "ids of those who are seen"), kPeople);
    keys.addPublished(Key::list(kPopulationKey, "the same, when anything about them has changed"),
                      kPeople);
    keys.addPublished(Key::number(personKey("*", kDistance), "m").atLeast(0).emptyAs(KRValue()),
                      kPeople);
    keys.addPublished(Key::integer(personKey("*", kZone), "engagement zone")
                          .between(1, kZones)
                          .emptyAs(KRValue()),
                      kZonesService);
    keys.addPublished(
        Key::integer(personKey("*", kIsLooking), "1 when so").between(0, 1).emptyAs(KRValue()),
        "KRGazeAnalysis");
    for (int zone = 1; zone <= kZones; ++zone) {
        keys.addPublished(Key::list(peopleInZoneKey(zone), "ids of those who are there"),
                          kZonesService);
        keys.addPublished(Key::list(movementsInZoneKey(zone), "[stamp, movements]"), kZonesService);
    }
    for (const char* key : {kPeopleZonesKey, kMovementZonesKey})
        keys.addPublished(Key::integer(key, "1 when they have changed").between(1, 1),
                          kZonesService);
    keys.addPublished(Key::integer(kWavingKey, "id of one who waves").between(1, Senses::kMaxId),
                      "KRWavingDetection");
    keys.addPublished(Key::integer(kTrackedKey, "id of the one who is tracked; -1 for nobody")
                          .between(-1, Senses::kMaxId),
                      "KRBasicAwareness");
}

}  // namespace

Senses::Senses(boost::shared_ptr<KRBroker> broker)
    : broker_(std::move(broker)),
      keys_(broker_->memory()),
      timer_(*broker_->clock(), "Senses", [this] {
          const vo::Lock lock(mutex_);
          update();
      })
{
    describeKeys(broker_->keys());
    const vo::Lock lock(mutex_);
    update();
}

void Senses::change(const std::function<void(World&, vo::Duration)>& edit)
{
    const vo::Lock lock(mutex_);
    edit(world_, broker_->clock()->uptime());
    update();
}

void Senses::set(const std::function<void(Settings&)>& change)
{
    const vo::Lock lock(mutex_);
    change(settings_);
    update();
}

Senses::Settings Senses::settings() const
{
    const vo::Lock lock(mutex_);
    return settings_;
}

void Senses::subscribe(Extractor extractor, const std::string& subscriber)
{
    const vo::Lock lock(mutex_);
    subscribers_[std::size_t(extractor)].insert(subscriber);
    update();
}

void Senses::unsubscribe(Extractor extractor, const std::string& subscriber)
{
    const vo::Lock lock(mutex_);
    subscribers_[std::size_t(extractor)].erase(subscriber);
    update();
}

bool Senses::isProcessing(Extractor extractor) const
{
    const vo::Lock lock(mutex_);
    return processes(extractor);
}

bool Senses::processes(Extractor extractor) const
{
    if (!subscribers_[std::size_t(extractor)].empty())
        return true;
    return extractor == Extractor::people &&
           (settings_.awareness || processes(Extractor::zones) || processes(Extractor::waves) ||
            processes(Extractor::gazes));
}

bool Senses::sees(double distance, double direction) const
{
    return distance <= settings_.detectionRange && std::abs(direction) <= kHalfView;
}

void Senses::update()
{
    const vo::Duration now = broker_->clock()->uptime();
    notice(now);
    forget(now);
    writePeople();
    writeZones();
    writeMovements(now);
    raiseWaves(now);
    timer_.set(world_.isInMotion(now) ? kCycle : untilSomebodyDisappears(now));
}

void Senses::notice(vo::Duration now)
{
    std::set<std::string> seen;
    if (processes(Extractor::people)) {
        for (Person& person : world_.persons(now)) {
            if (!sees(person.distance, person.direction))
                continue;
            seen.insert(person.name);
            if (Known* known = find(person.name)) {
                known->person = std::move(person);
                known->lostAt.reset();
            } else if (known_.size() < kMaxId) {
                known_.push_back({newId(), std::move(person), {}, {}});
            }
        }
    }
    for (Known& known : known_) {
        if (seen.count(known.person.name))
            continue;
        known.person.looksAtRobot = known.person.waves = false;
        if (!known.lostAt)
            known.lostAt = now;
    }
}

Senses::Known* Senses::find(const std::string& name)
{
    const auto known = std::find_if(known_.begin(), known_.end(),
                                    [&](const Known& k) { return k.person.name == name; });
    return known == known_.end() ? nullptr : &*known;
}

int Senses::newId()
{
    bool isTaken = true;
    while (isTaken) {
        lastId_ = lastId_ % kMaxId + 1;
        isTaken = std::any_of(known_.begin(), known_.end(),
                              [id = lastId_](const Known& k) { return k.id == id; });
    }
    return lastId_;
}

void Senses::forget(vo::Duration now)
{
    const vo::Duration time = fromSeconds(settings_.secondsBeforeDisappearing);
    for (auto known = known_.begin(); known != known_.end();) {
        const bool isGone = known->lostAt && now - *known->lostAt >= time;
        if (!isGone && processes(Extractor::people)) {
            ++known;
            continue;
        }
        for (const char* datum : {kDistance, kZone, kIsLooking})
            keys_.blank(personKey(known->id, datum));
        known = known_.erase(known);
    }
}

std::optional<vo::Duration> Senses::untilSomebodyDisappears(vo::Duration now) const
{
    std::optional<vo::Duration> next;
    for (const Known& known : known_) {
        if (!known.lostAt)
            continue;
        const vo::Duration rest =
            *known.lostAt + fromSeconds(settings_.secondsBeforeDisappearing) - now;
        next = std::min(next.value_or(rest), rest);
    }
    return next;
}

int Senses::chooseTracked() const
{
    if (!settings_.awareness)
        return -1;
    const Known* nearest = nullptr;
    for (const Known& known : known_) {
        if (known.id == tracked_)
            return tracked_;
        if (!known.lostAt && (!nearest || known.person.distance < nearest->person.distance))
            nearest = &known;
    }
    return nearest ? nearest->id : -1;
}

void Senses::writePeople()
{
    KRValue::Array all;
    KRValue::Array visible;
    bool changed = false;
    for (const Known& known : known_) {
        changed = writePerson(known) || changed;
        all.push_back(known.id);
        if (!known.lostAt)
            visible.push_back(known.id);
    }
    tracked_ = chooseTracked();
    keys_.write(kTrackedKey, tracked_);
    changed = keys_.write(kPeopleKey, all) || changed;
    changed = keys_.write(kVisibleKey, visible) || changed;
    if (changed)
        broker_->memory().raiseEvent(kPopulationKey, all);
}

bool Senses::writePerson(const Known& known)
{
    const Person& person = known.person;
    const auto write = [&](const char* datum, const KRValue& value) VO_REQUIRES(mutex_) {
        return keys_.write(personKey(known.id, datum), value);
    };
    bool changed = write(kDistance, person.distance);
    const KRValue zone = settings_.limits.zoneOf(person.distance, person.direction);
    changed = write(kZone, processes(Extractor::zones) ? zone : KRValue()) || changed;
    const KRValue looks = person.looksAtRobot ? 1 : 0;
    return write(kIsLooking, processes(Extractor::gazes) ? looks : KRValue()) || changed;
}

void Senses::writeZones()
{
    std::array<KRValue::Array, kZones> zones;
    if (processes(Extractor::zones)) {
        for (const Known& known : known_) {
            const int zone = settings_.limits.zoneOf(known.person.distance, known.person.direction);
            zones[std::size_t(zone - 1)].push_back(known.id);
        }
    }
    bool changed = false;
    for (std::size_t i = 0; i < zones.size(); ++i)
        changed = keys_.write(peopleInZoneKey(int(i) + 1), zones[i]) || changed;
    if (changed)
        broker_->memory().raiseEvent(kPeopleZonesKey, 1);
}

void Senses::writeMovements(vo::Duration now)
{
    std::array<KRValue::Array, kZones> zones;
    if (processes(Extractor::zones) && processes(Extractor::movements)) {
        for (const Movement& movement : world_.movements(now)) {
            if (!sees(movement.distance, movement.direction))
                continue;
            const int zone = settings_.limits.zoneOf(movement.distance, movement.direction);
            zones[std::size_t(zone - 1)].push_back(movementValue(movement));
        }
    }
    bool changed = false;
    for (std::size_t i = 0; i < zones.size(); ++i) {
        const KRValue movements = zones[i];
        if (movements == movements_[i])
            continue;
        changed = true;
        movements_[i] = movements;
        const std::string key = movementsInZoneKey(int(i) + 1);
        KRValue::Array last;
        if (!zones[i].empty())
            last = {stampOf(broker_->clock()->now()), movements};
        broker_->memory().raiseEvent(key, last);
    }
    if (changed)
        broker_->memory().raiseEvent(kMovementZonesKey, 1);
}

void Senses::raiseWaves(vo::Duration now)
{
    if (!processes(Extractor::waves))
        return;
    for (Known& known : known_) {
        if (!known.person.waves)
            known.lastWave.reset();
        else if (!known.lastWave || now - *known.lastWave >= kWavePeriod) {
            known.lastWave = now;
            broker_->memory().raiseEvent(kWavingKey, known.id);
        }
    }
}

}  // namespace KR
