#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "launchpad/AutonomousAction.h"
#include "launchpad/ConfigurationReader.h"

namespace KR {

/// A configuration file that is not there or cannot be read at all.
class UnreadableFile : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What a configuration file holds, seen without running it.
struct ConfigurationReport {
    /// Everything that loading it warns about or stops at, and every condition that does not
    /// parse; by line, column and text.
    std::vector<ConfigurationProblem> problems;
    std::vector<AutonomousAction> rules;  ///< those that loading would keep, in file order
};

/// Reads a configuration file and runs nothing. UnreadableFile when there is none.
ConfigurationReport inspectConfiguration(const std::string& path);

/// The command `nimbra check`: writes "file:line:column: text" for every problem of the files to
/// stdout, by file, line and column. Returns 0 when there is none, 1 when there is one, and 2 when
/// a file cannot be read, which goes to stderr.
int checkConfigurations(std::vector<std::string> paths);

}  // namespace KR
