// What the rule lists and the steps make of a hit, and what would stand in the way now.

#include <algorithm>

#include "explain/GateBuilder.h"
#include "life/StepResult.h"

namespace KR {

namespace {

using Verdict = RuleHit::Verdict;

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

/// Whether a rule of that name does a step of that type.
bool doesStep(const AutonomousAction& rule, ActionItemType type)
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
        text = "it waited " + hit_->waitedFor + ", until " + when(hit_->decided);
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
            text += " (active since " + when(state->activeSince) + ")";
        else
            text += " (not active since " + when(state->activeUntil) + ")";
    }
    return text;
}

std::string GateBuilder::blockText(const HeldFact& block) const
{
    std::string text = "autonomous focus is blocked";
    if (!block.rule.empty()) {
        text += ", by \"" + block.rule + "\"";
        if (block.step > 0)
            text += ", step " + std::to_string(block.step) + " (BlockAutonomousFocus)";
    }
    return text + ", since " + when(block.since);
}

/// What is said of a focus that nothing stood in the way of.
std::string GateBuilder::focusText() const
{
    if (!doesStep(source_->rule, ActionItemSwitchFocus))
        return "it does not ask for the focus";
    for (const RuleHit::Step& step : hit_ ? hit_->steps : std::vector<RuleHit::Step>()) {
        if (isOf(step, ActionItemSwitchFocus) && step.outcome == StepOutcome::done)
            return step.text + (step.reason.empty() ? "" : ": " + step.reason);
    }
    return "nothing keeps the focus from being switched";
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
    const bool takesFocus = doesStep(source_->rule, ActionItemSwitchFocus);
    addStep("focus", isFocus, focusText());
    if (isFocus && last->block.is && explanation_.gates.back().passed) {
        explanation_.gates.back().reasons = {blockText(last->block)};
        if (!last->block.rule.empty())
            explanation_.gates.back().because = {last->block.rule};
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
    if (!doesStep(rule, ActionItemSwitchFocus))
        return all;
    const std::string state = facts_.life.lifeState();
    if (state == "disabled" || state == "safeguard")
        all.push_back({"focus", "no activity may run in the state '" + state + "'",
                       "the life state solitary or interactive"});
    if (facts_.life.focusBlock().is && !unblocksFirst(rule)) {
        std::string remedy = "UnblockAutonomousFocus";
        std::vector<std::string> names;
        for (const RuleSource* each : facts_.life.rules()) {
            if (doesStep(each->rule, ActionItemUnblockAutonomousFocus))
                names.push_back("\"" + each->rule.description + "\"");
        }
        if (!names.empty())
            remedy += " (" + std::string(names.size() == 1 ? "rule " : "rules ") + joined(names) +
                      (names.size() == 1 ? " does so)" : " do so)");
        all.push_back({"focus", blockText(facts_.life.focusBlock()), remedy});
    }
    return all;
}

}  // namespace KR
