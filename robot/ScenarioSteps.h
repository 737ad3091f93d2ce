#pragma once

#include <set>
#include <string>
#include <vector>

#include "robot/Scenario.h"

namespace YAML {
class Node;
}

namespace KR {

/// Reads what happens in a scenario's entries, in the order of the file, and keeps track of who is
/// there. Most of it becomes calls of services, chiefly of "KRWorld":
///
///     Say: TEXT                              a line for whoever reads the output
///     Raise: {KEY: VALUE}                    memory keys are written
///     Pulse: KEY                             a key is written 0 and at once 1
///     Call: {Module: M, Method: m, Args: []} any call
///     Enter: {NAME: PLACE}                   a place is [x, y]: metres ahead and to the left
///     Walk: {NAME: PLACE, or PLACES, or {To: PLACE or PLACES, Speed: m/s}}
///     Look: {NAME: robot, ahead or PLACE}
///     Wave: {NAME: SECONDS}
///     Leave: NAME or [NAME]
///     Move: {Place: PLACE, For: SECONDS, Size: METRES}
///     Lift: up or down
///     Push: front, back, left or right       where it comes from
///     Fall: front or back
///     Heat: {CHAIN or JOINT: °C}
///     Use: {CHAIN or JOINT: LOAD}            0 to 1
///     Posture: NAME
///     Charger: on or off
///     Battery: PERCENT or {Charge: %, Charging: %/h, Draining: %/h}
///     Language: NAME
///     Install: FOLDER or archive, relative to the scenario's
///     Remove: UUID of a package
///
/// Errors are YamlError.
class ScenarioSteps {
public:
    static constexpr double kWalkingSpeed = 1.2;  ///< metres a second, where none is given
    static constexpr double kMovementSize = 0.5;  ///< metres, where none is given

    /// `folder` is the scenario's.
    explicit ScenarioSteps(std::string folder) : folder_(std::move(folder)) {}

    static std::set<std::string> kinds();

    /// Appends what a key of kinds() holds.
    void read(const std::string& kind, const YAML::Node& node, std::vector<ScenarioStep>& steps);

private:
    using Reader = void (ScenarioSteps::*)(const YAML::Node&);
    struct Kind;
    static const std::vector<Kind>& table();

    void say(const YAML::Node& node);
    void raise(const YAML::Node& node);
    void pulse(const YAML::Node& node);
    void call(const YAML::Node& node);
    void enter(const YAML::Node& node);
    void walk(const YAML::Node& node);
    void look(const YAML::Node& node);
    void wave(const YAML::Node& node);
    void leave(const YAML::Node& node);
    void move(const YAML::Node& node);
    void lift(const YAML::Node& node);
    void push(const YAML::Node& node);
    void fall(const YAML::Node& node);
    void heat(const YAML::Node& node);
    void use(const YAML::Node& node);
    void posture(const YAML::Node& node);
    void charger(const YAML::Node& node);
    void battery(const YAML::Node& node);
    void language(const YAML::Node& node);
    void install(const YAML::Node& node);
    void remove(const YAML::Node& node);

    void add(const char* service, const char* method, std::vector<KRValue> arguments);
    std::string presentName(const YAML::Node& node) const;

    const std::string folder_;
    std::set<std::string> present_;
    std::vector<ScenarioStep>* steps_ = nullptr;  ///< where they go, while reading
};

}  // namespace KR
