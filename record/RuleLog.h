#pragma once

#include <map>
#include <string>
#include <vector>

#include "life/Event.h"

namespace KR {

/// What became of one proposal of a rule.
struct RuleOccurrence {
    enum class Outcome {
        begun,    ///< it has steps to carry out
        done,     ///< to its last step
        skipped,  ///< because of rules that were active, or what it waited for
        waits,    ///< for others
        refused,  ///< a step was
        failed,   ///< a step did
    };

    vo::TimePoint time;  ///< when it was proposed
    Outcome outcome = Outcome::begun;
    /// What decided: the reason of a skip, or the step and what it came to. "" for one that is
    /// done.
    std::string gate = {};
    /// Steps that were done, and are felt by the body or the world, each for people.
    std::vector<std::string> effects = {};
    vo::TimePoint ended = {};  ///< when the outcome was known
};

/// "done", "skipped", ...
const char* outcomeName(RuleOccurrence::Outcome outcome);

/// Every proposal of every rule, in the order in which they came, made from events in their order.
class RuleLog {
public:
    void take(const Event& event);

    /// By rule.
    const std::map<std::string, std::vector<RuleOccurrence>>& rules() const { return rules_; }

private:
    RuleOccurrence& last(const std::string& rule, vo::TimePoint time);
    void note(const std::string& rule, const Event& event, RuleOccurrence::Outcome outcome,
              const std::string& gate);
    void take(const Event& event, const StepEnded& step);

    std::map<std::string, std::vector<RuleOccurrence>> rules_;
};

}  // namespace KR
