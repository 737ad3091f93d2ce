#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/ActionRunner.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"

namespace KR {

/// One line of the timeline. Texts are as they came, from outside; who prints them makes them fit
/// for it.
struct TimelineEvent {
    enum class Kind {
        say,     ///< the scenario's narrator: subject
        key,     ///< a memory key changed: subject, value
        hit,     ///< a rule was proposed: rule, subject (the activity that it comes before)
        resume,  ///< a rule that waited has its turn: rule
        skip,    ///< a rule is not carried out: rule, reason
        wait,    ///< a rule waits for others: rule, reason
        drop,    ///< a rule that waited is not carried out: rule, reason
        step,    ///< rule, step, subject (the step for people), outcome, reason, rest
        call,    ///< a call of the scenario: subject, outcome, reason
        plugin,  ///< a plugin has started (on) or stopped: subject
        // With the rule that brought it about, if one did:
        focus,            ///< subject, previous, reason
        state,            ///< subject, previous
        asleep,           ///< on
        autonomousFocus,  ///< on when blocked
        chain,            ///< subject, on when frozen, reason
        error             ///< an error in the log: subject (who), reason
    };

    Kind kind;
    vo::TimePoint time{};
    std::string rule{};
    std::string subject{};
    std::string step{};
    std::string previous{};
    std::string reason{};
    KRValue value{};
    StepOutcome outcome = StepOutcome::done;
    std::size_t rest = 0;  ///< steps after this one: to come, or dropped when it was not done
    bool on = false;
    bool periodic = false;  ///< of a rule that is proposed again and again while it holds
};

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
    virtual void event(const TimelineEvent& event) = 0;
    virtual void end(const RunSummary& summary) = 0;
};

}  // namespace KR
