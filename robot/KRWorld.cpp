#include "robot/KRWorld.h"

#include <map>

#include "platform/kr/KRError.h"

namespace KR {

KRWorld::KRWorld(const boost::shared_ptr<KRBroker>& broker, std::shared_ptr<Senses> senses,
                 std::shared_ptr<Body> body)
    : KRModule(broker, kName), senses_(std::move(senses)), body_(std::move(body))
{
    setModuleDescription("What happens to the simulated robot and around it");
    bindPeople();
    bindBody();
}

void KRWorld::bindPeople()
{
    const ParameterInfo name{"name", "who"};
    const ParameterInfo x{"x", "metres ahead of the robot"};
    const ParameterInfo y{"y", "metres to its left"};
    const ParameterInfo seconds{"seconds", "for how long"};
    bindMethod("enter", &KRWorld::enter, this, "Somebody comes in", {name, x, y});
    bindMethod("walk", &KRWorld::walk, this, "Somebody walks through places to the last",
               {name, {"places", "[[x, y], ...]"}, {"speed", "metres a second"}});
    bindMethod("look", &KRWorld::look, this, "Where somebody looks",
               {name, {"where", "ahead, robot or [x, y]"}});
    bindMethod("wave", &KRWorld::wave, this, "Somebody waves", {name, seconds});
    bindMethod("leave", &KRWorld::leave, this, "Somebody is gone", {name});
    bindMethod("move", &KRWorld::move, this, "Something moves",
               {x, y, seconds, {"size", "metres"}});
}

void KRWorld::bindBody()
{
    const ParameterInfo part{"part", "a chain or a joint"};
    bindMethod("lift", &KRWorld::lift, this, "Takes the robot off the ground, or puts it down",
               {{"lifted", "which of the two"}});
    bindMethod("push", &KRWorld::push, this, "Pushes the robot",
               {{"from", "front, back, left or right"}});
    bindMethod("fall", &KRWorld::fall, this, "The robot falls", {{"to", "front or back"}});
    bindMethod("heat", &KRWorld::heat, this, "Makes joints as warm as that",
               {part, {"celsius", "-20 to 150"}});
    bindMethod("use", &KRWorld::use, this, "Has joints carry so much from now on",
               {part, {"load", "of the full load, 0 to 1"}});
}

Place KRWorld::placeFrom(const KRValue& value, const char* method)
{
    if (!value.isArray() || value.getSize() != 2 || !value[0].isNumber() || !value[1].isNumber())
        throw KRError(kName, method, "a place is [x, y], in metres");
    const Place place{value[0].toFloat(), value[1].toFloat()};
    World::checkPlace(place, method);
    return place;
}

BodyMotion::Side KRWorld::sideFrom(const std::string& name, const char* method)
{
    static const std::map<std::string, BodyMotion::Side> sides{{"front", BodyMotion::Side::front},
                                                               {"back", BodyMotion::Side::back},
                                                               {"left", BodyMotion::Side::left},
                                                               {"right", BodyMotion::Side::right}};
    const auto side = sides.find(name);
    if (side == sides.end())
        throw KRError(kName, method, "'" + name + "' is not front, back, left or right");
    return side->second;
}

void KRWorld::enter(const std::string& name, double x, double y)
{
    senses_->change([&](World& world, vo::Duration now) { world.enter(name, {x, y}, now); });
}

void KRWorld::walk(const std::string& name, const KRValue& places, double speed)
{
    std::vector<Place> through;
    if (!places.isArray())
        throw KRError(kName, "walk", "places are an array");
    for (const KRValue& place : places.toArray())
        through.push_back(placeFrom(place, "walk"));
    senses_->change([&](World& world, vo::Duration now) { world.walk(name, through, speed, now); });
}

void KRWorld::look(const std::string& name, const KRValue& where)
{
    Gaze gaze;
    if (where == KRValue("robot"))
        gaze.target = Gaze::Target::robot;
    else if (where != KRValue("ahead"))
        gaze = {Gaze::Target::place, placeFrom(where, "look")};
    senses_->change([&](World& world, vo::Duration) { world.look(name, gaze); });
}

void KRWorld::wave(const std::string& name, double seconds)
{
    senses_->change([&](World& world, vo::Duration now) { world.wave(name, seconds, now); });
}

void KRWorld::leave(const std::string& name)
{
    senses_->change([&](World& world, vo::Duration) { world.leave(name); });
}

void KRWorld::move(double x, double y, double seconds, double size)
{
    senses_->change([&](World& world, vo::Duration now) {
        world.move({x, y}, seconds, size, now);
    });
}

void KRWorld::lift(bool lifted)
{
    body_->lift(lifted);
}

void KRWorld::push(const std::string& from)
{
    body_->push(sideFrom(from, "push"));
}

void KRWorld::fall(const std::string& to)
{
    const BodyMotion::Side side = sideFrom(to, "fall");
    if (side != BodyMotion::Side::front && side != BodyMotion::Side::back)
        throw KRError(kName, "fall", "it falls to the front or the back");
    body_->fall(side == BodyMotion::Side::back);
}

void KRWorld::heat(const std::string& chainOrJoint, double celsius)
{
    body_->heat(chainOrJoint, celsius);
}

void KRWorld::use(const std::string& chainOrJoint, double load)
{
    body_->use(chainOrJoint, load);
}

}  // namespace KR
