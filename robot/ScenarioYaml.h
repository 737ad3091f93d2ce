#pragma once

#include <set>
#include <string>

#include "platform/kr/KRValue.h"

namespace YAML {
class Node;
}

namespace KR {

/// @file
/// What reading a scenario is made of. Each raises YamlError.

[[noreturn]] void failAt(const YAML::Node& node, const std::string& problem);

/// A scalar; `what` names it in the error.
std::string yamlText(const YAML::Node& node, const std::string& what);
/// A finite number, or an int.
double yamlNumber(const YAML::Node& node, const std::string& what);
/// Any value in which all numbers are finite: no sensor measures anything else.
KRValue yamlReading(const YAML::Node& node);

/// That a mapping has none but these keys, and each once.
void checkYamlKeys(const YAML::Node& mapping, const std::set<std::string>& known);
/// That a mapping has each key once, and one at least.
void checkYamlNames(const YAML::Node& node, const std::string& what);
YAML::Node requiredYaml(const YAML::Node& mapping, const char* key);

}  // namespace KR
