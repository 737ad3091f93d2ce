#include "host/PackageDescription.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "host/DescriptorCheck.h"
#include "host/Nearest.h"
#include "host/Table.h"
#include "launchpad/NimbraLaunchpad.h"
#include "permission/ContextPermission.h"
#include "platform/conditions/ConditionParser.h"
#include "platform/packages/PackageManifest.h"
#include "plugins/NimbraLaunchpadPluginBehavior.h"
#include "plugins/PluginDescriptor.h"
#include "timeline/Text.h"

namespace KR {

namespace {

namespace fs = std::filesystem;

using Json = nlohmann::ordered_json;
using Role = BehaviorDescription::Role;

const std::string kLaunchTrigger = "launchTrigger";
const std::string kTerminationTrigger = "terminationTrigger";

std::string programProblem(const vo::PackageInfo& package, const vo::BehaviorInfo& behavior)
{
    const std::string name = behavior.path() + "/run";
    const std::string program = (fs::path(package.path()) / name).string();
    std::error_code error;
    if (!fs::is_regular_file(program, error))
        return "there is no file " + name;
    if (::access(program.c_str(), X_OK) != 0)
        return name + " is not executable";
    return {};
}

bool hasPurpose(const BehaviorDescription& description, const std::string& purpose)
{
    const auto& conditions = description.pluginConditions;
    return !description.behavior.conditions(purpose).empty() ||
           std::any_of(conditions.begin(), conditions.end(),
                       [&](const auto& condition) { return condition.first == purpose; });
}

void readDescriptor(const std::string& path, BehaviorDescription& description)
{
    const std::string name =
        (fs::path(description.behavior.path()) / fs::path(path).filename()).string();
    description.problems = checkDescriptor(path, name);
    try {
        PluginDescriptor descriptor = readPluginDescriptor(path);
        description.groups = std::move(descriptor.groups);
        description.pluginConditions = std::move(descriptor.conditions);
    } catch (const PluginDescriptorError&) {
        return;  // the check has told
    }
    const bool launches = hasPurpose(description, kLaunchTrigger);
    if (launches || hasPurpose(description, kTerminationTrigger))
        description.groups = {"conditional"};
    if (!launches && (description.groups.empty() || hasPurpose(description, kTerminationTrigger)))
        description.problems.push_back(name + ": nothing starts the plugin: it has no " +
                                       kLaunchTrigger +
                                       (description.groups.empty() ? " and is in no group" : ""));
}

/// The conditions of the manifest.
void checkConditions(BehaviorDescription& description)
{
    const std::string begin = kPackageManifestFile + std::string(": ");
    for (const auto& [purpose, texts] : description.behavior.conditions()) {
        const bool isKnown = purpose == kLaunchTrigger || purpose == kTerminationTrigger;
        const std::string meant = didYouMean(purpose, {kLaunchTrigger, kTerminationTrigger});
        if (!isKnown && !meant.empty())
            description.problems.push_back(begin + "nothing asks for the condition '" + purpose +
                                           "' of " + description.behavior.path() + meant);
        for (const std::string& text : texts) {
            try {
                parseCondition(text);
            } catch (const ConditionSyntaxError& e) {
                description.problems.push_back(begin + "the condition " + purpose + " of " +
                                               description.behavior.path() +
                                               " does not parse: at its " + e.what());
            }
        }
    }
}

BehaviorDescription describe(const vo::PackageInfo& package, const vo::BehaviorInfo& behavior)
{
    BehaviorDescription description;
    description.key = vo::behaviorKey(package, behavior);
    description.behavior = behavior;
    description.requestable = ContextPermission::isUserRequestable(behavior);
    description.programProblem = programProblem(package, behavior);
    std::string descriptor;
    if (NimbraLaunchpad::isAutonomousActivity(package, behavior)) {
        description.role = Role::activity;
    } else if (NimbraLaunchpadPluginBehavior::isPlugin(package, behavior, nullptr, &descriptor)) {
        description.role = Role::plugin;
        readDescriptor(descriptor, description);
    }
    checkConditions(description);
    return description;
}

std::string roleText(const BehaviorDescription& description)
{
    switch (description.role) {
        case Role::activity:
            return "an activity that launches itself";
        case Role::plugin:
            return "a plugin, groups: " + listText(description.groups);
        case Role::none:
            break;
    }
    return "neither an activity that launches itself nor a plugin";
}

std::string behaviorText(const BehaviorDescription& description)
{
    const vo::BehaviorInfo& behavior = description.behavior;
    std::vector<TableRow> rows{
        {"  becomes", roleText(description)},
        {"  nature", behavior.nature().empty() ? "-" : printable(behavior.nature())},
        {"  permissions", listText(behavior.permissions())},
        {"  requestable", description.requestable ? "yes" : "no"},
        {"  program", description.programProblem.empty()
                          ? "can be started"
                          : "cannot be started: " + printable(description.programProblem)}};
    for (const auto& [purpose, texts] : behavior.conditions())
        for (const std::string& text : texts)
            rows.push_back({"  condition", printable(purpose) + ": " + printable(text)});
    for (const auto& [purpose, text] : description.pluginConditions)
        rows.push_back({"  condition", printable(purpose) + ": " + printable(text)});
    for (const auto& [language, tags] : behavior.languagesToTags())
        rows.push_back({"  tags", printable(language) + ": " + listText(tags)});
    for (const std::string& problem : description.problems)
        rows.push_back({"  problem", printable(problem)});
    return "\n" + printable(description.key) + "\n" + tableText(rows);
}

const char* roleName(Role role)
{
    switch (role) {
        case Role::activity:
            return "activity";
        case Role::plugin:
            return "plugin";
        case Role::none:
            break;
    }
    return "none";
}

Json behaviorJson(const BehaviorDescription& description)
{
    const vo::BehaviorInfo& behavior = description.behavior;
    Json json{{"key", description.key},
              {"path", behavior.path()},
              {"becomes", roleName(description.role)},
              {"nature", behavior.nature()},
              {"permissions", behavior.permissions()},
              {"requestable", description.requestable},
              {"startable", description.programProblem.empty()},
              {"conditions", behavior.conditions()},
              {"tags", behavior.languagesToTags()}};
    if (description.role == Role::plugin) {
        Json conditions = Json::object();
        for (const auto& [purpose, text] : description.pluginConditions)
            conditions[purpose].push_back(text);
        json["plugin"] = {{"groups", description.groups}, {"conditions", std::move(conditions)}};
    }
    std::vector<std::string> problems = description.problems;
    if (!description.programProblem.empty())
        problems.insert(problems.begin(), description.programProblem);
    json["problems"] = std::move(problems);
    return json;
}

}  // namespace

std::vector<BehaviorDescription> describeBehaviors(const vo::PackageInfo& package)
{
    std::vector<BehaviorDescription> descriptions;
    for (const vo::BehaviorInfo& behavior : package.behaviors())
        descriptions.push_back(describe(package, behavior));
    return descriptions;
}

std::string packageText(const vo::PackageInfo& package, const std::string& folder)
{
    std::string text = printable(package.uuid()) + " " + printable(package.version()) + "\n" +
                       tableText({{"  in", printable(folder)},
                                  {"  languages", listText(package.supportedLanguages(), "all")}});
    for (const BehaviorDescription& description : describeBehaviors(package))
        text += behaviorText(description);
    return text;
}

std::string packageJson(const vo::PackageInfo& package, const std::string& folder)
{
    Json json{{"uuid", package.uuid()},
              {"version", package.version()},
              {"folder", folder},
              {"languages", package.supportedLanguages()},
              {"behaviors", Json::array()}};
    for (const BehaviorDescription& description : describeBehaviors(package))
        json["behaviors"].push_back(behaviorJson(description));
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace KR
