#include "platform/config/YamlError.h"

#include <yaml-cpp/yaml.h>

namespace KR {

YamlPlace yamlPlace(const YAML::Mark& mark)
{
    if (mark.is_null())
        return {};
    return {static_cast<std::size_t>(mark.line) + 1, static_cast<std::size_t>(mark.column) + 1};
}

YamlPlace yamlPlace(const YAML::Node& node)
{
    return node.IsDefined() ? yamlPlace(node.Mark()) : YamlPlace();
}

std::string textInFile(const std::string& path, const YamlPlace& place, const std::string& problem)
{
    std::string text = path;
    if (place.line != 0)
        text += ":" + std::to_string(place.line) + ":" + std::to_string(place.column);
    return text + ": " + problem;
}

}  // namespace KR
