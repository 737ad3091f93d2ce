#include "explain/Explainer.h"

#include <algorithm>

#include "explain/Remedies.h"
#include "explain/ThingExplainer.h"
#include "platform/conditions/ConditionParser.h"

namespace KR {

namespace {

constexpr std::size_t kMostHitTrees = LifeState::kMostHits;

}  // namespace

Explainer::Explainer(std::string rule, RuleReader reader, const KeyCatalogue* catalogue)
    : rule_(std::move(rule)), catalogue_(catalogue), life_(std::move(reader))
{
}

void Explainer::take(const Event& event)
{
    life_.take(event);
    if (const auto* const write = std::get_if<KeyWritten>(&event.what)) {
        if (watch_ && watch_->reads(write->key))
            watch_->write(write->key, write->value, event.time, write->writer);
        return onRise(event.time);
    }
    if (std::holds_alternative<RunBegan>(event.what) ||
        std::holds_alternative<PackageChanged>(event.what))
        follow(event.time);
    if (const auto* const resumed = std::get_if<HistoriesResumed>(&event.what); resumed && watch_) {
        std::map<std::string, TimedHistory> histories;
        for (const ResumedHistory& each : resumed->histories)
            histories[each.part] = {each.isTrue, each.instants};
        watch_->resume(histories, event.time + resumed->within);
    }
    const auto* const moved = std::get_if<CheckerMoved>(&event.what);
    if (moved) {
        using Kind = CheckerMove::Kind;
        isChecked_ = moved->kind != Kind::stopped;
        if (watch_ && !isChecked_)
            watch_->end(event.time);
        else if (watch_ && moved->kind == Kind::started)
            watch_->begin(event.time);
        else if (watch_ && (moved->kind == Kind::settled || moved->kind == Kind::both))
            watch_->advance(event.time);
        onRise(event.time);
    }
    const auto* const proposed = std::get_if<RuleProposed>(&event.what);
    if (!proposed || proposed->rule.name != rule_ || !watch_)
        return;
    if (!watch_->isTrue())
        watch_->advance(event.time);
    onRise(event.time);
    // Life comes to a hit when later writes may have been made.
    const bool isPast = !watch_->isTrue() || (!proposed->rule.periodic && proposed->before.empty());
    hitTrees_.push_back(isPast && rise_ ? *rise_ : HitTree{event.time, treeNow(), watch_->rise()});
    hitTrees_.back().at = event.time;
    if (hitTrees_.size() > kMostHitTrees)
        hitTrees_.pop_front();
}

bool Explainer::needs(std::string_view key) const
{
    constexpr std::string_view kLifes = "Nimbra/";
    return !isConfigured_ || !watch_ || watch_->reads(key) ||
           key.substr(0, kLifes.size()) == kLifes;
}

/// Watches the rule's condition, if it is another one than so far.
void Explainer::follow(vo::TimePoint time)
{
    const RuleSource* const source = life_.rule(rule_);
    const std::string condition = source && source->isLoaded ? source->rule.condition : "";
    isConfigured_ = source && source->package.empty() && !source->file.empty();
    if (condition == condition_)
        return;
    condition_ = condition;
    syntaxError_.clear();
    watch_.reset();
    rise_.reset();
    risesSeen_ = 0;
    if (condition.empty())
        return;
    try {
        watch_ = std::make_unique<ConditionWatch>(condition);
    } catch (const ConditionSyntaxError& e) {
        syntaxError_ = e.what();
        return;
    }
    for (const auto& [key, held] : life_.keys()) {
        if (watch_->reads(key))
            watch_->load(key, held.value, held.written);
    }
    if (isChecked_)
        watch_->begin(time);
    onRise(time);
}

/// Keeps what the condition looked like when it became true.
void Explainer::onRise(vo::TimePoint time)
{
    if (!watch_ || watch_->rises() == risesSeen_)
        return;
    risesSeen_ = watch_->rises();
    rise_ = HitTree{watch_->rise() ? watch_->rise()->at : time, treeNow(), watch_->rise()};
}

TruthNode Explainer::treeNow()
{
    TreeFacts facts;
    facts.since = [this](const std::string& part) { return watch_->since(part); };
    facts.key = [this](const std::string& key, bool isKnown) { return factsOf(key, isKnown); };
    return makeTruthTree(condition_, watch_->inspect(), facts);
}

KeyFacts Explainer::factsOf(const std::string& key, bool isKnown) const
{
    KeyFacts facts;
    const auto held = life_.keys().find(key);
    if (held != life_.keys().end()) {
        facts.since = held->second.since;
        facts.writer = held->second.writer;
    }
    if (isKnown)
        return facts;
    const std::string publishers = publishersText(key, life_, catalogue_);
    facts.why = (held == life_.keys().end() ? "never written" : "it holds no value") +
                (publishers.empty() ? "; nothing on this robot publishes it" : publishers);
    return facts;
}

std::optional<TruthNode> Explainer::treeAt(vo::TimePoint at)
{
    if (!watch_)
        return std::nullopt;
    watch_->advance(std::max(at, life_.now()));
    onRise(at);
    return treeNow();
}

Explanation Explainer::answer(vo::TimePoint at, std::optional<vo::TimePoint> from)
{
    at = std::max(at, life_.now());
    const std::optional<TruthNode> now = treeAt(at);
    GateBuilder builder(
        {rule_, life_, watch_.get(), now, rise_, hitTrees_, syntaxError_, at, from});
    Explanation explanation = builder.build();
    if (watch_ && !explanation.acted)
        addRemedies(explanation, builder.standing(), builder.isUnderWay());
    return explanation;
}

/// What would have it proposed; and what it would come to then.
void Explainer::addRemedies(Explanation& explanation, const std::vector<Standing>& standing,
                            bool isUnderWay)
{
    const AutonomousAction& rule = explanation.source->rule;
    std::vector<std::string> rest;
    for (const Standing& each : standing) {
        if (each.remedy.empty())
            rest.push_back(each.text);
        else
            explanation.remedies.push_back({{}, false, each.remedy, {}});
    }
    const bool isOnEdge = !(rule.synchronicity & ExecuteAnyTimeConditionTrue) &&
                          (rule.synchronicity & ExecuteAnyTimeConditionEdgeTrue);
    const bool isTrue = watch_->isTrue();
    if (isUnderWay || (isTrue && !isOnEdge)) {
        for (ExplainedRemedy& remedy : explanation.remedies)
            remedy.standing = rest;
        return;
    }
    const Remedies remedies =
        findRemedies(watch_->moment(explanation.asked),
                     isOnEdge ? RemedyGoal::becomesTrue : RemedyGoal::isTrue, catalogue_);
    explanation.isSearchCut = remedies.isCut;
    for (const Remedy& remedy : remedies.found)
        explanation.remedies.push_back({remedy, true, {}, rest});
}

}  // namespace KR
