#pragma once

#include "host/CommandLine.h"

namespace KR {

/// Adds the command `nimbra permissions`: which activities may run in a context that is given, and
/// what stands against the others. It returns 0, or 1 when there is no such activity, or a package
/// that cannot be read; that goes to stderr.
void addPermissionsCommand(const Command& program);

}  // namespace KR
