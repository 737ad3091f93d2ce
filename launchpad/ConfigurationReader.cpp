#include "launchpad/ConfigurationReader.h"

#include <exception>
#include <utility>
#include <yaml-cpp/yaml.h>

#include "platform/config/ApiWrapper.h"
#include "platform/config/YamlFile.h"
#include "platform/vo/Log.h"

namespace KR {
namespace {

const vo::Logger kLog("NimbraLaunchpad");

constexpr const char* kActions = "Actions";
constexpr const char* kAction = "Action";
constexpr const char* kActionParameters = "ActionParameters";

struct SynchronicityKey {
    const char* key;
    ExecutionSynchronicity bit;
};
constexpr SynchronicityKey kSynchronicityKeys[] = {
    {"ExecuteAnyTimeConditionTrue", ExecuteAnyTimeConditionTrue},
    {"ExecuteAnyTimeConditionEdgeTrue", ExecuteAnyTimeConditionEdgeTrue},
    {"ExecuteBeforeActivityIfConditionTrue", ExecuteBeforeActivityIfConditionTrue}};

struct Parameter {
    ActionItemType type;
    enum Kind { text, flag, number } kind;
    const char* key;
    const char* missing;  ///< the warning when it is absent; null for an optional parameter
};
/// In the order in which they are read.
constexpr Parameter kParameters[] = {
    {ActionItemSetState, Parameter::text, "State",
     "Found a SetState action without State parameter, skipping: "},
    {ActionItemSetState, Parameter::flag, "Force", nullptr},
    {ActionItemSwitchFocus, Parameter::text, "Activity",
     "Found a SwitchFocus action without Activity parameter, skipping: "},
    {ActionItemSwitchFocus, Parameter::number, "Flags", nullptr},
    {ActionItemSwitchFocus, Parameter::text, "Reason", nullptr},
    {ActionItemStopFocus, Parameter::text, "Reason", nullptr},
    {ActionItemStopAll, Parameter::text, "Reason", nullptr},
    {ActionItemSetConfiguration, Parameter::text, "Module",
     "Found a SetConfiguration action without module parameter, skipping: "},
    {ActionItemSetConfiguration, Parameter::text, "ConfigurationSet",
     "Found a SetConfiguration action without ConfigurationSet parameter, skipping: "},
    {ActionItemFreezeChain, Parameter::text, "Chain",
     "Found a FreezeChain/UnfreezeChain action without Chain parameter, skipping: "},
    {ActionItemUnfreezeChain, Parameter::text, "Chain",
     "Found a FreezeChain/UnfreezeChain action without Chain parameter, skipping: "},
    {ActionItemFreezeChain, Parameter::number, "Duration", nullptr}};

/// What stands under a key; an undefined node when nothing does or `node` is no mapping.
YAML::Node find(const YAML::Node& node, const std::string& key)
{
    return node.IsDefined() && node.IsMap() ? node[key] : YAML::Node(YAML::NodeType::Undefined);
}

ConfigurationProblem problemAt(const YAML::Node& node, std::string label, std::string text)
{
    ConfigurationProblem problem{std::move(label), std::move(text)};
    if (node.IsDefined() && !node.Mark().is_null()) {
        problem.line = static_cast<std::size_t>(node.Mark().line) + 1;
        problem.column = static_cast<std::size_t>(node.Mark().column) + 1;
    }
    return problem;
}

void readTexts(std::vector<std::string>& out, const YAML::Node& node, const std::string& key,
               const std::string& context, const ConfigurationReader::Report& report)
{
    constexpr const char* kLabel = "readYamlStringOrListOfStrings";
    const YAML::Node value = find(node, key);
    if (!value.IsDefined())
        return;
    if (value.IsScalar()) {
        out.push_back(value.Scalar());
        return;
    }
    if (!value.IsSequence()) {
        report(problemAt(value, kLabel,
                         key + " item must be a list or string. Ignoring it for: " + context));
        return;
    }
    const std::string warning =
        "Itmes under " + key + " must be strings. Ignoring it for: " + context;
    for (const YAML::Node& element : value) {
        if (element.IsScalar())
            out.push_back(element.Scalar());
        else
            report(problemAt(element, kLabel, warning));
    }
}

/// The steps of an action: the elements of "Actions", then the action itself when its own "Action"
/// makes it a step as well. Nothing when it has neither key.
std::optional<std::vector<YAML::Node>> itemNodes(const YAML::Node& action)
{
    const YAML::Node list = find(action, kActions);
    const bool isItem = find(action, kAction).IsDefined();
    if (!list.IsDefined() && !isItem)
        return std::nullopt;
    std::vector<YAML::Node> items;
    if (list.IsDefined() && !list.IsSequence())
        return items;
    for (const YAML::Node& item : list)
        items.push_back(item);
    if (isItem)
        items.push_back(action);
    return items;
}

KRValue readParameter(const YAML::Node& node, Parameter::Kind kind)
{
    switch (kind) {
        case Parameter::text:
            return node.as<std::string>();
        case Parameter::flag:
            return node.as<bool>();
        case Parameter::number:
            return node.as<int>();
    }
    return {};
}

}  // namespace

ConfigurationReader::ConfigurationReader(Report report) : report_(std::move(report)) {}

std::optional<AutonomousAction> ConfigurationReader::readAction(const YAML::Node& node) const
{
    AutonomousAction action;
    action.origin = "LifeConfig";
    if (!readRule(action, node) || !readItems(action, node))
        return std::nullopt;
    return action;
}

/// All but the steps; false when the action is to be skipped.
bool ConfigurationReader::readRule(AutonomousAction& action, const YAML::Node& node) const
{
    const YAML::Node description = find(node, "Description");
    if (!description.IsDefined()) {
        report(node, "Found an action without Description, skipping");
        return false;
    }
    action.description = description.as<std::string>();

    const YAML::Node condition = find(node, "Condition");
    if (!condition.IsDefined()) {
        report(node, "Found an action without Condition, skipping: " + action.description);
        return false;
    }
    action.condition = condition.as<std::string>();

    readTexts(action.executeAfterActiveRules, node, "ExcuteAfterActiveRules", action.description,
              report_);
    readTexts(action.skipIfRulesActive, node, "SkipIfRulesActive", action.description, report_);
    for (const SynchronicityKey& synchronicity : kSynchronicityKeys) {
        const YAML::Node value = find(node, synchronicity.key);
        if (value.IsDefined() && value.as<bool>())
            action.synchronicity |= synchronicity.bit;
    }
    if (action.synchronicity == 0) {
        report(node,
               "Found an action without execution synchronicity, skipping: " + action.description);
        return false;
    }
    readTexts(action.executeAfterIfSimultaneouslyTrue, node, "ExecuteAfterIfSimultaniouslyTrue",
              action.description, report_);
    return true;
}

/// The steps; false when the action is to be skipped.
bool ConfigurationReader::readItems(AutonomousAction& action, const YAML::Node& node) const
{
    const YAML::Node list = find(node, kActions);
    if (!(list.IsDefined() && list.IsSequence()) && !find(node, kAction).IsDefined()) {
        report(node, "No Action item or Actions list item, skipping: " + action.description);
        return false;
    }
    const auto items = itemNodes(node);
    if (!items) {
        report(node,
               "Unexpected error building Actions list item, skipping: " + action.description);
        return false;
    }
    for (const YAML::Node& item : *items) {
        if (auto read = readItem(item, action.description))
            action.items.push_back(std::move(*read));
    }
    if (action.items.empty()) {
        report(node, action.description + " had no valid actions and was ignored");
        return false;
    }
    return true;
}

/// One step; nothing when it is to be skipped.
std::optional<AutonomousActionItem> ConfigurationReader::readItem(
    const YAML::Node& node, const std::string& description) const
{
    const YAML::Node name = find(node, kAction);
    if (!name.IsDefined()) {
        report(node, "Found Action item without type inside of: " + description + ", skipping it");
        return std::nullopt;
    }
    const auto type = name.as<std::string>();
    const std::string place = type + " inside of: " + description;
    AutonomousActionItem item;
    item.type = actionItemTypeFromName(type);
    if (item.type == ActionItemNone) {
        report(name, "Found Action item with invalid type: " + place + ", skipping it");
        return std::nullopt;
    }
    const bool complete = item.type == ActionItemApiCall ? readApiCall(item, node, place)
                                                         : readParameters(item, node, place);
    return complete ? std::optional(std::move(item)) : std::nullopt;
}

/// False when a required parameter is missing; `place` is for the warning.
bool ConfigurationReader::readParameters(AutonomousActionItem& item, const YAML::Node& node,
                                         const std::string& place) const
{
    const YAML::Node values = find(node, kActionParameters);
    for (const Parameter& parameter : kParameters) {
        if (parameter.type != item.type)
            continue;
        const YAML::Node value = find(values, parameter.key);
        if (value.IsDefined()) {
            item.parameters[parameter.key] = readParameter(value, parameter.kind);
        } else if (parameter.missing) {
            report(node, parameter.missing + place);
            return false;
        }
    }
    return true;
}

/// False when the call is missing or malformed; `place` is for the warning.
bool ConfigurationReader::readApiCall(AutonomousActionItem& item, const YAML::Node& node,
                                      const std::string& place) const
{
    const YAML::Node call = find(node, kActionParameters);
    if (!call.IsDefined()) {
        report(node, "Found an ApiCall action without ActionParameters, skipping: " + place);
        return false;
    }
    try {
        item.parameters = ApiWrapper(call).exportAutonomousActionParameters();
    } catch (const std::exception& e) {
        report(call, "Skipping: " + place + ": " + e.what());
        return false;
    }
    return true;
}

void ConfigurationReader::report(const YAML::Node& node, const std::string& text) const
{
    report_(problemAt(node, "loadConfigFile", text));
}

YAML::Node loadConfigurationDocument(const std::string& path)
{
    YAML::Node document = loadYamlFile(path, kMaxConfigFileBytes);
    if (!document.IsMap())
        throw YAML::RepresentationException(document.Mark(),
                                            path + ": a configuration is a mapping");
    return document;
}

void readYamlStringOrListOfStrings(std::vector<std::string>& out, const YAML::Node& node,
                                   const std::string& key, const std::string& context)
{
    readTexts(out, node, key, context, [](const ConfigurationProblem& problem) {
        kLog.warning(problem.label, problem.text);
    });
}

}  // namespace KR
