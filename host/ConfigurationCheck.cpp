#include "host/ConfigurationCheck.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <tuple>
#include <yaml-cpp/yaml.h>

#include "host/ConfigurationDoubts.h"
#include "host/DurationCheck.h"
#include "host/KeyCheck.h"
#include "host/KnownRobot.h"
#include "launchpad/NimbraLaunchpad.h"
#include "platform/conditions/ConditionParser.h"
#include "platform/config/Configurator.h"
#include "platform/config/YamlFile.h"
#include "timeline/Text.h"

namespace KR {

namespace {

/// The major version of configuration files that the launchpad reads.
constexpr int kSupportedVersion = 2;

/// Of the texts of a report. Each repeats names from the file, which may be long, and so together
/// they could be as large as the file squared.
constexpr std::size_t kMaxReportBytes = 16UL * 1024 * 1024;

class Inspection {
public:
    Inspection(const std::string& path, const KeyCatalogue* keys) : path_(path), keys_(keys) {}

    ConfigurationReport run()
    {
        try {
            const YAML::Node document = loadConfigurationDocument(path_);
            inspect(document);
            if (keys_)
                inspectDoubts(document);
        } catch (const YAML::BadFile& e) {
            throw UnreadableFile(e.what());
        } catch (const YAML::Exception& e) {
            fail(yamlPlace(e.mark), e.msg);
        } catch (const Enough&) {
            report_.isCut = true;
        }
        for (auto* problems : {&report_.problems, &report_.warnings})
            putInOrder(*problems);
        return std::move(report_);
    }

private:
    /// The report is as large as it may be.
    struct Enough {};

    /// What several rules share by an alias is the same problem.
    static void putInOrder(std::vector<ConfigurationProblem>& problems)
    {
        const auto keyOf = [](const auto& a) { return std::tie(a.line, a.column, a.text); };
        std::sort(problems.begin(), problems.end(),
                  [&](const auto& a, const auto& b) { return keyOf(a) < keyOf(b); });
        const auto last =
            std::unique(problems.begin(), problems.end(),
                        [&](const auto& a, const auto& b) { return keyOf(a) == keyOf(b); });
        problems.erase(last, problems.end());
    }

    void inspect(const YAML::Node& document)
    {
        try {
            Configurator::verifyConfigFileVersionCompatible(nullptr, document, kSupportedVersion);
        } catch (const YamlError& e) {
            fail(e.place(), e.what());
        }
        for (const char* key : {"ConfigurationDescription", "ConfigurationVersion"})
            requireText(document, key);
        const YAML::Node policy = document["DialogFocusPolicy"];
        if (policy && !policy.IsScalar()) {
            const std::string text = "DialogFocusPolicy must be a text";
            // Without rules it is not read.
            if (document["AutonomousActions"])
                fail(yamlPlace(policy), text);
            else
                add(yamlPlace(policy), text);
        }
        inspectPlugins(document["Plugins"]);
        inspectSeconds(document, "ResumeWithin", report_.resume.within);
        inspectSeconds(document, "ResumeGap", report_.resume.gap);
        inspectActions(document);
    }

    void inspectSeconds(const YAML::Node& document, const char* key, vo::Duration& duration)
    {
        const YAML::Node node = document[key];
        std::uint32_t seconds = 0;
        if (!node)
            return;
        if (node.IsScalar() && node.Scalar().front() != '-' &&
            YAML::convert<std::uint32_t>::decode(node, seconds))
            duration = std::chrono::seconds(seconds);
        else
            add(yamlPlace(node), std::string(key) + " must be a whole number of seconds");
    }

    void inspectPlugins(const YAML::Node& plugins)
    {
        if (!plugins || plugins.IsNull())
            return;
        if (!plugins.IsSequence()) {
            add(yamlPlace(plugins), "Plugins must be a sequence");
            return;
        }
        const std::vector<std::string> known = NimbraLaunchpad::addableModulePlugins();
        for (const YAML::Node& plugin : plugins) {
            const std::string name = plugin.IsScalar() ? plugin.Scalar() : "";
            if (std::find(known.begin(), known.end(), name) == known.end())
                add(yamlPlace(plugin), "there is no plugin '" + name + "' to add");
            else
                report_.plugins.push_back(name);
        }
    }

    void requireText(const YAML::Node& document, const std::string& key)
    {
        const YAML::Node node = document[key];
        if (!node) {
            if (key != "ConfigurationVersion")  // the version check has said so
                fail(yamlPlace(document), key + " is missing");
        } else if (!node.IsScalar()) {
            fail(yamlPlace(node), key + " must be a text");
        }
    }

    void inspectActions(const YAML::Node& document)
    {
        const YAML::Node actions = document["AutonomousActions"];
        if (!actions) {
            add(yamlPlace(document), "No AutonomousActions found in config file, skipping.");
            return;
        }
        if (!actions.IsSequence()) {
            if (!actions.IsNull())
                add(yamlPlace(actions), "AutonomousActions must be a sequence");
            return;
        }
        const ConfigurationReader reader(
            [this](const ConfigurationProblem& problem) { add(report_.problems, problem); });
        bool isLoading = true;
        for (const YAML::Node& node : actions) {
            try {
                if (auto action = reader.readAction(node)) {
                    inspectCondition(*action, node["Condition"]);
                    if (isLoading)
                        report_.rules.push_back(std::move(*action));
                }
            } catch (const YAML::Exception& e) {
                // The rest is still worth a look.
                fail(yamlPlace(e.mark), e.msg + ": loading stops here");
                isLoading = false;
            }
        }
    }

    void inspectCondition(const AutonomousAction& action, const YAML::Node& node)
    {
        if (action.condition.empty()) {
            add(yamlPlace(node), "the condition of '" + action.description + "' is empty");
            return;
        }
        try {
            const Expression condition = parseCondition(action.condition);
            if (keys_) {
                warn(action, keyDoubts(condition, *keys_), node);
                warn(action, durationDoubts(condition, *keys_), node);
            }
        } catch (const ConditionSyntaxError& e) {
            const auto [line, column] = e.line() == 1
                                            ? placeInFile(node.Mark(), action.condition, e.column())
                                            : std::pair<std::size_t, std::size_t>();
            const std::string text =
                "the condition of '" + action.description + "' does not parse: ";
            if (line == 0)
                add(yamlPlace(node), text + "at its " + e.what());
            else
                add(report_.problems, {"", text + e.problem(), line, column});
        }
    }

    void inspectDoubts(const YAML::Node& document)
    {
        findConfigurationDoubts(document, [this](const ConfigurationProblem& problem) {
            add(report_.warnings, problem);
        });
        const YamlPlace end = endOfYamlDocument(path_, kMaxConfigFileBytes);
        if (end.line != 0)
            add(report_.warnings, {"", "the document ends above; from here on nothing is read",
                                   end.line, end.column});
    }

    void warn(const AutonomousAction& action, const std::vector<KeyDoubt>& doubts,
              const YAML::Node& node)
    {
        for (const KeyDoubt& doubt : doubts) {
            const std::size_t at = action.condition.find("'" + doubt.key + "'");
            auto [line, column] = placeInFile(node.Mark(), action.condition, at + 1);
            if (line == 0)
                std::tie(line, column) = std::pair(yamlPlace(node).line, yamlPlace(node).column);
            add(report_.warnings,
                {"", "the condition of '" + action.description + "': " + doubt.text, line, column});
        }
    }

    /// Where in the file a column of a condition's first line is, if the condition stands there as
    /// it is: without escapes before that place. {0, 0} otherwise.
    std::pair<std::size_t, std::size_t> placeInFile(const YAML::Mark& mark,
                                                    const std::string& condition,
                                                    std::size_t column)
    {
        if (mark.is_null())
            return {0, 0};
        readLines();
        const auto index = static_cast<std::size_t>(mark.line);
        auto begin = static_cast<std::size_t>(mark.column);
        if (index >= lines_.size() || begin >= lines_[index].size())
            return {0, 0};
        const std::string& line = lines_[index];
        if (line[begin] == '"' || line[begin] == '\'')
            ++begin;
        const std::string before = condition.substr(0, column - 1);
        if (line.compare(begin, before.size(), before) != 0)
            return {0, 0};
        return {index + 1, begin + column};
    }

    /// Once, and only for a file that has a condition to complain of.
    void readLines()
    {
        if (!lines_.empty())
            return;
        std::ifstream in(path_, std::ios::binary);
        for (std::string line; std::getline(in, line);)
            lines_.push_back(line);
    }

    /// The same, for what makes loading fail.
    void fail(const YamlPlace& place, const std::string& text)
    {
        if (report_.failure.empty())
            report_.failure = textInFile(path_, place, text);
        add(place, text);
    }

    /// What concerns the file as a whole stands at its beginning.
    void add(const YamlPlace& place, const std::string& text)
    {
        add(report_.problems, {"", text, std::max<std::size_t>(place.line, 1),
                               std::max<std::size_t>(place.column, 1)});
    }

    void add(std::vector<ConfigurationProblem>& problems, const ConfigurationProblem& problem)
    {
        bytes_ += problem.text.size();
        if (bytes_ > kMaxReportBytes)
            throw Enough();
        problems.push_back(problem);
    }

    const std::string path_;
    const KeyCatalogue* const keys_;
    std::vector<std::string> lines_;
    std::size_t bytes_ = 0;  ///< of the report's texts
    ConfigurationReport report_;
};

void print(const std::string& path, const std::vector<ConfigurationProblem>& problems,
           const std::string& kind)
{
    for (const ConfigurationProblem& problem : problems) {
        const std::string text =
            problem.text + (problem.expected.empty() ? "" : "; expected " + problem.expected);
        std::cout << printable(textInFile(path, {problem.line, problem.column}, kind + text))
                  << "\n";
    }
}

int checkConfigurations(std::vector<std::string> paths)
{
    std::sort(paths.begin(), paths.end());
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    const KnownRobot robot;
    bool hasProblems = false;
    bool hasUnreadable = false;
    for (const std::string& path : paths) {
        try {
            const ConfigurationReport report = inspectConfiguration(path, &robot.keys());
            print(path, report.problems, "");
            print(path, report.warnings, "warning: ");
            if (report.isCut)
                std::cout << printable(textInFile(path, {}, "there is more than is told here"))
                          << "\n";
            hasProblems = hasProblems || !report.problems.empty() || report.isCut;
        } catch (const UnreadableFile& e) {
            std::cerr << "nimbra: " << printable(e.what()) << "\n";
            hasUnreadable = true;
        }
    }
    std::cout.flush();
    return hasUnreadable ? 2 : hasProblems ? 1 : 0;
}

}  // namespace

std::vector<std::string> ConfigurationReport::ruleNames() const
{
    std::vector<std::string> names;
    for (const AutonomousAction& rule : rules)
        names.push_back(rule.description);
    return names;
}

ConfigurationReport inspectConfiguration(const std::string& path, const KeyCatalogue* keys)
{
    return Inspection(path, keys).run();
}

void addCheckCommand(const Command& program)
{
    const Command check =
        program.add("check", "Name the mistakes in configuration files; run nothing");
    const auto files = std::make_shared<std::vector<std::string>>();
    check.texts("FILE", *files, "", "Configuration files").required();
    check.perform([files] { return checkConfigurations(*files); });
}

}  // namespace KR
