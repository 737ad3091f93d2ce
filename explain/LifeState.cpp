#include "explain/LifeState.h"

#include <algorithm>

namespace KR {

namespace {

/// Hit lists that wait for life; those that nobody takes are none of rules that were loaded.
constexpr std::size_t kMostFound = 1000;

template <class Container>
void limit(Container& container, std::size_t most)
{
    while (container.size() > most)
        container.pop_front();
}

}  // namespace

void LifeState::take(const Event& event)
{
    now_ = event.time;
    if (begin_ == vo::TimePoint())
        begin_ = now_;
    std::visit([this](const auto& what) { on(what); }, event.what);
}

std::vector<const RuleSource*> LifeState::rules() const
{
    std::vector<const RuleSource*> all;
    for (const RuleSource& source : configured_)
        all.push_back(&source);
    for (const auto& [package, sources] : packaged_) {
        for (const RuleSource& source : sources)
            all.push_back(&source);
    }
    for (const auto& [name, source] : others_)
        all.push_back(&source);
    return all;
}

const RuleSource* LifeState::rule(const std::string& name) const
{
    const auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : found->second;
}

void LifeState::indexRules()
{
    byName_.clear();
    for (const RuleSource* source : rules())
        byName_.emplace(source->rule.description, source);
}

const RuleState* LifeState::stateOf(const std::string& rule) const
{
    const auto found = states_.find(rule);
    return found == states_.end() ? nullptr : &found->second;
}

std::string LifeState::lifeState() const
{
    const auto state = keys_.find("Nimbra/State");
    return state != keys_.end() && state->second.value.isString() ? state->second.value.toString()
                                                                  : "";
}

void LifeState::set(HeldFact& fact, bool is, vo::TimePoint since, const std::string& rule,
                    const std::string& text)
{
    if (fact.is == is && fact.text == text && fact.since != vo::TimePoint())
        return;
    fact = {is, since, rule, 0, text};
}

void LifeState::tell(std::deque<Told>& told, const std::string& text) const
{
    told.push_back({now_, text});
    limit(told, kMostTold);
}

void LifeState::on(const RunBegan& run)
{
    run_ = run;
    hasEnded_ = false;
    configured_ = reader_ ? reader_(run.config, run.configText) : std::vector<RuleSource>();
    indexRules();
}

void LifeState::on(const RunEnded& /*run*/)
{
    hasEnded_ = true;
    dropRuns();
}

void LifeState::dropRuns()
{
    for (const Run& run : std::exchange(runs_, {}))
        endRun(run.rule);
}

void LifeState::on(const KeyWritten& write)
{
    const auto [place, isNew] = keys_.try_emplace(write.key);
    HeldKey& key = place->second;
    if (isNew || write.isChange) {
        key.before = isNew ? KRValue() : key.value;
        key.since = now_;
    }
    key.value = write.value;
    key.writer = write.writer;
    key.written = now_;
}

void LifeState::on(const MonitoringSwitched& monitoring)
{
    set(monitoring_, monitoring.on, now_, {});
}

void LifeState::on(const PackageChanged& change)
{
    const std::string uuid = change.package.uuid();
    packages_.erase(uuid);
    packaged_.erase(uuid);
    if (change.installed) {
        packages_[uuid] = change.package;
        packaged_[uuid] = rulesOfPackage(change.package);
    }
    indexRules();
}

void LifeState::on(const HitsFound& found)
{
    found_.push_back(found);
    limit(found_, kMostFound);
}

void LifeState::on(const HitsTaken& taken)
{
    list_.reset();
    listOrder_.clear();
    while (!found_.empty() && found_.front().number <= taken.number) {
        if (found_.front().number == taken.number)
            list_ = std::move(found_.front());
        found_.pop_front();
    }
}

void LifeState::on(const RuleProposed& proposed)
{
    const std::string& name = proposed.rule.name;
    if (!rule(name)) {
        RuleSource& source = others_[name];
        source.rule.description = name;
        byName_[name] = &source;
        source.rule.synchronicity = proposed.rule.periodic ? ExecuteAnyTimeConditionTrue
                                    : proposed.before.empty()
                                        ? ExecuteAnyTimeConditionEdgeTrue
                                        : ExecuteBeforeActivityIfConditionTrue;
    }
    RuleState& state = states_[name];
    RuleHit hit;
    hit.at = hit.decided = now_;
    hit.before = proposed.before;
    const bool isOfList = list_ && proposed.before.empty() &&
                          std::any_of(list_->hits.begin(), list_->hits.end(),
                                      [&](const FoundHit& each) { return each.rule == name; });
    if (isOfList) {
        hit.list = list_->number;
        hit.of = list_->hits.size();
        hit.ahead = listOrder_;
        listOrder_.push_back(name);
        hit.place = listOrder_.size();
    }
    state.hits.push_back(std::move(hit));
    limit(state.hits, kMostHits);
    judged_ = &state.hits.back();
    ++state.hitCount;
    beginRun(name);
}

/// The verdict is told only where it is not to run.
void LifeState::beginRun(const std::string& rule)
{
    RuleState& state = states_[rule];
    if (state.active++ == 0)
        state.activeSince = now_;
    runs_.push_back({rule, 0, false});
}

void LifeState::endRun(const std::string& rule)
{
    RuleState& state = states_[rule];
    if (state.active > 0 && --state.active == 0)
        state.activeUntil = now_;
}

/// The oldest hit of a rule of which something is to come yet.
RuleHit* LifeState::openHit(const std::string& rule, RuleHit::Verdict verdict)
{
    RuleState& state = states_[rule];
    const auto open = std::find_if(state.hits.begin(), state.hits.end(), [&](const RuleHit& hit) {
        return !hit.isOver && hit.verdict == verdict;
    });
    return open == state.hits.end() ? nullptr : &*open;
}

void LifeState::on(const RuleResumed& resumed)
{
    judged_ = openHit(resumed.rule.name, RuleHit::Verdict::waits);
    if (judged_) {
        judged_->verdict = RuleHit::Verdict::run;
        judged_->decided = now_;
    }
    beginRun(resumed.rule.name);
}

void LifeState::on(const RuleSkipped& skipped)
{
    judge(skipped.rule.name, RuleHit::Verdict::skipped, skipped.reason);
}

void LifeState::on(const RuleWaits& waits)
{
    judge(waits.rule.name, RuleHit::Verdict::waits, waits.reason);
}

/// What was proposed right before this is not to run now.
void LifeState::judge(const std::string& rule, RuleHit::Verdict verdict, const std::string& reason)
{
    if (runs_.empty() || runs_.back().rule != rule)
        return;
    runs_.pop_back();
    endRun(rule);
    if (!judged_)
        return;
    judged_->verdict = verdict;
    judged_->because = reason;
    judged_->decided = now_;
    judged_->isOver = verdict == RuleHit::Verdict::skipped;
    if (verdict == RuleHit::Verdict::waits)
        judged_->waitedFor = reason;
}

void LifeState::on(const RuleDropped& dropped)
{
    RuleHit* const hit = openHit(dropped.rule.name, RuleHit::Verdict::waits);
    if (!hit)
        return;
    hit->verdict = RuleHit::Verdict::dropped;
    hit->because = dropped.reason;
    hit->decided = now_;
    hit->isOver = true;
}

void LifeState::on(const StepEnded& step)
{
    const std::string& name = step.rule.name;
    const bool isLast = step.outcome != StepOutcome::done || step.rest == 0;
    if (RuleHit* const hit = openHit(name, RuleHit::Verdict::run)) {
        hit->steps.push_back({step.type, step.text, step.outcome, step.reason, now_, block_});
        hit->isOver = isLast;
        const bool isBlock = step.type == actionItemTypeName(ActionItemBlockAutonomousFocus);
        if (isBlock && block_.is && block_.rule == name && block_.step == 0)
            block_.step = hit->steps.size();
    }
    if (!isLast)
        return;
    const auto run = std::find_if(runs_.begin(), runs_.end(), [&](const Run& each) {
        return each.rule == name && !each.isEnded;
    });
    if (run == runs_.end())
        return;
    run->isEnded = true;
    if (run->stay != 0 && run->stay == stay_)
        return;  // it stays active as long as its activity has the focus
    runs_.erase(run);
    endRun(name);
}

void LifeState::on(const FocusChanged& change)
{
    if (change.lost != 0) {
        const auto isOver = [this](const Run& run) { return run.isEnded && run.stay == stay_; };
        for (const Run& run : runs_) {
            if (isOver(run))
                endRun(run.rule);
        }
        runs_.erase(std::remove_if(runs_.begin(), runs_.end(), isOver), runs_.end());
        stay_ = 0;
    }
    if (!change.activity.empty()) {
        stay_ = ++lastStay_;
        for (Run& run : runs_) {
            if (run.rule == change.rule && !run.isEnded)
                run.stay = stay_;
        }
    }
    focus_ = {!change.activity.empty(), now_, change.rule, 0, change.activity};
    tell(focusChanges_,
         change.activity.empty() ? change.previous + " ended" : change.activity + " got the focus");
}

void LifeState::on(const FocusBlockChanged& change)
{
    set(block_, change.blocked, now_, change.rule);
}

void LifeState::on(const ChainChanged& change)
{
    set(chains_[change.chain], change.frozen, now_, change.rule, change.chain);
}

void LifeState::on(const PluginSwitched& plugin)
{
    set(plugins_[plugin.plugin], plugin.running, now_, {});
}

void LifeState::on(const ErrorReported& error)
{
    tell(errors_, error.source + ": " + error.text);
}

}  // namespace KR
