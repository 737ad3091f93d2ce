#include "robot/ScenarioYaml.h"

#include <cmath>
#include <yaml-cpp/yaml.h>

#include "platform/config/YamlError.h"
#include "platform/config/YamlValue.h"

namespace KR {

void failAt(const YAML::Node& node, const std::string& problem)
{
    throw YamlError(node, problem);
}

std::string yamlText(const YAML::Node& node, const std::string& what)
{
    if (!node.IsScalar())
        failAt(node, what + " must be a text");
    return node.Scalar();
}

double yamlNumber(const YAML::Node& node, const std::string& what)
{
    const KRValue value = node.IsScalar() ? yamlReading(node) : KRValue();
    if (!value.isNumber())
        failAt(node, what + " must be a number");
    return value.toFloat();
}

KRValue yamlReading(const YAML::Node& node)
{
    KRValue value = yamlToKRValue(node);
    if (value.isFloat() && !std::isfinite(value.toFloat()))
        failAt(node, "a reading must be a finite number");
    if (value.isArray()) {
        for (const YAML::Node& element : node)
            yamlReading(element);
    }
    return value;
}

void checkYamlNames(const YAML::Node& node, const std::string& what)
{
    if (!node.IsMap() || node.size() == 0)
        failAt(node, what);
    std::set<std::string> seen;
    for (const auto& pair : node) {
        const std::string key = yamlText(pair.first, "a key");
        if (!seen.insert(key).second)
            failAt(pair.first, "'" + key + "' is given twice");
    }
}

void checkYamlKeys(const YAML::Node& mapping, const std::set<std::string>& known)
{
    std::set<std::string> seen;
    for (const auto& pair : mapping) {
        const std::string key = yamlText(pair.first, "a key");
        if (!known.count(key))
            failAt(pair.first, "unknown key '" + key + "'");
        if (!seen.insert(key).second)
            failAt(pair.first, "'" + key + "' is given twice");
    }
}

YAML::Node requiredYaml(const YAML::Node& mapping, const char* key)
{
    const YAML::Node node = mapping[key];
    if (!node)
        failAt(mapping, std::string("'") + key + "' is missing");
    return node;
}

}  // namespace KR
