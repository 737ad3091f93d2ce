#pragma once

#include <optional>
#include <string>

#include "host/CommandLine.h"
#include "platform/vo/Clock.h"

namespace KR {

/// Adds the command `nimbra run`. It returns 0 when the run came to its end: that of its scenario
/// or of its time, of its reader, or of a live run by SIGINT or SIGTERM; 128 + signal for a
/// scenario that a signal ended early; 1 when its configuration could not be read, which goes to
/// stderr, or it was to be recorded and something is missing in the recording.
void addRunCommand(const Command& program);

/// Adds the option that configPath() takes.
void addConfig(const Command& command, std::string& config);
/// Adds the option that requirePackagesFolder() looks at.
void addPackages(const Command& command, std::string& packages);

/// The configuration file to use: the given one, or where none is given the first
/// tessel/autonomy.cfg of the configuration folders, or the one that comes with the program.
/// std::runtime_error when there is none.
std::string configPath(const std::string& given);

/// What a file holds that was read before; "" when it cannot be read any more.
std::string contentOf(const std::string& path);

/// A packages folder that is given has to be there: one that was misspelt is not to become a new
/// one. std::runtime_error.
void requirePackagesFolder(const std::string& folder);

/// "90s", "5m", "2h", "1d"; none for another text. What is longer than a scenario can be is cut,
/// and still too long.
std::optional<vo::Duration> durationFromText(const std::string& text);

/// When a run that begins at `start` is to end: "HH:MM" and so on as in a scenario, counted from
/// the day of the start, or a time from the start like "90s", "5m", "2h" or "1d". UsageError for
/// anything else, and for a time that is not after the start.
vo::TimePoint endFromText(const std::string& text, vo::TimePoint start);

}  // namespace KR
