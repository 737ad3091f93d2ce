#include "explain/GateBuilder.h"

#include <algorithm>
#include <utility>

#include "life/StepResult.h"
#include "timeline/Text.h"

namespace KR {

namespace {

using Verdict = RuleHit::Verdict;

/// A hit that is no longer ago is what somebody means who asks about a time.
constexpr vo::Duration kNear = std::chrono::seconds(10);
/// Hits that are told where no time is given from which on.
constexpr std::size_t kHitsTold = 5;

std::string joined(const std::vector<std::string>& texts)
{
    std::string all;
    for (const std::string& text : texts)
        all += (all.empty() ? "" : ", ") + text;
    return all;
}

/// Those of the rules that a reason names.
std::vector<std::string> namedIn(const std::string& reason, const std::vector<std::string>& rules)
{
    std::vector<std::string> named;
    for (const std::string& rule : rules) {
        if (reason.find(rule) != std::string::npos)
            named.push_back(rule);
    }
    return named;
}

std::string ordinal(std::size_t number)
{
    static constexpr const char* kEnds[] = {"th", "st", "nd", "rd"};
    const std::size_t last = number % 10;
    const bool isTeen = number / 10 % 10 == 1;
    return std::to_string(number) + kEnds[last > 3 || isTeen ? 0 : last];
}

bool isOf(const RuleHit::Step& step, ActionItemType type)
{
    return step.type == actionItemTypeName(type);
}

/// What keeps the focus from being switched at all, whatever the activity.
bool isAboutFocus(const std::string& reason)
{
    return reason.find("focus is blocked") != std::string::npos ||
           reason.find("may run in the state") != std::string::npos ||
           reason.find("it was cancelled") != std::string::npos ||
           reason.find("life service has ended") != std::string::npos;
}

bool isOverdue(const std::string& reason)
{
    return reason.find("has not ended within") != std::string::npos;
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

std::string causeText(const ConditionWatch::Turn& turn, const LifeState& life)
{
    if (turn.isBeginning)
        return "when conditions began to be watched";
    if (turn.key.empty())
        return "as time passed";
    std::string text = "when '" + turn.key + "' went " + turn.before.toDisplayString() + " → " +
                       turn.after.toDisplayString();
    const auto key = life.keys().find(turn.key);
    if (key != life.keys().end() && key->second.since == turn.at && !key->second.writer.empty())
        text += " (written by " + key->second.writer + ")";
    return text;
}

/// Whether a rule of that name does a step of that type.
bool does(const AutonomousAction& rule, ActionItemType type)
{
    return std::any_of(rule.items.begin(), rule.items.end(),
                       [type](const AutonomousActionItem& item) { return item.type == type; });
}

/// Whether it takes a block away itself before it switches the focus.
bool unblocksFirst(const AutonomousAction& rule)
{
    for (const AutonomousActionItem& item : rule.items) {
        if (item.type == ActionItemUnblockAutonomousFocus)
            return true;
        if (item.type == ActionItemSwitchFocus)
            return false;
    }
    return false;
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
        explanation_.verdict = "acted at " + clockTime(hit_->steps.back().at);
    else if (hit_ && hit_->verdict == Verdict::run && !hit_->isOver)
        explanation_.verdict = "is acting at " + clockTime(facts_.at);
    else
        explanation_.verdict = "did not act at " + clockTime(facts_.at);
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
        text = "it became true " + causeText(*hitTree->rise, facts_.life);
    } else if (isTrue && facts_.watch->rise()) {
        at = facts_.watch->rise()->at;
        text = "it became true " + causeText(*facts_.watch->rise(), facts_.life);
    } else if (facts_.watch && facts_.watch->fall() && facts_.watch->rise()) {
        const vo::Duration length = facts_.watch->fall()->at - facts_.watch->rise()->at;
        text = "last true until " + clockTime(facts_.watch->fall()->at) + ", for " +
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
                "it has been true since " + clockTime(rise ? rise->at : facts_.life.begin()) +
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

/// What the rule lists say.
void GateBuilder::addVerdicts()
{
    addOrder();
    addSkip();
    addWait();
}

void GateBuilder::addOrder()
{
    const std::vector<std::string>& leaders = source_->rule.executeAfterIfSimultaneouslyTrue;
    std::vector<std::string> held;
    if (hit_ && hit_->verdict == Verdict::waits) {
        for (const std::string& leader : namedIn(hit_->because, leaders)) {
            const auto& ahead = hit_->ahead;
            if (std::find(ahead.begin(), ahead.end(), leader) != ahead.end())
                held.push_back(leader);
        }
    }
    const std::vector<std::string> ahead =
        hit_ ? namedIn(joined(hit_->ahead), leaders) : std::vector<std::string>();
    std::string text =
        leaders.empty() ? "it names no rules to come after" : "names: " + joined(leaders);
    if (!held.empty())
        text = "it comes after " + joined(held) + " of the same hit list, whose steps go on";
    else if (!ahead.empty())
        text = "after " + joined(ahead) + ", which had its turn";
    add("order", hit_ && held.empty(), text).because = held.empty() ? ahead : held;
}

void GateBuilder::addSkip()
{
    const std::vector<std::string>& rules = source_->rule.skipIfRulesActive;
    if (hit_ && hit_->verdict == Verdict::skipped) {
        Gate& gate = add("skip", false, "it was skipped " + hit_->because, hit_->decided);
        gate.because = namedIn(hit_->because, rules);
        gate.reasons = {hit_->because};
        return;
    }
    add("skip", hit_ != nullptr,
        rules.empty() ? "no active rule has it skipped" : "names: " + activeText(rules));
}

void GateBuilder::addWait()
{
    const std::vector<std::string>& rules = source_->rule.executeAfterActiveRules;
    const bool isStuck =
        hit_ && (hit_->verdict == Verdict::waits || hit_->verdict == Verdict::dropped);
    std::string text = rules.empty() ? "it waits for no rules" : "names: " + activeText(rules);
    if (hit_ && hit_->verdict == Verdict::waits)
        text = "it waits " + hit_->because;
    else if (hit_ && hit_->verdict == Verdict::dropped)
        text = "it waited " + hit_->waitedFor + ", and was dropped: " + hit_->because;
    else if (hit_ && !hit_->waitedFor.empty())
        text = "it waited " + hit_->waitedFor + ", until " + clockTime(hit_->decided);
    Gate& gate =
        add("wait", hit_ && !isStuck, text, isStuck ? std::optional(hit_->decided) : std::nullopt);
    if (isStuck) {
        gate.because = namedIn(hit_->waitedFor, rules);
        gate.reasons = {hit_->because};
    }
}

std::string GateBuilder::activeText(const std::vector<std::string>& rules) const
{
    std::string text;
    for (const std::string& rule : rules) {
        const RuleState* const state = facts_.life.stateOf(rule);
        text += (text.empty() ? "" : ", ") + rule;
        if (!state || state->hitCount == 0)
            text += " (never active)";
        else if (state->active > 0)
            text += " (active since " + clockTime(state->activeSince) + ")";
        else
            text += " (not active since " + clockTime(state->activeUntil) + ")";
    }
    return text;
}

std::string GateBuilder::blockText() const
{
    const HeldFact& block = facts_.life.focusBlock();
    std::string text = "autonomous focus is blocked";
    if (!block.rule.empty()) {
        text += ", by \"" + block.rule + "\"";
        if (block.step > 0)
            text += ", step " + std::to_string(block.step) + " (BlockAutonomousFocus)";
    }
    return text + ", since " + clockTime(block.since);
}

/// Focus, permission, step and deadline: what became of the steps that it came to.
void GateBuilder::addSteps()
{
    const RuleHit::Step* const last = hit_ && !hit_->steps.empty() ? &hit_->steps.back() : nullptr;
    const bool isFailure = last && last->outcome != StepOutcome::done;
    const bool switches = last && isOf(*last, ActionItemSwitchFocus);
    const bool isFocus = isFailure && switches && isAboutFocus(last->reason);
    const bool isLate = isFailure && isOverdue(last->reason);
    const bool isPermission =
        isFailure && switches && !isFocus && !isLate && last->outcome == StepOutcome::refused;
    const auto addStep = [&](const char* name, bool isStopped, const std::string& text) {
        Gate& gate =
            add(name, hit_ && !isStopped, text, isStopped ? std::optional(last->at) : std::nullopt);
        if (!isStopped || !gate.passed)
            return;
        gate.step = last->text;
        gate.outcome = stepOutcomeName(last->outcome);
        gate.reasons = {last->reason};
        gate.text = "step " + std::to_string(hit_->steps.size()) + " of " +
                    std::to_string(source_->rule.items.size()) + " " + gate.outcome + ": " +
                    last->text;
    };
    const bool takesFocus = does(source_->rule, ActionItemSwitchFocus);
    const HeldFact& block = facts_.life.focusBlock();
    addStep("focus", isFocus,
            !takesFocus ? "it does not ask for the focus"
            : block.is  ? blockText()
            : facts_.life.focus().is
                ? "the focus may be switched; " + facts_.life.focus().text + " has it"
                : "the focus may be switched");
    if (isFocus && block.is && explanation_.gates.back().passed) {
        explanation_.gates.back().reasons = {blockText()};
        explanation_.gates.back().because = {block.rule};
    }
    addStep("permission", isPermission,
            takesFocus ? "nothing is known against its activity" : "it starts no activity");
    if (isOpen_ && isUnderWay()) {
        add("step", std::nullopt, stepsText());
        add("deadline", std::nullopt, {});
        return;
    }
    addStep("step", isFailure && !isFocus && !isPermission && !isLate, stepsText());
    addStep("deadline", isLate, "no step was too late");
}

std::string GateBuilder::stepsText() const
{
    const std::string all = std::to_string(source_->rule.items.size());
    if (!hit_ || hit_->verdict != Verdict::run)
        return all + (all == "1" ? " step" : " steps");
    const std::string done = std::to_string(hit_->steps.size()) + " of " + all;
    if (!hit_->isOver)
        return done + " steps done; the next one is under way";
    return done + (all == "1" ? " step done" : " steps done");
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
        told.text = hit.verdict == Verdict::run && !hit.waitedFor.empty()
                        ? "after it waited " + hit.waitedFor
                        : hit.because;
        switch (hit.verdict) {
            case Verdict::run:
                told.outcome = !hit.isOver    ? "goes on"
                               : hit.isDone() ? "done"
                                              : stepOutcomeName(hit.steps.back().outcome);
                break;
            case Verdict::skipped:
                told.outcome = "skipped";
                break;
            case Verdict::waits:
                told.outcome = "waits";
                break;
            case Verdict::dropped:
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

std::vector<Standing> GateBuilder::standing() const
{
    std::vector<Standing> all;
    if (!source_)
        return all;
    const AutonomousAction& rule = source_->rule;
    const auto active = [this](const std::vector<std::string>& rules) {
        std::vector<std::string> names;
        for (const std::string& name : rules) {
            const RuleState* const state = facts_.life.stateOf(name);
            if (state && state->active > 0)
                names.push_back(name);
        }
        return joined(names);
    };
    if (!facts_.life.monitoring().is)
        all.push_back({"monitored", "conditions are not watched", "start monitoring"});
    if (hit_ && hit_->verdict == Verdict::waits) {
        all.push_back({"wait",
                       {},
                       "the end of what it waits for: " +
                           hit_->because.substr(
                               std::min(hit_->because.find(": ") + 2, hit_->because.size())) +
                           "; it goes on then if its condition is still true"});
        return all;
    }
    if (const std::string names = active(rule.skipIfRulesActive); !names.empty())
        all.push_back({"skip", "it would be skipped now, while active: " + names, {}});
    if (const std::string names = active(rule.executeAfterActiveRules); !names.empty())
        all.push_back({"wait", "it would wait now, for the end of: " + names, {}});
    if (!does(rule, ActionItemSwitchFocus))
        return all;
    const std::string state = facts_.life.lifeState();
    if (state == "disabled" || state == "safeguard")
        all.push_back({"focus", "no activity may run in the state '" + state + "'",
                       "the life state solitary or interactive"});
    if (facts_.life.focusBlock().is && !unblocksFirst(rule)) {
        std::string remedy = "UnblockAutonomousFocus";
        std::vector<std::string> names;
        for (const RuleSource* each : facts_.life.rules()) {
            if (does(each->rule, ActionItemUnblockAutonomousFocus))
                names.push_back("\"" + each->rule.description + "\"");
        }
        if (!names.empty())
            remedy += " (" + std::string(names.size() == 1 ? "rule " : "rules ") + joined(names) +
                      (names.size() == 1 ? " does so)" : " do so)");
        all.push_back({"focus", blockText(), remedy});
    }
    return all;
}

}  // namespace KR
