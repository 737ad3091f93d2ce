#include "record/RuleLog.h"

namespace KR {

namespace {

using Outcome = RuleOccurrence::Outcome;

/// Whether a step does something outside of the rules themselves.
bool isFelt(const StepEnded& step)
{
    return step.outcome == StepOutcome::done && step.type != "BlockAutonomousFocus" &&
           step.type != "UnblockAutonomousFocus";
}

}  // namespace

const char* outcomeName(RuleOccurrence::Outcome outcome)
{
    switch (outcome) {
        case Outcome::begun:
            return "begun";
        case Outcome::done:
            return "done";
        case Outcome::skipped:
            return "skipped";
        case Outcome::waits:
            return "waits";
        case Outcome::refused:
            return "refused";
        case Outcome::failed:
            return "failed";
    }
    return "";
}

void RuleLog::take(const Event& event)
{
    std::visit(
        Cases{[&](const RuleProposed& hit) { rules_[hit.rule.name].push_back({event.time}); },
              [&](const RuleSkipped& skip) {
                  note(skip.rule.name, event, Outcome::skipped, skip.reason);
              },
              [&](const RuleWaits& wait) {
                  note(wait.rule.name, event, Outcome::waits, wait.reason);
              },
              [&](const RuleDropped& drop) {
                  note(drop.rule.name, event, Outcome::skipped, drop.reason);
              },
              [&](const RuleResumed& resume) { note(resume.rule.name, event, Outcome::begun, ""); },
              [&](const StepEnded& step) { take(event, step); }, [](const auto&) {}},
        event.what);
}

/// What is told of a rule is of its last proposal.
RuleOccurrence& RuleLog::last(const std::string& rule, vo::TimePoint time)
{
    std::vector<RuleOccurrence>& all = rules_[rule];
    if (all.empty())
        all.push_back({time});
    return all.back();
}

void RuleLog::note(const std::string& rule, const Event& event, Outcome outcome,
                   const std::string& gate)
{
    RuleOccurrence& occurrence = last(rule, event.time);
    occurrence.outcome = outcome;
    occurrence.gate = gate;
    occurrence.ended = event.time;
}

void RuleLog::take(const Event& event, const StepEnded& step)
{
    const bool isDone = step.outcome == StepOutcome::done;
    if (isFelt(step))
        last(step.rule.name, event.time).effects.push_back(step.text);
    if (isDone && step.rest > 0)
        return;
    note(step.rule.name, event,
         isDone                                 ? Outcome::done
         : step.outcome == StepOutcome::refused ? Outcome::refused
                                                : Outcome::failed,
         isDone ? std::string() : step.text + ": " + step.reason);
}

}  // namespace KR
