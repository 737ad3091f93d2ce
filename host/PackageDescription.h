#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

#include "platform/vo/PackageInfo.h"

namespace KR {

/// What becomes of one behaviour of a package when the package is installed. A plain value.
struct BehaviorDescription {
    enum class Role {
        activity,  ///< launches itself, by its "launchTrigger"
        plugin,    ///< has a plugin descriptor
        none       ///< is there for rules and users to ask for
    };
    Role role = Role::none;
    std::string key;
    vo::BehaviorInfo behavior;
    /// Whether a user may ask for it (see ContextPermission).
    bool requestable = false;
    /// Of a plugin: the groups that it will be in, and its descriptor's conditions.
    std::list<std::string> groups;
    std::list<std::pair<std::string, std::string>> pluginConditions;
    /// Why its program cannot be started; "" when it can.
    std::string programProblem;
    /// What else is wrong, each "<file in the package>:<line>:<column>: <text>", without a place
    /// where none is known: conditions that do not parse, a descriptor that cannot be read or has
    /// no effect.
    std::vector<std::string> problems;
};

/// Looks at a package in its folder, installed or not.
std::vector<BehaviorDescription> describeBehaviors(const vo::PackageInfo& package);

/// A package for people: several lines. `folder` is where the user finds it.
std::string packageText(const vo::PackageInfo& package, const std::string& folder);
/// The same as one line of JSON.
std::string packageJson(const vo::PackageInfo& package, const std::string& folder);

}  // namespace KR
