#include "launchpad/ConfigurationReader.h"

#include <exception>
#include <iterator>
#include <utility>
#include <yaml-cpp/yaml.h>

#include "launchpad/LaunchpadLog.h"
#include "platform/config/ApiWrapper.h"
#include "platform/config/YamlFile.h"

namespace KR {
namespace {

using Keys = std::vector<std::string>;

constexpr const char* kDescription = "Description";
constexpr const char* kCondition = "Condition";
constexpr const char* kActions = "Actions";
constexpr const char* kAction = "Action";
constexpr const char* kActionParameters = "ActionParameters";
constexpr const char* kDeadline = "Deadline";
// Misspelt for good: files in use have them so.
constexpr const char* kExecuteAfterActive = "ExcuteAfterActiveRules";
constexpr const char* kExecuteAfterSimultaneous = "ExecuteAfterIfSimultaniouslyTrue";
constexpr const char* kSkipIfActive = "SkipIfRulesActive";

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

template <class T>
constexpr const char* kExpected = "a text";
template <>
constexpr const char* kExpected<bool> = "true or false";
template <>
constexpr const char* kExpected<int> = "an integer of 32 bits";

/// YAML::BadConversion that says what was expected.
template <class T>
T convert(const YAML::Node& node)
{
    try {
        return node.as<T>();
    } catch (const YAML::BadConversion& e) {
        YAML::BadConversion error(e.mark);
        error.msg += std::string(", expected ") + kExpected<T>;
        throw error;
    }
}

ConfigurationProblem problemAt(const YamlPlace& place, std::string label, std::string text)
{
    return {std::move(label), std::move(text), place.line, place.column};
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
        report(problemAt(yamlPlace(value), kLabel,
                         key + " item must be a list or string. Ignoring it for: " + context));
        return;
    }
    const std::string warning =
        "Itmes under " + key + " must be strings. Ignoring it for: " + context;
    for (const YAML::Node& element : value) {
        if (element.IsScalar())
            out.push_back(element.Scalar());
        else
            report(problemAt(yamlPlace(element), kLabel, warning));
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
            return convert<std::string>(node);
        case Parameter::flag:
            return convert<bool>(node);
        case Parameter::number:
            return convert<int>(node);
    }
    return {};
}

Keys synchronicityKeys()
{
    Keys keys;
    for (const SynchronicityKey& synchronicity : kSynchronicityKeys)
        keys.emplace_back(synchronicity.key);
    return keys;
}

Keys typeNames()
{
    Keys names;
    for (std::int32_t type = ActionItemSwitchFocus; type <= ActionItemUnfreezeChain; ++type)
        names.emplace_back(actionItemTypeName(type));
    return names;
}

/// "one of a, b, c".
std::string listed(const Keys& names)
{
    std::string text = "one of ";
    for (const std::string& name : names)
        text += (&name == &names.front() ? "" : ", ") + name;
    return text;
}

}  // namespace

Keys configurationKeys()
{
    return {"ConfigurationDescription", "ConfigurationVersion", "DialogFocusPolicy",
            "AutonomousActions"};
}

Keys ruleKeys()
{
    Keys keys{kDescription, kCondition, kActions};
    for (const Keys& more : {stepKeys(), ruleListKeys(), synchronicityKeys()})
        keys.insert(keys.end(), more.begin(), more.end());
    return keys;
}

Keys ruleListKeys()
{
    return {kExecuteAfterActive, kExecuteAfterSimultaneous, kSkipIfActive};
}

Keys stepKeys()
{
    return {kAction, kActionParameters, kDeadline};
}

Keys parameterKeys(ActionItemType type)
{
    if (type == ActionItemApiCall)
        return {std::begin(ApiWrapper::kKeys), std::end(ApiWrapper::kKeys)};
    Keys keys;
    for (const Parameter& parameter : kParameters) {
        if (parameter.type == type)
            keys.emplace_back(parameter.key);
    }
    return keys;
}

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
    const YAML::Node description = find(node, kDescription);
    if (!description.IsDefined()) {
        report(yamlPlace(node), "Found an action without Description, skipping");
        return false;
    }
    action.description = convert<std::string>(description);

    const YAML::Node condition = find(node, kCondition);
    if (!condition.IsDefined()) {
        report(yamlPlace(node),
               "Found an action without Condition, skipping: " + action.description);
        return false;
    }
    action.condition = convert<std::string>(condition);

    readTexts(action.executeAfterActiveRules, node, kExecuteAfterActive, action.description,
              report_);
    readTexts(action.skipIfRulesActive, node, kSkipIfActive, action.description, report_);
    for (const SynchronicityKey& synchronicity : kSynchronicityKeys) {
        const YAML::Node value = find(node, synchronicity.key);
        if (value.IsDefined() && convert<bool>(value))
            action.synchronicity |= synchronicity.bit;
    }
    if (action.synchronicity == 0) {
        report(yamlPlace(node),
               "Found an action without execution synchronicity, skipping: " + action.description,
               listed(synchronicityKeys()) + " to be true");
        return false;
    }
    readTexts(action.executeAfterIfSimultaneouslyTrue, node, kExecuteAfterSimultaneous,
              action.description, report_);
    return true;
}

/// The steps; false when the action is to be skipped.
bool ConfigurationReader::readItems(AutonomousAction& action, const YAML::Node& node) const
{
    const YAML::Node list = find(node, kActions);
    if (!(list.IsDefined() && list.IsSequence()) && !find(node, kAction).IsDefined()) {
        report(yamlPlace(node),
               "No Action item or Actions list item, skipping: " + action.description);
        return false;
    }
    const auto items = itemNodes(node);
    if (!items) {
        report(yamlPlace(node),
               "Unexpected error building Actions list item, skipping: " + action.description);
        return false;
    }
    for (const YAML::Node& item : *items) {
        if (auto read = readItem(item, action.description))
            action.items.push_back(std::move(*read));
    }
    if (action.items.empty()) {
        report(yamlPlace(node), action.description + " had no valid actions and was ignored");
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
        report(yamlPlace(node),
               "Found Action item without type inside of: " + description + ", skipping it",
               "a mapping with the key Action");
        return std::nullopt;
    }
    const auto type = convert<std::string>(name);
    const std::string place = type + " inside of: " + description;
    AutonomousActionItem item;
    item.type = actionItemTypeFromName(type);
    if (item.type == ActionItemNone) {
        report(yamlPlace(name), "Found Action item with invalid type: " + place + ", skipping it",
               listed(typeNames()));
        return std::nullopt;
    }
    const bool complete = item.type == ActionItemApiCall ? readApiCall(item, node, place)
                                                         : readParameters(item, node, place);
    if (!complete)
        return std::nullopt;
    // For the host, which knows what a step does; here it is one more parameter.
    const YAML::Node deadline = find(node, kDeadline);
    if (deadline.IsDefined())
        item.parameters[kDeadline] = convert<int>(deadline);
    return item;
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
            report(yamlPlace(node), parameter.missing + place);
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
        report(yamlPlace(node),
               "Found an ApiCall action without ActionParameters, skipping: " + place);
        return false;
    }
    try {
        item.parameters = ApiWrapper(call).exportAutonomousActionParameters();
    } catch (const YamlError& e) {
        report(e.place(), "Skipping: " + place + ": " + e.what());
        return false;
    } catch (const std::exception& e) {
        report(yamlPlace(call), "Skipping: " + place + ": " + e.what());
        return false;
    }
    return true;
}

void ConfigurationReader::report(const YamlPlace& place, const std::string& text,
                                 const std::string& expected) const
{
    ConfigurationProblem problem = problemAt(place, "loadConfigFile", text);
    problem.expected = expected;
    report_(problem);
}

YAML::Node loadConfigurationDocument(const std::string& path)
{
    YAML::Node document = loadYamlFile(path, kMaxConfigFileBytes);
    if (!document.IsMap())
        throw YamlFileError<YAML::RepresentationException>(
            path, {document.Mark(), "a configuration is a mapping"});
    return document;
}

std::string configurationText(const YAML::Node& document, const std::string& key)
{
    return convert<std::string>(document[key]);
}

void readYamlStringOrListOfStrings(std::vector<std::string>& out, const YAML::Node& node,
                                   const std::string& key, const std::string& context)
{
    readTexts(out, node, key, context, [](const ConfigurationProblem& problem) {
        launchpadLog.warning(problem.label, problem.text);
    });
}

}  // namespace KR
