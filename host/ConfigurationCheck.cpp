#include "host/ConfigurationCheck.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <tuple>
#include <yaml-cpp/yaml.h>

#include "host/Text.h"
#include "platform/conditions/ConditionParser.h"
#include "platform/life/Configurator.h"

namespace KR {

namespace {

/// The major version of configuration files that the launchpad reads.
constexpr int kSupportedVersion = 2;

class Inspection {
public:
    explicit Inspection(const std::string& path) : path_(path) {}

    ConfigurationReport run()
    {
        try {
            inspect(loadConfigurationDocument(path_));
        } catch (const YAML::BadFile& e) {
            throw UnreadableFile(path_ + ": " + withoutPath(e.msg));
        } catch (const YAML::Exception& e) {
            add(e);
        }
        auto& problems = report_.problems;
        std::sort(problems.begin(), problems.end(), [](const auto& a, const auto& b) {
            return std::tie(a.line, a.column, a.text) < std::tie(b.line, b.column, b.text);
        });
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
        inspectActions(document);
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
            parseCondition(action.condition);
        } catch (const ConditionSyntaxError& e) {
            const auto [line, column] = placeInFile(node.Mark(), action.condition, e);
            const std::string text =
                "the condition of '" + action.description + "' does not parse: ";
            if (line == 0)
                add(node.Mark(), text + "at its " + e.what());
            else
                report_.problems.push_back({"", text + e.problem(), line, column});
        }
    }

    /// Where in the file a place of a condition is, if the condition stands there as it is: in one
    /// line, without escapes before that place. {0, 0} otherwise.
    std::pair<std::size_t, std::size_t> placeInFile(const YAML::Mark& mark,
                                                    const std::string& condition,
                                                    const ConditionSyntaxError& error)
    {
        if (mark.is_null() || error.line() != 1)
            return {0, 0};
        readLines();
        const auto index = static_cast<std::size_t>(mark.line);
        auto begin = static_cast<std::size_t>(mark.column);
        if (index >= lines_.size() || begin >= lines_[index].size())
            return {0, 0};
        const std::string& line = lines_[index];
        if (line[begin] == '"' || line[begin] == '\'')
            ++begin;
        const std::string before = condition.substr(0, error.column() - 1);
        if (line.compare(begin, before.size(), before) != 0)
            return {0, 0};
        return {index + 1, begin + error.column()};
    }

    /// Once, and only for a file that has a condition that does not parse.
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
    std::vector<std::string> lines_;
    ConfigurationReport report_;
};

}  // namespace

ConfigurationReport inspectConfiguration(const std::string& path)
{
    return Inspection(path).run();
}

int checkConfigurations(std::vector<std::string> paths)
{
    std::sort(paths.begin(), paths.end());
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    bool hasProblems = false;
    bool hasUnreadable = false;
    for (const std::string& path : paths) {
        try {
            for (const ConfigurationProblem& problem : inspectConfiguration(path).problems) {
                std::cout << printable(path) << ":" << problem.line << ":" << problem.column << ": "
                          << printable(problem.text) << "\n";
                hasProblems = true;
            }
        } catch (const UnreadableFile& e) {
            std::cerr << "nimbra: " << printable(e.what()) << "\n";
            hasUnreadable = true;
        }
    }
    std::cout.flush();
    return hasUnreadable ? 2 : hasProblems ? 1 : 0;
}

}  // namespace KR
