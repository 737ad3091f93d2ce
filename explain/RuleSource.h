#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "launchpad/AutonomousAction.h"
#include "platform/vo/PackageInfo.h"

namespace KR {

/// A rule, and where it comes from. A plain value.
struct RuleSource {
    AutonomousAction rule;  ///< of one that was not loaded the description alone
    // Of a configuration.
    std::string file;
    std::size_t line = 0;    ///< from 1; 0 when there is no place
    std::size_t column = 0;  ///< from 1
    // Of a package: its uuid.
    std::string package;
    /// Why it was not loaded, or its condition is not followed; with the place above. Empty for
    /// one that was.
    std::string problem;
    bool isLoaded = true;
};

/// Reads the rules of a configuration, in their order, from its path and its content.
using RuleReader =
    std::function<std::vector<RuleSource>(const std::string& path, const std::string& content)>;

/// The rules that a launchpad makes for the activities of a package that launch themselves.
std::vector<RuleSource> rulesOfPackage(const vo::PackageInfo& package);

}  // namespace KR
