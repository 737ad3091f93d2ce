#include "robot/ScenarioSteps.h"

#include <algorithm>
#include <filesystem>
#include <yaml-cpp/yaml.h>

#include "platform/kr/KRError.h"
#include "robot/KRRobotPosture.h"
#include "robot/KRTextToSpeech.h"
#include "robot/KRWorld.h"
#include "robot/ScenarioYaml.h"
#include "robot/SimulatedBattery.h"

namespace KR {

namespace {

constexpr const char* kLifeKeyPrefix = "Nimbra/";
constexpr const char* kWorld = KRWorld::kName;
constexpr const char* kBattery = "KRBattery";
constexpr const char* kPackages = "PackageManager";

/// Has what a service would refuse refused here, with the place.
template <class Check>
auto checked(const YAML::Node& node, const Check& check)
{
    try {
        return check();
    } catch (const KRError& e) {
        failAt(node, e.getDescription());
    }
}

std::string keyOf(const YAML::Node& node)
{
    std::string key = yamlText(node, "a memory key");
    if (key.empty())
        failAt(node, "a memory key must not be empty");
    if (key.rfind(kLifeKeyPrefix, 0) == 0)
        failAt(node, "'" + key + "' is written by the life service: Call KRNimbra instead");
    return key;
}

Place placeOf(const YAML::Node& node)
{
    return checked(node, [&] { return KRWorld::placeFrom(yamlReading(node), ""); });
}

KRValue placeValue(Place place)
{
    return KRValue::Array{place.x, place.y};
}

/// One place, or several.
std::vector<Place> placesOf(const YAML::Node& node)
{
    const bool areSeveral = node.IsSequence() && (node.size() == 0 || node[0].IsSequence());
    if (!areSeveral)
        return {placeOf(node)};
    std::vector<Place> places;
    for (const YAML::Node& place : node)
        places.push_back(placeOf(place));
    return places;
}

bool isFirst(const YAML::Node& node, const char* what, const char* first, const char* second)
{
    const std::string text = yamlText(node, what);
    if (text != first && text != second)
        failAt(node, std::string(what) + " is " + first + " or " + second);
    return text == first;
}

}  // namespace

struct ScenarioSteps::Kind {
    const char* name;
    Reader read;
};

const std::vector<ScenarioSteps::Kind>& ScenarioSteps::table()
{
    using This = ScenarioSteps;
    static const std::vector<Kind> table{
        {"Say", &This::say},         {"Raise", &This::raise},       {"Pulse", &This::pulse},
        {"Call", &This::call},       {"Enter", &This::enter},       {"Walk", &This::walk},
        {"Look", &This::look},       {"Wave", &This::wave},         {"Leave", &This::leave},
        {"Move", &This::move},       {"Lift", &This::lift},         {"Push", &This::push},
        {"Fall", &This::fall},       {"Heat", &This::heat},         {"Use", &This::use},
        {"Posture", &This::posture}, {"Charger", &This::charger},   {"Battery", &This::battery},
        {"Install", &This::install}, {"Language", &This::language}, {"Remove", &This::remove}};
    return table;
}

std::set<std::string> ScenarioSteps::kinds()
{
    std::set<std::string> names;
    for (const Kind& kind : table())
        names.insert(kind.name);
    return names;
}

void ScenarioSteps::read(const std::string& kind, const YAML::Node& node,
                         std::vector<ScenarioStep>& steps)
{
    steps_ = &steps;
    for (const Kind& known : table()) {
        if (known.name == kind)
            (this->*known.read)(node);
    }
}

void ScenarioSteps::add(const char* service, const char* method, std::vector<KRValue> arguments)
{
    const std::map<std::string, KRValue> parameters{
        {"Module", service}, {"Method", method}, {"Args", std::move(arguments)}};
    steps_->push_back({ScenarioStep::Kind::call, {}, {}, ApiWrapper(parameters)});
}

std::string ScenarioSteps::presentName(const YAML::Node& node) const
{
    std::string name = yamlText(node, "a name");
    if (!present_.count(name))
        failAt(node, "'" + name + "' is not here: nobody of that name has entered");
    return name;
}

void ScenarioSteps::say(const YAML::Node& node)
{
    steps_->push_back({ScenarioStep::Kind::say, yamlText(node, "Say"), {}, {}});
}

void ScenarioSteps::raise(const YAML::Node& node)
{
    if (!node.IsMap())
        failAt(node, "Raise must be a mapping of keys to values");
    for (const auto& pair : node)
        steps_->push_back(
            {ScenarioStep::Kind::raise, keyOf(pair.first), yamlReading(pair.second), {}});
}

void ScenarioSteps::pulse(const YAML::Node& node)
{
    const std::string key = keyOf(node);
    steps_->push_back({ScenarioStep::Kind::raise, key, KRValue(0), {}});
    steps_->push_back({ScenarioStep::Kind::raise, key, KRValue(1), {}});
}

void ScenarioSteps::call(const YAML::Node& node)
{
    steps_->push_back({ScenarioStep::Kind::call, {}, {}, ApiWrapper(node)});
}

void ScenarioSteps::enter(const YAML::Node& node)
{
    checkYamlNames(node, "Enter must be a mapping of names to places");
    for (const auto& pair : node) {
        const std::string name = yamlText(pair.first, "a name");
        checked(pair.first, [&] { World::checkName(name, ""); });
        if (present_.size() == World::kMaxPersons)
            failAt(pair.first,
                   "more than " + std::to_string(World::kMaxPersons) + " people do not fit in");
        if (!present_.insert(name).second)
            failAt(pair.first, "'" + name + "' is here already");
        const Place place = placeOf(pair.second);
        add(kWorld, "enter", {name, place.x, place.y});
    }
}

void ScenarioSteps::walk(const YAML::Node& node)
{
    checkYamlNames(node, "Walk must be a mapping of names to places");
    for (const auto& pair : node) {
        const std::string name = presentName(pair.first);
        YAML::Node to = pair.second;
        double speed = kWalkingSpeed;
        if (pair.second.IsMap()) {
            checkYamlKeys(pair.second, {"To", "Speed"});
            to.reset(requiredYaml(pair.second, "To"));
            if (const YAML::Node given = pair.second["Speed"])
                speed = yamlNumber(given, "Speed");
        }
        const std::vector<Place> places = placesOf(to);
        checked(pair.second, [&] { World::checkWalk(places, speed, ""); });
        KRValue::Array through;
        std::transform(places.begin(), places.end(), std::back_inserter(through), placeValue);
        add(kWorld, "walk", {name, through, speed});
    }
}

void ScenarioSteps::look(const YAML::Node& node)
{
    checkYamlNames(node, "Look must be a mapping of names to robot, ahead or places");
    for (const auto& pair : node) {
        const std::string name = presentName(pair.first);
        if (pair.second.IsScalar()) {
            const bool atRobot = isFirst(pair.second, "where somebody looks", "robot", "ahead");
            add(kWorld, "look", {name, atRobot ? "robot" : "ahead"});
        } else {
            add(kWorld, "look", {name, placeValue(placeOf(pair.second))});
        }
    }
}

void ScenarioSteps::wave(const YAML::Node& node)
{
    checkYamlNames(node, "Wave must be a mapping of names to seconds");
    for (const auto& pair : node) {
        const std::string name = presentName(pair.first);
        const double seconds = yamlNumber(pair.second, "a time in seconds");
        checked(pair.second, [&] { World::checkSeconds(seconds, ""); });
        add(kWorld, "wave", {name, seconds});
    }
}

void ScenarioSteps::leave(const YAML::Node& node)
{
    std::vector<YAML::Node> names(node.begin(), node.end());
    if (!node.IsSequence())
        names = {node};
    if (names.empty())
        failAt(node, "Leave needs a name");
    for (const YAML::Node& each : names) {
        const std::string name = presentName(each);
        present_.erase(name);
        add(kWorld, "leave", {name});
    }
}

void ScenarioSteps::move(const YAML::Node& node)
{
    checkYamlNames(node, "Move must be a mapping with Place and For");
    checkYamlKeys(node, {"Place", "For", "Size"});
    const Place place = placeOf(requiredYaml(node, "Place"));
    const double seconds = yamlNumber(requiredYaml(node, "For"), "For");
    const double size = node["Size"] ? yamlNumber(node["Size"], "Size") : kMovementSize;
    checked(node, [&] {
        World::checkSeconds(seconds, "");
        World::checkSize(size, "");
    });
    add(kWorld, "move", {place.x, place.y, seconds, size});
}

void ScenarioSteps::lift(const YAML::Node& node)
{
    add(kWorld, "lift", {isFirst(node, "Lift", "up", "down")});
}

void ScenarioSteps::push(const YAML::Node& node)
{
    const std::string from = yamlText(node, "Push");
    checked(node, [&] { return KRWorld::sideFrom(from, ""); });
    add(kWorld, "push", {from});
}

void ScenarioSteps::fall(const YAML::Node& node)
{
    add(kWorld, "fall", {isFirst(node, "Fall", "front", "back") ? "front" : "back"});
}

void ScenarioSteps::heat(const YAML::Node& node)
{
    checkYamlNames(node, "Heat must be a mapping of chains or joints to degrees Celsius");
    for (const auto& pair : node) {
        const std::string part = yamlText(pair.first, "a chain or joint");
        const double celsius = yamlNumber(pair.second, "a temperature");
        checked(pair.first, [&] { Body::checkPart(part, ""); });
        checked(pair.second, [&] { Body::checkHeat(celsius, ""); });
        add(kWorld, "heat", {part, celsius});
    }
}

void ScenarioSteps::use(const YAML::Node& node)
{
    checkYamlNames(node, "Use must be a mapping of chains or joints to loads");
    for (const auto& pair : node) {
        const std::string part = yamlText(pair.first, "a chain or joint");
        const double load = yamlNumber(pair.second, "a load");
        checked(pair.first, [&] { Body::checkPart(part, ""); });
        checked(pair.second, [&] { Body::checkLoad(load, ""); });
        add(kWorld, "use", {part, load});
    }
}

void ScenarioSteps::posture(const YAML::Node& node)
{
    const std::string posture = yamlText(node, "Posture");
    const auto known = Body::postures();
    if (std::find(known.begin(), known.end(), posture) == known.end())
        failAt(node, "there is no posture '" + posture + "'");
    add(KRRobotPosture::kName, "goToPosture", {posture, 1.0});
}

void ScenarioSteps::charger(const YAML::Node& node)
{
    add(kBattery, "connectCharger", {isFirst(node, "Charger", "on", "off")});
}

void ScenarioSteps::battery(const YAML::Node& node)
{
    struct Setting {
        const char* key;
        const char* method;
        double max;
    };
    const auto set = [this](const YAML::Node& value, const Setting& setting) {
        const double number = yamlNumber(value, setting.key);
        if (number < 0 || number > setting.max)
            failAt(value, std::string(setting.key) + " is out of range");
        add(kBattery, setting.method, {number});
    };
    const Setting charge{"Charge", "setCharge", 100};
    if (!node.IsMap()) {
        set(node, charge);
        return;
    }
    checkYamlNames(node, "Battery must be percent, or a mapping");
    checkYamlKeys(node, {"Charge", "Charging", "Draining"});
    for (const Setting& setting :
         {charge, Setting{"Charging", "setChargeRate", SimulatedBattery::kMaxRate},
          Setting{"Draining", "setDischargeRate", SimulatedBattery::kMaxRate}}) {
        if (const YAML::Node value = node[setting.key])
            set(value, setting);
    }
}

void ScenarioSteps::language(const YAML::Node& node)
{
    const std::string language = yamlText(node, "Language");
    if (!KRTextToSpeech::languages().count(language))
        failAt(node, "the language '" + language + "' is not installed");
    add(KRTextToSpeech::kName, "setLanguage", {language});
}

void ScenarioSteps::install(const YAML::Node& node)
{
    const std::string source = yamlText(node, "Install");
    if (source.empty())
        failAt(node, "Install needs a folder or an archive");
    // An absolute path stays what it is.
    const auto path = std::filesystem::path(folder_) / source;
    add(kPackages, "upgrade", {path.lexically_normal().string()});
}

void ScenarioSteps::remove(const YAML::Node& node)
{
    const std::string uuid = yamlText(node, "Remove");
    if (uuid.empty())
        failAt(node, "Remove needs the uuid of a package");
    add(kPackages, "removePkg", {uuid});
}

}  // namespace KR
