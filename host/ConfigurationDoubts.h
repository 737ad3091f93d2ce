#pragma once

#include <functional>

#include "launchpad/ConfigurationReader.h"

namespace KR {

/// What the author of a configuration can hardly mean, though it loads: keys that nobody reads,
/// keys that stand twice, rules without a name or with that of another, and rule lists that name
/// no rule of the file.
void findConfigurationDoubts(const YAML::Node& document, const ConfigurationReader::Report& report);

}  // namespace KR
