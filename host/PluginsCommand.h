#pragma once

#include <string>

namespace KR {

/// The command `nimbra plugins`: brings a robot up as `nimbra run` does, writes its plugins to
/// stdout, one a line after a heading (name, groups, enabled, running, the keys that it publishes;
/// "-" for nothing), and brings it down again. The packages folder may be empty, for none. Throws
/// what keeps the robot from coming up.
void listPlugins(const std::string& config, const std::string& packages);

}  // namespace KR
