#include "host/RunStatistics.h"

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

void RunStatistics::count(const TimelineEvent& event)
{
    using Kind = TimelineEvent::Kind;
    switch (event.kind) {
        case Kind::hit:
            ++counts_[event.rule].hits;
            break;
        case Kind::skip:
        case Kind::drop:
            ++counts_[event.rule].skipped;
            break;
        case Kind::step:
            countStep(event);
            break;
        case Kind::call:
            if (event.outcome == StepOutcome::refused)
                refuse(event.subject + ": " + event.reason);
            else if (event.outcome == StepOutcome::failed)
                fail(event.subject + ": " + event.reason);
            break;
        case Kind::error:
            fail(event.subject + ": " + event.reason);
            break;
        default:
            break;
    }
}

void RunStatistics::countStep(const TimelineEvent& event)
{
    RuleCount& rule = counts_[event.rule];
    const std::string text = event.rule + ": " + event.subject + ": " + event.reason;
    switch (event.outcome) {
        case StepOutcome::done:
            rule.done += event.rest == 0 ? 1 : 0;
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
