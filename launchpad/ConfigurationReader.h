#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "launchpad/AutonomousAction.h"
#include "platform/config/YamlError.h"

namespace YAML {
class Node;
}

namespace KR {

/// Largest configuration file that is read. As many rules as kMaxYamlFileNodes has room for take
/// about as much; the limit keeps a wrong path from filling the memory, and is checked before
/// parsing.
constexpr std::size_t kMaxConfigFileBytes = 16UL * 1024 * 1024;

/// Something wrong with a configuration file, in the fixed wording of the log, and its place.
struct ConfigurationProblem {
    std::string label;  ///< the function that speaks
    std::string text;
    std::size_t line = 0;    ///< from 1; 0 when there is no place
    std::size_t column = 0;  ///< from 1
    /// What would be right, where the text does not say so; not for the log.
    std::string expected = {};
};

/// The keys that count: in a configuration file, as far as the launchpad reads it; in a rule, those
/// of its own step included; those under which a rule names others; in an element of "Actions"; in
/// the "ActionParameters" of a step of that type.
std::vector<std::string> configurationKeys();
std::vector<std::string> ruleKeys();
std::vector<std::string> ruleListKeys();
std::vector<std::string> stepKeys();
std::vector<std::string> parameterKeys(ActionItemType type);

/// Turns action mappings of a configuration file into action records. Knows nothing of where they
/// go, so that a file can be checked without a launchpad.
///
/// Not thread-safe; used by one thread for one document.
class ConfigurationReader {
public:
    using Report = std::function<void(const ConfigurationProblem&)>;

    /// `report` receives each problem that makes an action, a step or a list entry be skipped. It
    /// is called inside readAction().
    explicit ConfigurationReader(Report report);

    /// Reads one element of "AutonomousActions". Nothing when it is to be skipped, which was
    /// reported then; so is an element that is no mapping. Throws YAML::Exception for a value that
    /// cannot be converted to its type.
    std::optional<AutonomousAction> readAction(const YAML::Node& node) const;

private:
    bool readRule(AutonomousAction& action, const YAML::Node& node) const;
    bool readItems(AutonomousAction& action, const YAML::Node& node) const;
    std::optional<AutonomousActionItem> readItem(const YAML::Node& node,
                                                 const std::string& description) const;
    bool readParameters(AutonomousActionItem& item, const YAML::Node& node,
                        const std::string& place) const;
    bool readApiCall(AutonomousActionItem& item, const YAML::Node& node,
                     const std::string& place) const;
    void report(const YamlPlace& place, const std::string& text,
                const std::string& expected = {}) const;

    Report report_;
};

/// Reads a configuration file into a document, which is a mapping. Throws YamlFileError when it is
/// missing, unreadable, no regular file, larger than kMaxConfigFileBytes, no YAML, no mapping, or
/// beyond the other bounds of loadYamlFile().
YAML::Node loadConfigurationDocument(const std::string& path);

/// The text under a key of the document. YAML::RepresentationException when it is not there or no
/// text.
std::string configurationText(const YAML::Node& document, const std::string& key);

/// Appends the text or texts under `key` of `node` to `out`. What is no text is warned about in the
/// log and left out; `context` (the action's description) is for these warnings.
void readYamlStringOrListOfStrings(std::vector<std::string>& out, const YAML::Node& node,
                                   const std::string& key, const std::string& context);

}  // namespace KR
