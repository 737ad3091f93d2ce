#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "host/CommandLine.h"
#include "launchpad/AutonomousAction.h"
#include "launchpad/ConfigurationReader.h"
#include "life/ResumeLimits.h"
#include "platform/kr/KeyCatalogue.h"

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
    /// What its author can hardly mean, though it loads: conditions on keys that nobody publishes,
    /// on values that a key never has and on durations that are never reached, what
    /// findConfigurationDoubts() finds, and what stands behind the document. In the same order;
    /// made only where keys are judged.
    std::vector<ConfigurationProblem> warnings;
    /// Why loading it fails, with its place as in "file:line:column: text"; empty when it does not.
    std::string failure;
    bool isCut = false;                   ///< there is more to tell, too much of it
    std::vector<AutonomousAction> rules;  ///< those that loading would keep, in file order
    std::vector<std::string> plugins;     ///< built-in ones to add to those of every robot
    ResumeLimits resume;                  ///< of what conditions remember across restarts

    std::vector<std::string> ruleNames() const;
};

/// Reads a configuration file and runs nothing. Keys are judged by a catalogue, if there is one.
/// UnreadableFile when there is no such file.
ConfigurationReport inspectConfiguration(const std::string& path,
                                         const KeyCatalogue* keys = nullptr);

/// Adds the command `nimbra check`: writes "file:line:column: text" for every problem of the files
/// to stdout, by file, line and column, and then "file:line:column: warning: text" for every
/// warning. Where a text does not say it, "; expected ..." behind it says what would be right. It
/// returns 0 when there is no problem, 1 when there is one, and 2 when a file cannot be read, which
/// goes to stderr.
void addCheckCommand(const Command& program);

}  // namespace KR
