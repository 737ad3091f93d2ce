#include "robot/Senses.h"

#include <algorithm>
#include <cmath>

namespace KR {

namespace {

constexpr const char* kPerson = "PeoplePerception/Person/";
constexpr vo::Duration kWavePeriod = std::chrono::seconds(1);
constexpr double kRadians = 3.14159265358979323846 / 180;
constexpr int kZones = 3;

vo::Duration fromSeconds(double seconds)
{
    return vo::Duration(std::llround(seconds * 1e6));
}

std::string personKey(int id, const char* datum)
{
    return kPerson + std::to_string(id) + "/" + datum;
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

}  // namespace

Senses::Senses(boost::shared_ptr<KRBroker> broker)
    : broker_(std::move(broker)),
      keys_(broker_->memory()),
      alarm_(*broker_->clock(), "Senses", [this] {
          const vo::Lock lock(mutex_);
          update();
      })
{
    const vo::Lock lock(mutex_);
    update();
}

void Senses::change(const std::function<void(World&, vo::Duration)>& deed)
{
    const vo::Lock lock(mutex_);
    deed(world_, broker_->clock()->uptime());
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
    alarm_.set(world_.isInMotion(now) ? kCycle : untilSomebodyDisappears(now));
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
    const auto isTaken = [&known = known_](int id) {
        return std::any_of(known.begin(), known.end(), [id](const Known& k) { return k.id == id; });
    };
    do {
        lastId_ = lastId_ % kMaxId + 1;
    } while (isTaken(lastId_));
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
        for (const char* datum : {"Distance", "EngagementZone", "IsLookingAtRobot"})
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
    keys_.write("KRBasicAwareness/HumanTracked", tracked_);
    changed = keys_.write("PeoplePerception/PeopleList", all) || changed;
    changed = keys_.write("PeoplePerception/VisiblePeopleList", visible) || changed;
    if (changed)
        broker_->memory().raiseEvent("PeoplePerception/PopulationUpdated", all);
}

bool Senses::writePerson(const Known& known)
{
    const Person& person = known.person;
    const auto write = [&](const char* datum, const KRValue& value) {
        return keys_.write(personKey(known.id, datum), value);
    };
    bool changed = write("Distance", person.distance);
    const KRValue zone = settings_.limits.zoneOf(person.distance, person.direction);
    changed = write("EngagementZone", processes(Extractor::zones) ? zone : KRValue()) || changed;
    const KRValue looks = person.looksAtRobot ? 1 : 0;
    return write("IsLookingAtRobot", processes(Extractor::gazes) ? looks : KRValue()) || changed;
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
        changed = keys_.write("EngagementZones/PeopleInZone" + std::to_string(i + 1), zones[i]) ||
                  changed;
    if (changed)
        broker_->memory().raiseEvent("EngagementZones/PeopleInZonesUpdated", 1);
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
        const std::string key = "EngagementZones/LastMovementsInZone" + std::to_string(i + 1);
        KRValue::Array last;
        if (!zones[i].empty())
            last = {stampOf(broker_->clock()->now()), movements};
        broker_->memory().raiseEvent(key, last);
    }
    if (changed)
        broker_->memory().raiseEvent("EngagementZones/MovementsInZonesUpdated", 1);
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
            broker_->memory().raiseEvent("WavingDetection/PersonWaving", known.id);
        }
    }
}

}  // namespace KR
