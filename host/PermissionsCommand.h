#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace KR {

/// Adds the command `nimbra permissions`: which activities may run in a context that is given, and
/// what stands against the others. When it is the one on the command line, it is set as `perform`,
/// which returns the exit code: 0, or 1 when there is no such activity, or a package that cannot be
/// read; that goes to stderr.
void addPermissionsCommand(CLI::App& app, std::function<int()>& perform);

}  // namespace KR
