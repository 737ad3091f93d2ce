#include "host/ConfigurationCheck.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <tuple>
#include <yaml-cpp/yaml.h>

#include "host/KeyCheck.h"
#include "host/KnownRobot.h"
#include "host/Text.h"
#include "launchpad/NimbraLaunchpad.h"
#include "platform/conditions/ConditionParser.h"
#include "platform/config/Configurator.h"

namespace KR {

namespace {

/// The major version of configuration files that the launchpad reads.
constexpr int kSupportedVersion = 2;

class Inspection {
public:
    Inspection(const std::string& path, const KeyCatalogue* keys) : path_(path), keys_(keys) {}

    ConfigurationReport run()
    {
        try {
            inspect(loadConfigurationDocument(path_));
        } catch (const YAML::BadFile& e) {
            throw UnreadableFile(path_ + ": " + withoutPath(e.msg));
        } catch (const YAML::Exception& e) {
            add(e);
        }
        for (auto* problems : {&report_.problems, &report_.warnings}) {
            std::sort(problems->begin(), problems->end(), [](const auto& a, const auto& b) {
                return std::tie(a.line, a.column, a.text) < std::tie(b.line, b.column, b.text);
            });
        }
        return std::move(report_);
    }

private:
    void inspect(const YAML::Node& document)
    {
        try {
            Configurator::verifyConfigFileVersionCompatible(nullptr, document, kSupportedVersion);
        } catch (const std::exception& e) {
            const YAML::Node version = document["ConfigurationVersion"];
            add(version ? version.Mark() : document.Mark(), e.what());
        }
        for (const char* key : {"ConfigurationDescription", "ConfigurationVersion"})
            requireText(document, key);
        const YAML::Node policy = document["DialogFocusPolicy"];
        if (policy && !policy.IsScalar())
            add(policy.Mark(), "DialogFocusPolicy must be a text");
        inspectPlugins(document["Plugins"]);
        inspectActions(document);
    }

    void inspectPlugins(const YAML::Node& plugins)
    {
        if (!plugins || plugins.IsNull())
            return;
        if (!plugins.IsSequence()) {
            add(plugins.Mark(), "Plugins must be a sequence");
            return;
        }
        const std::vector<std::string> known = NimbraLaunchpad::addableModulePlugins();
        for (const YAML::Node& plugin : plugins) {
            const std::string name = plugin.IsScalar() ? plugin.Scalar() : "";
            if (std::find(known.begin(), known.end(), name) == known.end())
                add(plugin.Mark(), "there is no plugin '" + name + "' to add");
            else
                report_.plugins.push_back(name);
        }
    }

    void requireText(const YAML::Node& document, const std::string& key)
    {
        const YAML::Node node = document[key];
        if (!node) {
            if (key != "ConfigurationVersion")  // the version check has said so
                add(document.Mark(), key + " is missing");
        } else if (!node.IsScalar()) {
            add(node.Mark(), key + " must be a text");
        }
    }

    void inspectActions(const YAML::Node& document)
    {
        const YAML::Node actions = document["AutonomousActions"];
        if (!actions) {
            add(document.Mark(), "No AutonomousActions found in config file, skipping.");
            return;
        }
        if (!actions.IsSequence()) {
            if (!actions.IsNull())
                add(actions.Mark(), "AutonomousActions must be a sequence");
            return;
        }
        const ConfigurationReader reader(
            [this](const ConfigurationProblem& problem) { report_.problems.push_back(problem); });
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
                add(e.mark, e.msg + ": loading stops here");
                isLoading = false;
            }
        }
    }

    void inspectCondition(const AutonomousAction& action, const YAML::Node& node)
    {
        if (action.condition.empty()) {
            add(node.Mark(), "the condition of '" + action.description + "' is empty");
            return;
        }
        try {
            const Expression condition = parseCondition(action.condition);
            if (keys_)
                warnOfKeys(action, condition, node);
        } catch (const ConditionSyntaxError& e) {
            const auto [line, column] = e.line() == 1
                                            ? placeInFile(node.Mark(), action.condition, e.column())
                                            : std::pair<std::size_t, std::size_t>();
            const std::string text =
                "the condition of '" + action.description + "' does not parse: ";
            if (line == 0)
                add(node.Mark(), text + "at its " + e.what());
            else
                report_.problems.push_back({"", text + e.problem(), line, column});
        }
    }

    void warnOfKeys(const AutonomousAction& action, const Expression& condition,
                    const YAML::Node& node)
    {
        for (const KeyDoubt& doubt : keyDoubts(condition, *keys_)) {
            const std::size_t at = action.condition.find("'" + doubt.key + "'");
            auto [line, column] = placeInFile(node.Mark(), action.condition, at + 1);
            if (line == 0) {
                line = static_cast<std::size_t>(node.Mark().line) + 1;
                column = static_cast<std::size_t>(node.Mark().column) + 1;
            }
            report_.warnings.push_back(
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

    void add(const YAML::Mark& mark, const std::string& text)
    {
        ConfigurationProblem problem{"", text};
        problem.line = mark.is_null() ? 1 : static_cast<std::size_t>(mark.line) + 1;
        problem.column = mark.is_null() ? 1 : static_cast<std::size_t>(mark.column) + 1;
        report_.problems.push_back(std::move(problem));
    }

    void add(const YAML::Exception& e) { add(e.mark, withoutPath(e.msg)); }

    /// What is wrong with the file as a whole names it already.
    std::string withoutPath(const std::string& text) const
    {
        const std::string prefix = path_ + ": ";
        const std::size_t at = text.find(prefix);
        return at == std::string::npos ? text : text.substr(at + prefix.size());
    }

    const std::string path_;
    const KeyCatalogue* const keys_;
    std::vector<std::string> lines_;
    ConfigurationReport report_;
};

void print(const std::string& path, const std::vector<ConfigurationProblem>& problems,
           const std::string& kind)
{
    for (const ConfigurationProblem& problem : problems) {
        std::cout << printable(path) << ":" << problem.line << ":" << problem.column << ": " << kind
                  << printable(problem.text) << "\n";
    }
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
            hasProblems = hasProblems || !report.problems.empty();
        } catch (const UnreadableFile& e) {
            std::cerr << "nimbra: " << printable(e.what()) << "\n";
            hasUnreadable = true;
        }
    }
    std::cout.flush();
    return hasUnreadable ? 2 : hasProblems ? 1 : 0;
}

}  // namespace KR
