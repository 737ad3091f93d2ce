#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "life/Event.h"
#include "platform/vo/Clock.h"

namespace KR {

/// What a run begins with.
struct RunHeader {
    std::string title;   ///< of the scenario; empty for a live run
    std::string config;  ///< path of the configuration
    std::vector<std::string> rules;
    vo::TimePoint start;
};

/// How a rule fared.
struct RuleCount {
    std::size_t hits = 0;     ///< how often it was proposed
    std::size_t done = 0;     ///< carried out to its last step
    std::size_t skipped = 0;  ///< not begun: a rule list, or its condition after waiting
    std::size_t refused = 0;  ///< ended by a refused step
    std::size_t failed = 0;   ///< ended by a failed step
};

/// What a run ends with.
struct RunSummary {
    vo::TimePoint start;
    vo::TimePoint end;
    bool interrupted = false;
    /// By hits, most first, and then by name; rules that were never hit are not among them.
    std::vector<std::pair<std::string, RuleCount>> rules;
    std::vector<std::string> neverHit;           ///< in the order of the configuration
    std::map<std::string, std::size_t> refused;  ///< what was refused and why, and how often
    std::map<std::string, std::size_t> errors;   ///< what failed and why, and how often
    std::size_t refusedCount = 0;                ///< of all, also those that are not kept above
    std::size_t errorCount = 0;
};

/// Gives a run its looks. Called by one thread at a time.
class TimelineRenderer {
public:
    virtual ~TimelineRenderer() = default;
    virtual void begin(const RunHeader& header) = 0;
    /// One that is to be shown.
    virtual void event(const Event& event) = 0;
    virtual void end(const RunSummary& summary) = 0;
};

}  // namespace KR
