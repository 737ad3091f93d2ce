#pragma once

#include <set>
#include <string>

namespace KR {

/// The chains of joints that can be moved, and held still, on their own.
const std::set<std::string>& robotChains();

}  // namespace KR
