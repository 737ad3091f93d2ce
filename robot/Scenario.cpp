#include "robot/Scenario.h"

#include <filesystem>
#include <set>
#include <yaml-cpp/yaml.h>

#include "platform/config/YamlFile.h"
#include "robot/ScenarioSteps.h"
#include "robot/ScenarioYaml.h"

namespace KR {

namespace {

using std::chrono::hours;

class ScenarioReader {
public:
    /// What the scenario refers to lies in `folder`.
    explicit ScenarioReader(const std::string& folder) : steps_(folder) {}

    Scenario read(const YAML::Node& document)
    {
        if (!document.IsMap())
            failAt(document, "a scenario is a mapping with Scenario, Start and Timeline");
        checkYamlKeys(document, {"Scenario", "Start", "End", "Timeline"});
        scenario_.title = yamlText(requiredYaml(document, "Scenario"), "Scenario");
        readStart(requiredYaml(document, "Start"));
        const YAML::Node timeline = requiredYaml(document, "Timeline");
        if (!timeline.IsSequence())
            failAt(timeline, "Timeline must be a sequence");
        for (const YAML::Node& entry : timeline)
            readEntry(entry);
        if (const YAML::Node end = document["End"])
            readEnd(end);
        return std::move(scenario_);
    }

private:
    void readStart(const YAML::Node& node)
    {
        const auto start = parseDateTime(yamlText(node, "Start"));
        if (!start)
            failAt(node, "Start must be a date and time like 2026-11-21 06:00:00");
        scenario_.start = latest_ = *start;
    }

    void readEnd(const YAML::Node& node)
    {
        const std::string text = yamlText(node, "End");
        const auto date = parseDateTime(text);
        const vo::TimePoint end = date ? *date : timeOf(node, text, "End");
        if (end < latest_)
            failAt(node, "End lies before the last entry of the Timeline");
        if (end - scenario_.start > hours(24) * kMaxScenarioDays)
            failAt(node, "a scenario takes " + std::to_string(kMaxScenarioDays) + " days at most");
        scenario_.end = end;
    }

    vo::TimePoint timeOf(const YAML::Node& node, const std::string& text, const std::string& what)
    {
        const auto time = parseDayTime(text);
        if (!time)
            failAt(node, what + " must be a time like \"07:30\", \"07:30:15.250\" or \"2 07:30\"");
        const vo::TimePoint midnight = midnightOf(scenario_.start);
        day_ = time->day.value_or(day_);
        return midnight + time->sinceFirstMidnight(day_);
    }

    void readEntry(const YAML::Node& node)
    {
        if (!node.IsMap())
            failAt(node, "an entry of the Timeline is a mapping");
        std::set<std::string> known = ScenarioSteps::kinds();
        known.insert("At");
        checkYamlKeys(node, known);
        const YAML::Node at = requiredYaml(node, "At");
        ScenarioEntry entry;
        entry.time = timeOf(at, yamlText(at, "At"), "At");
        if (entry.time < scenario_.start)
            failAt(at, "At lies before the Start");
        if (entry.time < latest_)
            failAt(at, "At lies before the entry above it (another day is written \"2 07:30\")");
        latest_ = entry.time;
        if (node.size() == 1)
            failAt(node, "an entry needs something that happens");
        for (const auto& pair : node) {
            if (pair.first.Scalar() != "At")
                steps_.read(pair.first.Scalar(), pair.second, entry.steps);
        }
        scenario_.timeline.push_back(std::move(entry));
    }

    ScenarioSteps steps_;
    Scenario scenario_;
    vo::TimePoint latest_;
    int day_ = 1;
};

}  // namespace

std::vector<std::string> Scenario::keys() const
{
    std::set<std::string> keys;
    for (const ScenarioEntry& entry : timeline) {
        for (const ScenarioStep& step : entry.steps) {
            if (step.kind == ScenarioStep::Kind::raise)
                keys.insert(step.text);
        }
    }
    return {keys.begin(), keys.end()};
}

Scenario loadScenario(const std::string& path)
{
    try {
        const auto folder = std::filesystem::absolute(path).parent_path();
        return ScenarioReader(folder).read(loadYamlFile(path, kMaxScenarioBytes));
    } catch (const YamlError& e) {
        throw ScenarioError(textInFile(path, e.place(), e.what()));
    } catch (const YAML::Exception& e) {
        throw ScenarioError(textInFile(path, yamlPlace(e.mark), e.msg));
    } catch (const std::exception& e) {
        throw ScenarioError(textInFile(path, {}, e.what()));
    }
}

}  // namespace KR
