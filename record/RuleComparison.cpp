#include "record/RuleComparison.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace KR {

namespace {

using Occurrences = std::vector<RuleOccurrence>;
using Kind = RuleChange::Kind;

vo::TimePoint timeOf(const RuleChange& change)
{
    return change.before ? change.before->time : change.now->time;
}

/// Pairs the proposals of one rule, in their order, and says how the others differ.
class Aligner {
public:
    Aligner(const Occurrences& before, const Occurrences& now, vo::Duration tolerance,
            std::function<std::string(vo::TimePoint)> whyNot)
        : before_(before), now_(now), tolerance_(tolerance), whyNot_(std::move(whyNot))
    {
    }

    std::vector<RuleChange> run()
    {
        std::size_t i = 0;
        std::size_t j = 0;
        while (i < before_.size() && j < now_.size()) {
            const vo::Duration lead = before_[i].time - now_[j].time;
            if (lead < tolerance_ && -lead < tolerance_) {
                endRun(i, j);
                pair(before_[i++], now_[j++]);
                runBefore_ = i;
                runNow_ = j;
            } else if (lead < vo::Duration::zero()) {
                ++i;
            } else {
                ++j;
            }
        }
        endRun(before_.size(), now_.size());
        return std::move(changes_);
    }

private:
    /// Those between two that are the same: paired in order they are earlier or later, and of the
    /// rest there are more or less.
    void endRun(std::size_t i, std::size_t j)
    {
        for (; runBefore_ < i && runNow_ < j; ++runBefore_, ++runNow_) {
            const RuleOccurrence& before = before_[runBefore_];
            const RuleOccurrence& now = now_[runNow_];
            const Kind kind = now.time < before.time ? Kind::earlier : Kind::later;
            changes_.push_back({kind, before, now, "its condition became true then"});
        }
        for (; runBefore_ < i; ++runBefore_)
            changes_.push_back(
                {Kind::less, before_[runBefore_], {}, whyNot_(before_[runBefore_].time)});
        for (; runNow_ < j; ++runNow_)
            changes_.push_back({Kind::more, {}, now_[runNow_], "its condition is reported there"});
    }

    void pair(const RuleOccurrence& before, const RuleOccurrence& now)
    {
        if (before.outcome == now.outcome && before.gate == now.gate &&
            before.effects == now.effects)
            return;
        const std::string gate = !now.gate.empty()      ? now.gate
                                 : !before.gate.empty() ? "no longer: " + before.gate
                                                        : "other steps are done";
        changes_.push_back({Kind::otherwise, before, now, gate});
    }

    const Occurrences& before_;
    const Occurrences& now_;
    const vo::Duration tolerance_;
    const std::function<std::string(vo::TimePoint)> whyNot_;
    std::size_t runBefore_ = 0;
    std::size_t runNow_ = 0;
    std::vector<RuleChange> changes_;
};

using Effects = std::vector<std::string>;

Effects effectsOf(const std::optional<RuleOccurrence>& occurrence)
{
    return occurrence ? occurrence->effects : Effects();
}

/// What a change does to the body or the world, if anything.
std::optional<RuleComparison::Felt> feltOf(const std::string& rule, const RuleChange& change)
{
    const Effects before = effectsOf(change.before);
    const Effects now = effectsOf(change.now);
    const bool isMoved = change.kind == Kind::earlier || change.kind == Kind::later;
    if (isMoved && !(before.empty() && now.empty())) {
        const bool isNew = before.empty() || (!now.empty() && change.kind == Kind::earlier);
        return RuleComparison::Felt{isNew ? change.now->time : change.before->time, rule,
                                    isNew ? now.front() : before.front(), isNew};
    }
    const auto [a, b] = std::mismatch(before.begin(), before.end(), now.begin(), now.end());
    if (b != now.end())
        return RuleComparison::Felt{change.now->time, rule, *b, true};
    if (a != before.end())
        return RuleComparison::Felt{change.before->time, rule, *a, false};
    return {};
}

const Occurrences& of(const RuleLog& log, const std::string& rule)
{
    static const Occurrences kNone;
    const auto found = log.rules().find(rule);
    return found == log.rules().end() ? kNone : found->second;
}

}  // namespace

const char* changeName(RuleChange::Kind kind)
{
    switch (kind) {
        case Kind::less:
            return "less";
        case Kind::more:
            return "more";
        case Kind::earlier:
            return "earlier";
        case Kind::later:
            return "later";
        case Kind::otherwise:
            return "otherwise";
    }
    return "";
}

bool RuleComparison::isSame() const
{
    return std::all_of(rules.begin(), rules.end(),
                       [](const ComparedRule& rule) { return rule.changes.empty(); });
}

void RuleComparison::cutBefore(vo::TimePoint time)
{
    for (ComparedRule& rule : rules) {
        auto& changes = rule.changes;
        changes.erase(std::remove_if(changes.begin(), changes.end(),
                                     [time](const auto& each) { return timeOf(each) < time; }),
                      changes.end());
    }
}

RuleComparison compareRules(
    const RuleLog& before, const RuleLog& now, vo::Duration tolerance,
    const std::function<std::string(const std::string& rule, vo::TimePoint time)>& whyNot)
{
    std::set<std::string> names;
    for (const RuleLog* log : {&before, &now}) {
        for (const auto& [rule, occurrences] : log->rules())
            names.insert(rule);
    }
    RuleComparison comparison;
    for (const std::string& name : names) {
        const Occurrences& was = of(before, name);
        const Occurrences& is = of(now, name);
        ComparedRule rule{name, was.size(), is.size(),
                          Aligner(was, is, tolerance, [&](vo::TimePoint time) {
                              return whyNot(name, time);
                          }).run()};
        std::stable_sort(
            rule.changes.begin(), rule.changes.end(),
            [](const RuleChange& a, const RuleChange& b) { return timeOf(a) < timeOf(b); });
        for (const RuleChange& change : rule.changes) {
            const auto felt = feltOf(name, change);
            if (felt && (!comparison.firstFelt || felt->time < comparison.firstFelt->time))
                comparison.firstFelt = felt;
        }
        comparison.rules.push_back(std::move(rule));
    }
    return comparison;
}

}  // namespace KR
