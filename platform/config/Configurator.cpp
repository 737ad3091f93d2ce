#include "platform/config/Configurator.h"

#include <charconv>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <yaml-cpp/yaml.h>

#include "platform/config/YamlError.h"

namespace KR {
namespace {

bool isDigits(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// The major of "major" or "major.minor"; nothing for another text. One that is too large to hold
/// counts as the largest there is.
std::optional<int> majorOf(std::string_view version)
{
    const auto point = version.find('.');
    const std::string_view major = version.substr(0, point);
    if (!isDigits(major))
        return std::nullopt;
    if (point != std::string_view::npos && !isDigits(version.substr(point + 1)))
        return std::nullopt;
    int number = 0;
    const auto result = std::from_chars(major.data(), major.data() + major.size(), number);
    return result.ec == std::errc() ? number : std::numeric_limits<int>::max();
}

}  // namespace

void Configurator::verifyConfigFileVersionCompatible(const boost::shared_ptr<KRBroker>&,
                                                     const YAML::Node& document,
                                                     int supportedVersion)
{
    const std::string supported =
        " (supported are versions up to " + std::to_string(supportedVersion) + ")";
    const YAML::Node node =
        document.IsMap() ? document["ConfigurationVersion"] : YAML::Node(YAML::NodeType::Undefined);
    if (!node.IsDefined())
        throw YamlError(document, "the configuration has no ConfigurationVersion" + supported);

    const std::string version = node.IsScalar() ? node.Scalar() : std::string();
    const std::optional<int> major = majorOf(version);
    if (!major)
        throw YamlError(node, "ConfigurationVersion \"" + version +
                                  "\" is not \"major\" or \"major.minor\"" + supported);
    if (*major > supportedVersion)
        throw YamlError(node,
                        "ConfigurationVersion \"" + version + "\" is not supported" + supported);
}

}  // namespace KR
