#include <stdexcept>
#include <yaml-cpp/yaml.h>

#include "launchpad/ConfigurationReader.h"
#include "launchpad/LaunchpadLog.h"
#include "launchpad/LaunchpadNews.h"
#include "launchpad/NimbraLaunchpad.h"
#include "platform/config/Configurator.h"

namespace KR {
namespace {

constexpr const char* kLabel = "loadConfigFile";

/// The major version of configuration files that this reads.
constexpr int kSupportedVersion = 2;

/// Has a problem of a document told with its file; its type stays.
template <class Read>
void namingFile(const std::string& path, const Read& read)
{
    try {
        read();
    } catch (const YamlError& e) {
        throw std::runtime_error(textInFile(path, e.place(), e.what()));
    } catch (const YAML::BadConversion& e) {
        throw YamlFileError<YAML::BadConversion>(path, e);
    } catch (const YAML::RepresentationException& e) {
        throw YamlFileError<YAML::RepresentationException>(path, e);
    }
}

}  // namespace

void NimbraLaunchpad::_loadFirstConfiguration(const std::string& path)
{
    try {
        loadConfigFile(path);
    } catch (const std::exception& e) {
        news_->error("NimbraLaunchpad",
                     "Can't load default config file: " + path + ": " + e.what());
    }
}

void NimbraLaunchpad::loadConfigFile(const std::string& path)
{
    const LaunchpadNews::Round round(*news_);
    const YAML::Node document = loadConfigurationDocument(path);
    namingFile(path, [&] { _loadConfiguration(document, path); });
}

void NimbraLaunchpad::_loadConfiguration(const YAML::Node& document, const std::string& path)
{
    Configurator::verifyConfigFileVersionCompatible(broker_, document, kSupportedVersion);
    const std::string description = configurationText(document, "ConfigurationDescription");
    const std::string version = configurationText(document, "ConfigurationVersion");
    launchpadLog.info(kLabel, "Using configuration file: \"" + description + "\" version: \"" +
                                  version + "\" from: " + path);

    const YAML::Node actions = document["AutonomousActions"];
    if (!actions.IsDefined()) {
        launchpadLog.warning(kLabel, "No AutonomousActions found in config file, skipping.");
        return;
    }
    if (document["DialogFocusPolicy"]) {
        const std::string policy = configurationText(document, "DialogFocusPolicy");
        configControlsDialog_ = policy == "focus_topics" || policy == "no_focus";
    }

    const ConfigurationReader reader([](const ConfigurationProblem& problem) {
        launchpadLog.warning(problem.label, problem.text);
    });
    const vo::Lock lock(actions_.mutex());
    const ConditionChecker::Replacement replacement(conditionChecker_);
    if (_removeActions("LifeConfig"))
        launchpadLog.info(kLabel,
                          "Deleted all configuration sets derived from previous config file");
    // What is no sequence has no elements to find, and looking for them in a large mapping would
    // take its size squared.
    const YAML::Node nothing(YAML::NodeType::Undefined);
    for (std::size_t i = 0; i < actions.size(); ++i) {
        if (const auto action = reader.readAction(actions.IsSequence() ? actions[i] : nothing))
            _addAction(*action);
    }
}

}  // namespace KR
