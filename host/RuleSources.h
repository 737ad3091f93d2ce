#pragma once

#include <string>
#include <vector>

#include "explain/RuleSource.h"

namespace KR {

/// The rules of a configuration, those included that are not loaded, each with its place and with
/// what is wrong with it. `path` is what it was called; none for a configuration without content.
std::vector<RuleSource> readRuleSources(const std::string& path, const std::string& content);

}  // namespace KR
