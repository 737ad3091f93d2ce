#include <yaml-cpp/yaml.h>

#include "launchpad/ConfigurationReader.h"
#include "launchpad/NimbraLaunchpad.h"
#include "platform/config/Configurator.h"
#include "platform/vo/Log.h"

namespace KR {
namespace {

const vo::Logger kLog("NimbraLaunchpad");
constexpr const char* kLabel = "loadConfigFile";

/// The major version of configuration files that this reads.
constexpr int kSupportedVersion = 2;

}  // namespace

void NimbraLaunchpad::loadConfigFile(const std::string& path)
{
    const YAML::Node document = loadConfigurationDocument(path);
    Configurator::verifyConfigFileVersionCompatible(broker_, document, kSupportedVersion);
    const auto description = document["ConfigurationDescription"].as<std::string>();
    const auto version = document["ConfigurationVersion"].as<std::string>();
    kLog.info(kLabel, "Using configuration file: \"" + description + "\" version: \"" + version +
                          "\" from: " + path);

    const YAML::Node actions = document["AutonomousActions"];
    if (!actions.IsDefined()) {
        kLog.warning(kLabel, "No AutonomousActions found in config file, skipping.");
        return;
    }
    if (const YAML::Node policy = document["DialogFocusPolicy"]) {
        const auto text = policy.as<std::string>();
        configControlsDialog_ = text == "focus_topics" || text == "no_focus";
    }

    const ConfigurationReader reader(
        [](const ConfigurationProblem& problem) { kLog.warning(problem.label, problem.text); });
    const vo::Lock lock(actionMutex_);
    if (_removeActions("LifeConfig"))
        kLog.info(kLabel, "Deleted all configuration sets derived from previous config file");
    // What is no sequence has no elements to find, and looking for them in a large mapping would
    // take its size squared.
    const YAML::Node nothing(YAML::NodeType::Undefined);
    for (std::size_t i = 0; i < actions.size(); ++i) {
        if (const auto action = reader.readAction(actions.IsSequence() ? actions[i] : nothing))
            _addAction(*action);
    }
}

}  // namespace KR
