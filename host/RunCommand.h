#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/vo/Clock.h"
#include "platform/vo/Log.h"

namespace KR {

/// What was asked for makes no sense: the user's mistake, in contrast to one in a file.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct RunOptions {
    std::string config;                ///< empty for the default file
    std::string packages;              ///< the packages folder; empty for none
    std::vector<std::string> plugins;  ///< built-in ones to add, beside those of the file
    std::string preferences;           ///< file that preferences are kept in; empty for none
    std::string scenario;              ///< empty for a live run
    std::optional<double> speed;       ///< of a scenario; nothing for as fast as possible
    std::string until;                 ///< empty for no limit
    bool json = false;
    vo::LogLevel logLevel = vo::LogLevel::warning;
};

/// The command `nimbra run`. Returns 0 when the run came to its end: that of its scenario or of
/// its time, of its reader, or of a live run by SIGINT or SIGTERM; 128 + signal for a scenario that
/// a signal ended early; 1 when its configuration could not be read, which goes to stderr. Throws
/// what else keeps it from being run: UsageError for what was asked for.
int run(const RunOptions& options);

/// The configuration file to use: the given one, or where none is given the first
/// tessel/autonomy.cfg of the configuration folders, or the one that comes with the program.
/// std::runtime_error when there is none.
std::string configPath(const std::string& given);

/// A packages folder that is given has to be there: one that was misspelt is not to become a new
/// one. std::runtime_error.
void requirePackagesFolder(const std::string& folder);

/// When a run that begins at `start` is to end: "HH:MM" and so on as in a scenario, counted from
/// the day of the start, or a time from the start like "90s", "5m", "2h" or "1d". UsageError for
/// anything else, and for a time that is not after the start.
vo::TimePoint endFromText(const std::string& text, vo::TimePoint start);

}  // namespace KR
