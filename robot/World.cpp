#include "robot/World.h"

#include <algorithm>
#include <cmath>

#include "platform/kr/KRError.h"

namespace KR {

namespace {

constexpr Place kRobot{};
constexpr std::size_t kMaxNameBytes = 100;
constexpr double kPersonWidth = 0.5;   // metres
constexpr double kPersonHeight = 1.7;  // metres

[[noreturn]] void fail(const char* method, const std::string& problem)
{
    throw KRError(World::kService, method, problem);
}

/// Written so that NaN is refused too.
void checkRange(double value, double above, double max, const char* method, const char* what)
{
    if (!(value > above && value <= max))
        fail(method, std::string(what) + " is to be above " + std::to_string(int(above)) +
                         " and at most " + std::to_string(int(max)));
}

}  // namespace

vo::Duration fromSeconds(double seconds)
{
    return vo::Duration(std::llround(seconds * 1e6));
}

void World::checkName(const std::string& name, const char* method)
{
    if (name.empty() || name.size() > kMaxNameBytes)
        fail(method, "a person's name has 1 to " + std::to_string(kMaxNameBytes) + " bytes");
}

void World::checkPlace(Place place, const char* method)
{
    if (!(std::abs(place.x) <= kMaxCoordinate && std::abs(place.y) <= kMaxCoordinate))
        fail(method, "a place lies within " + std::to_string(int(kMaxCoordinate)) +
                         " metres of the robot, ahead or behind and to either side");
}

void World::checkWalk(const std::vector<Place>& through, double speed, const char* method)
{
    if (through.empty() || through.size() > kMaxWaypoints)
        fail(method, "a walk goes to 1 to " + std::to_string(kMaxWaypoints) + " places");
    for (const Place& place : through)
        checkPlace(place, method);
    // Slower than a millimetre a second is standing.
    if (!(speed >= 0.001 && speed <= kMaxSpeed))
        fail(method, "the speed is to be from 0.001 to " + std::to_string(int(kMaxSpeed)) +
                         " metres a second");
}

void World::checkSeconds(double seconds, const char* method)
{
    checkRange(seconds, 0, kMaxSeconds, method, "the time in seconds");
}

void World::checkSize(double size, const char* method)
{
    checkRange(size, 0, kMaxCoordinate, method, "the size in metres");
}

World::Somebody& World::find(const std::string& name, const char* method)
{
    for (Somebody& somebody : people_) {
        if (somebody.name == name)
            return somebody;
    }
    fail(method, "'" + name + "' is not here");
}

void World::enter(const std::string& name, Place place, vo::Duration now)
{
    checkName(name, "enter");
    checkPlace(place, "enter");
    if (people_.size() == kMaxPersons)
        fail("enter", "more than " + std::to_string(kMaxPersons) + " people do not fit in");
    for (const Somebody& somebody : people_) {
        if (somebody.name == name)
            fail("enter", "'" + name + "' is here already");
    }
    Somebody somebody;
    somebody.name = name;
    somebody.from = place;
    somebody.begin = now;
    somebody.facing = directionTo(place, kRobot);
    somebody.wavesUntil = now;
    people_.push_back(std::move(somebody));
}

void World::walk(const std::string& name, const std::vector<Place>& through, double speed,
                 vo::Duration now)
{
    checkWalk(through, speed, "walk");
    Somebody& somebody = find(name, "walk");
    const Stand stand = standOf(somebody, now);
    somebody.from = stand.place;
    somebody.facing = stand.facing;
    somebody.begin = now;
    somebody.walk.clear();
    Place last = stand.place;
    double seconds = 0;
    for (const Place& place : through) {
        seconds += distanceBetween(last, place) / speed;
        somebody.walk.push_back({place, now + fromSeconds(seconds)});
        last = place;
    }
}

void World::look(const std::string& name, Gaze gaze)
{
    checkPlace(gaze.place, "look");
    find(name, "look").gaze = gaze;
}

void World::wave(const std::string& name, double seconds, vo::Duration now)
{
    checkSeconds(seconds, "wave");
    find(name, "wave").wavesUntil = now + fromSeconds(seconds);
}

void World::leave(const std::string& name)
{
    const Somebody& somebody = find(name, "leave");
    people_.erase(people_.begin() + (&somebody - people_.data()));
}

void World::move(Place place, double seconds, double size, vo::Duration now)
{
    checkPlace(place, "move");
    checkSeconds(seconds, "move");
    checkSize(size, "move");
    const auto isOver = [&](const Something& thing) { return thing.until <= now; };
    things_.erase(std::remove_if(things_.begin(), things_.end(), isOver), things_.end());
    if (things_.size() == kMaxPersons)
        fail("move", "more than " + std::to_string(kMaxPersons) + " things move already");
    things_.push_back({place, size, now + fromSeconds(seconds)});
}

World::Stand World::standOf(const Somebody& somebody, vo::Duration now)
{
    Stand stand{somebody.from, somebody.facing, false};
    vo::Duration begin = somebody.begin;
    for (const Step& step : somebody.walk) {
        const bool isTurn = distanceBetween(stand.place, step.to) > 0;
        if (isTurn)
            stand.facing = directionTo(stand.place, step.to);
        if (now < step.end) {
            const double part = double((now - begin).count()) / double((step.end - begin).count());
            stand.place = {stand.place.x + (step.to.x - stand.place.x) * part,
                           stand.place.y + (step.to.y - stand.place.y) * part};
            stand.walks = true;
            return stand;
        }
        stand.place = step.to;
        begin = step.end;
    }
    return stand;
}

std::vector<Person> World::persons(vo::Duration now) const
{
    std::vector<Person> persons;
    persons.reserve(people_.size());
    for (const Somebody& somebody : people_) {
        const Stand stand = standOf(somebody, now);
        Person person;
        person.name = somebody.name;
        person.distance = distanceBetween(kRobot, stand.place);
        person.direction = directionTo(kRobot, stand.place);
        person.walks = stand.walks;
        person.waves = now < somebody.wavesUntil;
        double gaze = stand.facing;
        if (somebody.gaze.target == Gaze::Target::robot)
            gaze = directionTo(stand.place, kRobot);
        else if (somebody.gaze.target == Gaze::Target::place)
            gaze = directionTo(stand.place, somebody.gaze.place);
        person.looksAtRobot =
            angleBetween(gaze, directionTo(stand.place, kRobot)) <= kGazeTolerance;
        persons.push_back(std::move(person));
    }
    return persons;
}

std::vector<Movement> World::movements(vo::Duration now) const
{
    std::vector<Movement> movements;
    for (const Person& person : persons(now)) {
        if (person.walks || person.waves)
            movements.push_back({person.distance, person.direction, kPersonWidth, kPersonHeight});
    }
    for (const Something& thing : things_) {
        if (now < thing.until)
            movements.push_back({distanceBetween(kRobot, thing.place),
                                 directionTo(kRobot, thing.place), thing.size, thing.size});
    }
    return movements;
}

bool World::isInMotion(vo::Duration now) const
{
    const auto moves = [&](const Somebody& somebody) {
        return now < somebody.wavesUntil ||
               (!somebody.walk.empty() && now < somebody.walk.back().end);
    };
    return std::any_of(people_.begin(), people_.end(), moves) ||
           std::any_of(things_.begin(), things_.end(),
                       [&](const Something& thing) { return now < thing.until; });
}

}  // namespace KR
