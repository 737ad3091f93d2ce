#pragma once

#include "host/CommandLine.h"

namespace KR {

/// Adds the command `nimbra plugins`: brings a robot up as `nimbra run` does, writes its plugins to
/// stdout, one a line after a heading (name, groups, enabled, running, the keys that it publishes;
/// "-" for nothing), and brings it down again.
void addPluginsCommand(const Command& program);

}  // namespace KR
