#include "host/RuleSources.h"

#include <algorithm>
#include <limits>
#include <yaml-cpp/yaml.h>

#include "host/ConfigurationCheck.h"
#include "launchpad/ConfigurationReader.h"
#include "platform/config/YamlError.h"
#include "record/TemporaryFile.h"

namespace KR {

namespace {

/// The elements of "AutonomousActions" with their places.
std::vector<RuleSource> placesOf(const std::string& path, const YAML::Node& document)
{
    std::vector<RuleSource> sources;
    for (const YAML::Node& node : document["AutonomousActions"]) {
        RuleSource source;
        source.file = path;
        source.line = yamlPlace(node).line;
        source.column = yamlPlace(node).column;
        const YAML::Node name = node.IsMap() ? node["Description"] : YAML::Node();
        if (name.IsDefined() && name.IsScalar())
            source.rule.description = name.Scalar();
        sources.push_back(std::move(source));
    }
    return sources;
}

/// What is wrong between two lines.
std::string problemIn(const ConfigurationReport& report, const std::string& path, std::size_t from,
                      std::size_t to)
{
    for (const ConfigurationProblem& problem : report.problems) {
        if (problem.line >= from && problem.line < to)
            return textInFile(path, {problem.line, problem.column}, problem.text) +
                   (problem.expected.empty() ? "" : "; expected " + problem.expected);
    }
    return {};
}

}  // namespace

std::vector<RuleSource> readRuleSources(const std::string& path, const std::string& content)
{
    if (content.empty())
        return {};
    const TemporaryFile file(content);
    const ConfigurationReport report = inspectConfiguration(file.path());
    std::vector<RuleSource> sources;
    try {
        sources = placesOf(path, loadConfigurationDocument(file.path()));
    } catch (const YAML::Exception&) {
        return {};
    }
    auto loaded = report.rules.begin();
    for (std::size_t i = 0; i < sources.size(); ++i) {
        RuleSource& source = sources[i];
        const std::size_t end =
            i + 1 < sources.size() ? sources[i + 1].line : std::numeric_limits<std::size_t>::max();
        source.problem = problemIn(report, path, source.line, end);
        source.isLoaded =
            loaded != report.rules.end() && loaded->description == source.rule.description;
        if (source.isLoaded)
            source.rule = *loaded++;
        else if (source.problem.empty())
            source.problem =
                path + report.failure.substr(std::min(file.path().size(), report.failure.size()));
    }
    return sources;
}

}  // namespace KR
