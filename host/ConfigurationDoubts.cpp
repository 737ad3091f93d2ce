#include "host/ConfigurationDoubts.h"

#include <algorithm>
#include <map>
#include <set>
#include <yaml-cpp/yaml.h>

#include "host/Nearest.h"

namespace KR {

namespace {

using Names = std::vector<std::string>;

/// Names for which another one is looked for that may be meant: each takes a look at every rule.
constexpr std::size_t kMaxSearches = 100;

/// How the names of the actions begin that are made for behaviours. Which ones there will be, no
/// configuration knows.
constexpr const char* kOfPackages = "Action swithFocus to behavior ";

class Doubts {
public:
    explicit Doubts(const ConfigurationReader::Report& report) : report_(report) {}

    void inspect(const YAML::Node& document)
    {
        Names known = configurationKeys();
        known.insert(known.end(), {"Plugins", "ResumeWithin", "ResumeGap"});
        inspectKeys(document, known, "a configuration file");
        const YAML::Node rules = document["AutonomousActions"];
        if (!rules || !rules.IsSequence())
            return;
        for (const YAML::Node& rule : rules)
            inspectName(rule);
        for (const YAML::Node& rule : rules) {
            if (rule.IsMap())
                inspectRule(rule);
        }
    }

private:
    /// `owner` is what has these keys.
    void inspectKeys(const YAML::Node& mapping, const Names& known, const std::string& owner)
    {
        std::set<std::string> seen;
        for (const auto& entry : mapping) {
            const std::string key = entry.first.IsScalar() ? entry.first.Scalar() : "";
            if (!seen.insert(key).second)
                doubt(entry.first, "'" + key + "' is given twice; the first one counts");
            else if (std::find(known.begin(), known.end(), key) == known.end())
                doubt(entry.first, owner + " has no key '" + key + "'" + didYouMean(key, known));
        }
    }

    void inspectName(const YAML::Node& rule)
    {
        const YAML::Node node = rule.IsMap() ? rule["Description"] : YAML::Node();
        if (!node || node.IsSequence() || node.IsMap())
            return;
        const std::string name = node.IsScalar() ? node.Scalar() : "";
        const auto [first, isNew] = lines_.emplace(name, yamlPlace(node).line);
        if (name.empty())
            doubt(node, "the Description is empty");
        else if (isNew)
            names_.push_back(name);
        else
            doubt(node, "the rule of line " + std::to_string(first->second) + " is called '" +
                            name + "', too");
    }

    void inspectRule(const YAML::Node& rule)
    {
        inspectKeys(rule, ruleKeys(), "a rule");
        inspectParameters(rule);
        inspectDeadline(rule["Deadline"]);
        for (const std::string& key : ruleListKeys())
            inspectList(rule[key]);
        const YAML::Node steps = rule["Actions"];
        if (!steps || !steps.IsSequence())
            return;
        for (const YAML::Node& step : steps) {
            if (!step.IsMap())
                continue;
            inspectKeys(step, stepKeys(), "a step");
            inspectParameters(step);
            inspectDeadline(step["Deadline"]);
        }
    }

    void inspectParameters(const YAML::Node& step)
    {
        const YAML::Node name = step["Action"];
        const YAML::Node parameters = step["ActionParameters"];
        if (!name || !name.IsScalar() || !parameters || !parameters.IsMap())
            return;
        const ActionItemType type = actionItemTypeFromName(name.Scalar());
        if (type != ActionItemNone)
            inspectKeys(parameters, parameterKeys(type), name.Scalar());
    }

    void inspectDeadline(const YAML::Node& deadline)
    {
        int seconds = 0;
        if (deadline && YAML::convert<int>::decode(deadline, seconds) && seconds < 1)
            doubt(deadline, "the step fails: its deadline must be 1 second or more");
    }

    void inspectList(const YAML::Node& list)
    {
        if (!list)
            return;
        if (list.IsScalar())
            inspectEntry(list);
        for (const YAML::Node& entry : list) {
            if (list.IsSequence() && entry.IsScalar())
                inspectEntry(entry);
        }
    }

    void inspectEntry(const YAML::Node& entry)
    {
        const std::string& name = entry.Scalar();
        if (lines_.count(name) || name.rfind(kOfPackages, 0) == 0)
            return;
        const bool mayBeSearched = searched_.size() < kMaxSearches || searched_.count(name);
        if (mayBeSearched && !searched_.count(name))
            searched_[name] = didYouMean(name, names_);
        doubt(entry, "no rule is called '" + name + "'" + (mayBeSearched ? searched_[name] : ""));
    }

    void doubt(const YAML::Node& node, const std::string& text)
    {
        const YamlPlace place = yamlPlace(node);
        report_({"", text, place.line, place.column});
    }

    const ConfigurationReader::Report& report_;
    std::map<std::string, std::size_t> lines_;  ///< of the first rule of each name
    Names names_;                               ///< of the rules, in their order
    std::map<std::string, std::string> searched_;
};

}  // namespace

void findConfigurationDoubts(const YAML::Node& document, const ConfigurationReader::Report& report)
{
    Doubts(report).inspect(document);
}

}  // namespace KR
