#pragma once

#include <set>
#include <string>
#include <vector>

namespace KR {

/// The chains of joints that can be moved, and held still, on their own.
const std::set<std::string>& robotChains();

/// The joints of a chain, from the head down and from left to right; empty for no such chain.
/// "Body" has them all.
std::vector<std::string> robotJoints(const std::string& chain);

/// The joints that a name stands for, a chain's or a joint's own; empty for no such name.
std::vector<std::string> robotPart(const std::string& chainOrJoint);

}  // namespace KR
