#include "explain/GateBuilder.h"

#include <algorithm>
#include <utility>

#include "explain/ExplanationText.h"
#include "life/StepResult.h"
#include "timeline/Text.h"

namespace KR {

namespace {

/// A hit that is no longer ago is what somebody means who asks about a time.
constexpr vo::Duration kNear = std::chrono::seconds(10);
/// Hits that are told where no time is given from which on.
constexpr std::size_t kHitsTold = 5;

std::string ordinal(std::size_t number)
{
    static constexpr const char* kEnds[] = {"th", "st", "nd", "rd"};
    const std::size_t last = number % 10;
    const bool isTeen = number / 10 % 10 == 1;
    return std::to_string(number) + kEnds[last > 3 || isTeen ? 0 : last];
}

bool isOnEdge(const AutonomousAction& rule)
{
    return !(rule.synchronicity & ExecuteAnyTimeConditionTrue) &&
           (rule.synchronicity & ExecuteAnyTimeConditionEdgeTrue);
}

bool isBeforeActivity(const AutonomousAction& rule)
{
    return !(rule.synchronicity & (ExecuteAnyTimeConditionTrue | ExecuteAnyTimeConditionEdgeTrue));
}

/// What somebody means who writes an operator in words.
std::string meantOperator(const std::string& problem)
{
    static constexpr std::pair<const char*, const char*> kWords[] = {
        {"found 'and'", "&&"}, {"found 'or'", "||"}, {"found 'not'", "!"}};
    for (const auto& [word, meant] : kWords) {
        if (problem.find(word) != std::string::npos)
            return std::string("; did you mean '") + meant + "'?";
    }
    return {};
}

std::string causeText(const ConditionWatch::Turn& turn)
{
    if (turn.isBeginning)
        return "when conditions began to be watched";
    if (turn.key.empty())
        return "as time passed";
    std::string text = "when '" + turn.key + "' went " + turn.before.toDisplayString() + " → " +
                       turn.after.toDisplayString();
    return text + (turn.writer.empty() ? "" : " (written by " + turn.writer + ")");
}

}  // namespace

std::string mannerOf(const AutonomousAction& rule)
{
    if (rule.synchronicity & ExecuteAnyTimeConditionTrue)
        return "proposed when its condition becomes true, and every 6 s while it is";
    if (rule.synchronicity & ExecuteAnyTimeConditionEdgeTrue)
        return "proposed when its condition becomes true";
    return "proposed before an activity, if its condition is true then";
}

/// With its date, where that is not the date of what is asked about.
std::string GateBuilder::when(vo::TimePoint time) const
{
    return timeText(isoTime(time), isoTime(facts_.at));
}

Gate& GateBuilder::add(const char* name, std::optional<bool> passed, const std::string& text,
                       std::optional<vo::TimePoint> at)
{
    Gate gate;
    gate.name = name;
    if (isOpen_) {
        gate.passed = passed;
        gate.text = text;
        gate.at = at;
    } else {
        for (const Standing& each : standing()) {
            if (each.gate == name)
                gate.text += (gate.text.empty() ? "" : "; ") + each.text;
        }
    }
    isOpen_ = isOpen_ && passed.value_or(false);
    explanation_.gates.push_back(std::move(gate));
    return explanation_.gates.back();
}

Explanation GateBuilder::build()
{
    explanation_.rule = facts_.name;
    explanation_.asked = facts_.at;
    source_ = facts_.life.rule(facts_.name);
    state_ = facts_.life.stateOf(facts_.name);
    addKnown();
    if (!source_)
        return explanation_;
    hit_ = relevantHit();
    addLoaded();
    addCondition();
    addEdge();
    addVerdicts();
    addSteps();
    addHits();
    explanation_.acted = hit_ && hit_->isDone();
    if (explanation_.acted)
        explanation_.verdict = "acted at " + when(hit_->steps.back().at);
    else if (hit_ && hit_->verdict == RuleHit::Verdict::run && !hit_->isOver)
        explanation_.verdict = "is acting at " + when(facts_.at);
    else
        explanation_.verdict = "did not act at " + when(facts_.at);
    return explanation_;
}

void GateBuilder::addKnown()
{
    if (source_) {
        explanation_.source = *source_;
        explanation_.condition = source_->rule.condition;
        explanation_.manner = source_->isLoaded ? mannerOf(source_->rule) : "";
        add("exists", true, "");
        return;
    }
    explanation_.verdict = "there is no such rule";
    add("exists", false, "there is no rule \"" + facts_.name + "\"");
}

void GateBuilder::addLoaded()
{
    const vo::TimePoint begin = facts_.life.begin();
    explanation_.loaded = begin;
    if (!source_->isLoaded) {
        add("loaded", false, "").reasons = {source_->problem};
    } else {
        add("loaded", true, "", begin);
    }
    if (facts_.syntaxError.empty())
        add("registered", true, "", begin);
    else
        add("registered", false, "its condition does not parse" + meantOperator(facts_.syntaxError))
            .reasons = {source_->problem.empty() ? facts_.syntaxError : source_->problem};
    const HeldFact& monitoring = facts_.life.monitoring();
    add("monitored", monitoring.is,
        monitoring.is                         ? ""
        : monitoring.since == vo::TimePoint() ? "conditions were not watched yet"
                                              : "conditions are not watched any more",
        monitoring.since == vo::TimePoint() ? std::nullopt : std::optional(monitoring.since));
}

/// The hit that somebody asks about: the latest, if it is recent, or still has to do with now.
const RuleHit* GateBuilder::relevantHit() const
{
    if (!state_ || state_->hits.empty())
        return nullptr;
    const RuleHit& last = state_->hits.back();
    if (facts_.from)
        return last.at >= *facts_.from ? &last : nullptr;
    const bool isOfNow = !isBeforeActivity(source_->rule) && facts_.watch &&
                         facts_.watch->isFollowing() && facts_.watch->isTrue() &&
                         facts_.watch->rise() && last.at >= facts_.watch->rise()->at;
    const auto open = std::find_if(state_->hits.begin(), state_->hits.end(),
                                   [](const RuleHit& hit) { return !hit.isOver; });
    if (facts_.at - last.at <= kNear || isOfNow)
        return &last;
    return open == state_->hits.end() ? nullptr : &*open;
}

const HitTree* GateBuilder::treeOf(const RuleHit& hit) const
{
    const auto found = std::find_if(facts_.hitTrees.rbegin(), facts_.hitTrees.rend(),
                                    [&](const HitTree& tree) { return tree.at == hit.at; });
    return found == facts_.hitTrees.rend() ? nullptr : &*found;
}

void GateBuilder::addCondition()
{
    const HitTree* const hitTree = hit_ ? treeOf(*hit_) : nullptr;
    const bool isTrue = hit_ || (facts_.now && facts_.now->truth);
    std::string text;
    std::optional<vo::TimePoint> at;
    if (isTrue && hitTree && hitTree->rise) {
        at = hitTree->rise->at;
        text = "it became true " + causeText(*hitTree->rise);
    } else if (!facts_.watch && source_->rule.condition.empty()) {
        text = "it is not known: a module brought the rule";
    } else if (isTrue && facts_.watch && facts_.watch->rise()) {
        at = facts_.watch->rise()->at;
        text = "it became true " + causeText(*facts_.watch->rise());
    } else if (facts_.watch && facts_.watch->fall() && facts_.watch->rise()) {
        const vo::Duration length = facts_.watch->fall()->at - facts_.watch->rise()->at;
        text = "last true until " + when(facts_.watch->fall()->at) + ", for " +
               (length == vo::Duration::zero() ? "a moment" : lengthText(length));
    } else if (facts_.watch) {
        text = "it was never true";
    }
    Gate& gate = add("condition", isTrue, text, at);
    if (hitTree)
        gate.tree = hitTree->tree;
    else
        gate.tree = facts_.now;
}

void GateBuilder::addEdge()
{
    const AutonomousAction& rule = source_->rule;
    const std::optional<ConditionWatch::Turn> rise =
        facts_.watch ? facts_.watch->rise() : std::nullopt;
    const HitTree* const tree = hit_ ? treeOf(*hit_) : nullptr;
    if (isBeforeActivity(rule)) {
        if (hit_)
            add("edge", true, "before " + hit_->before, hit_->at);
        else
            add("edge", false, "no activity was about to start then");
    } else if (isOnEdge(rule)) {
        const auto at = tree && tree->rise ? std::optional(tree->rise->at) : std::nullopt;
        if (hit_)
            add("edge", true, "", at);
        else
            add("edge", false,
                "it has been true since " + when(rise ? rise->at : facts_.life.begin()) +
                    ", and is proposed only when it becomes true");
    } else {
        add("edge", true, "it is proposed while it is true");
    }
    if (!hit_) {
        add("proposed", false, isOpen_ ? "life has not come to it" : "");
        return;
    }
    std::string text;
    if (hit_->of > 0)
        text = ordinal(hit_->place) + " of " + std::to_string(hit_->of) + " in its hit list";
    add("proposed", true, text, hit_->at);
}

void GateBuilder::addHits()
{
    if (!state_)
        return;
    for (const RuleHit& hit : state_->hits) {
        if (facts_.from && hit.at < *facts_.from)
            continue;
        ExplainedHit told;
        told.at = hit.at;
        told.before = hit.before;
        told.text = hit.verdict == RuleHit::Verdict::run && !hit.waitedFor.empty()
                        ? "after it waited " + hit.waitedFor
                        : hit.because;
        switch (hit.verdict) {
            case RuleHit::Verdict::run:
                told.outcome = !hit.isOver    ? "goes on"
                               : hit.isDone() ? "done"
                                              : stepOutcomeName(hit.steps.back().outcome);
                break;
            case RuleHit::Verdict::skipped:
                told.outcome = "skipped";
                break;
            case RuleHit::Verdict::waits:
                told.outcome = "waits";
                break;
            case RuleHit::Verdict::dropped:
                told.outcome = "dropped";
                break;
        }
        for (const RuleHit::Step& step : hit.steps)
            told.steps.push_back(std::string(stepOutcomeName(step.outcome)) + " " + step.text +
                                 (step.reason.empty() ? "" : " (" + step.reason + ")"));
        explanation_.hits.push_back(std::move(told));
    }
    if (!facts_.from && explanation_.hits.size() > kHitsTold)
        explanation_.hits.erase(explanation_.hits.begin(), explanation_.hits.end() - kHitsTold);
}

}  // namespace KR
