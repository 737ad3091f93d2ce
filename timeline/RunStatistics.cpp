#include "timeline/RunStatistics.h"

#include <algorithm>

namespace KR {

namespace {

void tally(std::map<std::string, std::size_t>& texts, const std::string& text)
{
    if (texts.size() < RunStatistics::kMaxTexts || texts.count(text))
        ++texts[text];
}

}  // namespace

void RunStatistics::begin(const RunHeader& header)
{
    rules_ = header.rules;
    start_ = header.start;
}

void RunStatistics::count(const Event& event)
{
    std::visit(Cases{[&](const RuleProposed& each) { ++counts_[each.rule.name].hits; },
                     [&](const RuleSkipped& each) { ++counts_[each.rule.name].skipped; },
                     [&](const RuleDropped& each) { ++counts_[each.rule.name].skipped; },
                     [&](const StepEnded& step) { countStep(step); },
                     [&](const CallMade& call) {
                         if (call.outcome == StepOutcome::refused)
                             refuse(call.text + ": " + call.reason);
                         else if (call.outcome == StepOutcome::failed)
                             fail(call.text + ": " + call.reason);
                     },
                     [&](const ErrorReported& error) { fail(error.source + ": " + error.text); },
                     [](const auto&) {}},
               event.what);
}

void RunStatistics::countStep(const StepEnded& step)
{
    RuleCount& rule = counts_[step.rule.name];
    const std::string text = step.rule.name + ": " + step.text + ": " + step.reason;
    switch (step.outcome) {
        case StepOutcome::done:
            rule.done += step.rest == 0 ? 1 : 0;
            break;
        case StepOutcome::refused:
            ++rule.refused;
            refuse(text);
            break;
        case StepOutcome::failed:
            ++rule.failed;
            fail(text);
            break;
    }
}

void RunStatistics::refuse(const std::string& text)
{
    ++refusedCount_;
    tally(refused_, text);
}

void RunStatistics::fail(const std::string& text)
{
    ++errorCount_;
    tally(errors_, text);
}

RunSummary RunStatistics::summary(vo::TimePoint end, bool interrupted) const
{
    RunSummary summary{start_,   end,     interrupted,   {},         {},
                       refused_, errors_, refusedCount_, errorCount_};
    for (const std::string& rule : rules_) {
        const auto found = counts_.find(rule);
        if (found == counts_.end() || found->second.hits == 0)
            summary.neverHit.push_back(rule);
    }
    for (const auto& rule : counts_) {
        if (rule.second.hits > 0)
            summary.rules.push_back(rule);
    }
    std::stable_sort(summary.rules.begin(), summary.rules.end(),
                     [](const auto& a, const auto& b) { return a.second.hits > b.second.hits; });
    return summary;
}

}  // namespace KR
