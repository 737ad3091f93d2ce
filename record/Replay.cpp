#include "record/Replay.h"

#include <algorithm>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "launchpad/NimbraLaunchpad.h"
#include "life/FocusRequest.h"
#include "life/LifeDriver.h"
#include "life/LifeService.h"
#include "platform/conditions/CheckerScript.h"
#include "record/EventCodec.h"
#include "record/LifeCall.h"
#include "record/ReplayStage.h"

namespace KR {

namespace {

/// What happened, without when.
std::string contentOf(const Event& event)
{
    return encodeEvent({0, {}, event.what});
}

/// Of a turn that life/ takes when it is its time: what names it.
std::optional<std::string> heldName(const Happening& begin)
{
    using Name = std::optional<std::string>;
    return std::visit(
        Cases{
            [](const HitsTaken& hits) -> Name { return "hits " + std::to_string(hits.number); },
            [](const TimerFired& timer) -> Name { return "timer " + std::to_string(timer.timer); },
            [](const WaitingSeen&) -> Name { return "waiting"; },
            [](const auto&) -> Name { return {}; }},
        begin);
}

/// Whether it is a decision of life/ or its effect.
bool isLifesOutcome(const Happening& what)
{
    return std::visit(
        Cases{[](const RuleProposed&) { return true; }, [](const RuleResumed&) { return true; },
              [](const RuleSkipped&) { return true; }, [](const RuleWaits&) { return true; },
              [](const RuleDropped&) { return true; }, [](const StepEnded&) { return true; },
              [](const FocusChanged&) { return true; }, [](const StateChanged&) { return true; },
              [](const SleepChanged&) { return true; },
              [](const FocusBlockChanged&) { return true; },
              [](const ChainChanged&) { return true; },
              [](const EverythingStopped&) { return true; }, [](const auto&) { return false; }},
        what);
}

}  // namespace

/// Two kinds of work are kept apart. What the condition checker is given are the writes, made only
/// as far as the next thing that it did had seen them; what it finds is compared list by list. What
/// life/ is given are turns and answers, in the order of the recording. While life/ is in a turn
/// and asks for something, the recording is read on to the place where it asked.
class Replay::Impl : private LifeDriver {
public:
    Impl(Source source, Sink sink) : source_(std::move(source)), sink_(std::move(sink)) {}

    ReplayResult run();

private:
    /// What was read, until life/ was asked to end, or nothing more is there.
    std::optional<Event> next();
    void begin();
    void process(const Event& event);
    void handle(const Event& event, const KeyWritten& write);
    void handle(const Event& event, const PackageChanged& change);
    void handle(const Event& event, const CheckerMoved& move);
    void handle(const Event& event, const HitsFound& hits);
    void takeTurn(const Event& event);
    void match(const Event& event);
    template <class What>
    std::optional<What> readOnTo(const std::string& asked);

    void makeWrites(std::uint64_t upTo);
    void compareOwnWrites();
    void expectNothingMore(const Event& event);
    void depart(std::optional<Event> recorded, std::optional<Event> replayed, std::string text);
    bool isOver() const { return hasEnded_ || result_.difference; }
    void onHappened(const Event& event);

    // Of LifeDriver.
    void hold(const Happening& begin, vo::Duration delay, std::function<void()> turn) override;
    void drop(const TimerFired& begin) override;
    vo::Future<vo::Value> answer(std::uint64_t number, const std::string& text) override;
    std::list<AutonomousAction> suggestions(const NimbraLaunchpad& launchpad, int mask) override;
    void write(const std::string& key, const KRValue& value) override;
    CheckerScript* checker() override { return &script_; }

    const Source source_;
    const Sink sink_;
    ReplayResult result_;

    std::deque<Event> ahead_;  ///< read already
    bool hasEnded_ = false;    ///< nothing is to be compared any more
    bool isStarted_ = false;   ///< monitoring

    std::deque<Event> writes_;  ///< that were read and not yet made
    std::deque<std::pair<std::string, KRValue>> ownRecorded_;
    std::deque<std::pair<std::string, KRValue>> ownReplayed_;
    std::deque<Event> outcomes_;  ///< of life/, not yet compared
    std::deque<Event> hits_;      ///< found, not yet compared
    std::uint64_t lastHits_ = 0;  ///< the number of the last list that was compared
    std::map<std::string, std::deque<std::function<void()>>> held_;
    std::map<std::uint64_t, vo::Promise<vo::Value>> promises_;
    const Happening* given_ = nullptr;  ///< what is just given to life/ from outside

    CheckerScript script_;
    std::optional<ReplayStage> stage_;
};

ReplayResult Replay::Impl::run()
{
    begin();
    while (!isOver()) {
        const std::optional<Event> event = next();
        if (!event)
            break;
        process(*event);
    }
    const bool isSame = !result_.difference;
    hasEnded_ = true;
    stage_.reset();
    while (isSame) {
        const std::optional<Event> event = next();
        if (!event)
            break;
        sink_(*event);
    }
    return result_;
}

std::optional<Event> Replay::Impl::next()
{
    if (ahead_.empty())
        return source_();
    Event event = std::move(ahead_.front());
    ahead_.pop_front();
    return event;
}

/// What is known before life begins is read ahead.
void Replay::Impl::begin()
{
    ReplayBeginning beginning = readBeginning(source_);
    const auto& run = std::get<RunBegan>(beginning.start.what);
    stage_.emplace(beginning.start, run.configText, std::move(beginning.packages),
                   static_cast<LifeDriver&>(*this),
                   [this](const Event& event) { onHappened(event); });
    ahead_ = {beginning.events.begin(), beginning.events.end()};
}

/// The next thing that was recorded.
void Replay::Impl::process(const Event& event)
{
    if (isMonitoringsEnd(event.what)) {
        hasEnded_ = true;
        ahead_.push_front(event);
        return;
    }
    std::visit(Cases{[&](const KeyWritten& write) { handle(event, write); },
                     [&](const HistoriesResumed& resumed) {
                         sink_(event);
                         stage_->resume(event, resumed);
                     },
                     [&](const PackageChanged& change) { handle(event, change); },
                     [&](const CheckerMoved& move) { handle(event, move); },
                     [&](const HitsFound& hits) { handle(event, hits); },
                     [&](const HitsTaken&) { takeTurn(event); },
                     [&](const TimerFired&) { takeTurn(event); },
                     [&](const WaitingSeen&) { takeTurn(event); },
                     [&](const ActivityEnded&) { takeTurn(event); },
                     [&](const LifeAsked&) { takeTurn(event); },
                     [&](const RequestAnswered&) { takeTurn(event); },
                     [&](const RequestMade& request) {
                         depart(event, {},
                                "it asked for " + request.text + ", and does not any more");
                     },
                     [&](const TruthsRead&) {
                         depart(event, {}, "it read which rules are true, and does not any more");
                     },
                     [&](const auto&) {
                         if (isLifesOutcome(event.what))
                             match(event);
                         else
                             sink_(event);
                     }},
               event.what);
}

void Replay::Impl::handle(const Event& event, const KeyWritten& write)
{
    sink_(event);
    if (write.isEarlier) {
        stage_->write(event, write);
        return;
    }
    writes_.push_back(event);
    if (!isLifesKey(write.key))
        return;
    ownRecorded_.emplace_back(write.key, write.value);
    compareOwnWrites();
}

void Replay::Impl::handle(const Event& event, const PackageChanged& change)
{
    sink_(event);
    if (!isStarted_)
        return;
    stage_->moveTime(event);
    if (!writes_.empty())
        makeWrites(std::get<KeyWritten>(writes_.back().what).number);
    stage_->settle();
    stage_->services().change(change.package, change.installed);
    stage_->settle();
}

void Replay::Impl::handle(const Event& event, const CheckerMoved& move)
{
    using Kind = CheckerMove::Kind;
    sink_(event);
    makeWrites(move.after);
    if (move.uptime > stage_->clock().uptime())
        stage_->clock().advance(move.uptime - stage_->clock().uptime());
    switch (move.kind) {
        case Kind::started:
            isStarted_ = true;
            stage_->life().start();
            break;
        case Kind::stopped:
            break;
        case Kind::period:
            stage_->settle();
            script_.period();
            break;
        case Kind::settled:
        case Kind::both:
            script_.settle(move.uptime, move.kind == Kind::both);
            break;
        case Kind::checked:
            stage_->life().launchpad().checkConditions();
            break;
    }
    stage_->settle();
}

void Replay::Impl::handle(const Event& event, const HitsFound& hits)
{
    stage_->moveTime(event);
    makeWrites(hits.after);
    stage_->settle();
    // Before a write that came later, what was due before it came about.
    while (hits_.empty() && script_.elapse(event.uptime))
        stage_->settle();
    if (hits_.empty()) {
        depart(event, {}, "these rules were hit, and are not any more");
        return;
    }
    lastHits_ = hits.number;
    const Event found = std::move(hits_.front());
    hits_.pop_front();
    const auto& other = std::get<HitsFound>(found.what);
    const auto isSameHit = [](const FoundHit& a, const FoundHit& b) { return a.rule == b.rule; };
    if (other.after != hits.after || !std::equal(hits.hits.begin(), hits.hits.end(),
                                                 other.hits.begin(), other.hits.end(), isSameHit)) {
        depart(event, found, "other rules are hit");
        return;
    }
    ++result_.decisions;
    sink_(event);
}

/// Gives life/ what it was given there.
void Replay::Impl::takeTurn(const Event& event)
{
    expectNothingMore(event);
    if (isOver())
        return;
    stage_->moveTime(event);
    sink_(event);
    const auto* const taken = std::get_if<HitsTaken>(&event.what);
    if (taken && taken->number > lastHits_) {
        depart(event, {}, "these hits were taken up, and were not found");
        return;
    }
    if (const auto name = heldName(event.what)) {
        const auto held = held_.find(*name);
        if (held == held_.end()) {
            depart(event, {}, "this came about by itself (" + *name + "), and does not any more");
            return;
        }
        const std::function<void()> turn = std::move(held->second.front());
        held->second.pop_front();
        if (held->second.empty())
            held_.erase(held);
        turn();
    } else if (const auto* const answered = std::get_if<RequestAnswered>(&event.what)) {
        const auto promise = promises_.find(answered->number);
        if (promise == promises_.end()) {
            depart(event, {}, "this answers a request that is not made any more");
            return;
        }
        const vo::Promise<vo::Value> asked = promise->second;
        promises_.erase(promise);
        keepPromise(asked, answered->answer);
    } else {
        given_ = &event.what;
        if (const auto* const ended = std::get_if<ActivityEnded>(&event.what))
            activityEnded(ended->stay, ended->reason);
        else
            callLife(stage_->life().service(), std::get<LifeAsked>(event.what));
        given_ = nullptr;
    }
    stage_->settle();
}

/// An outcome that was recorded, with the one that came now.
void Replay::Impl::match(const Event& event)
{
    if (outcomes_.empty()) {
        depart(event, {}, "this happened, and does not any more");
        return;
    }
    const Event outcome = std::move(outcomes_.front());
    outcomes_.pop_front();
    if (contentOf(outcome) != contentOf(event)) {
        depart(event, outcome, "something else happens");
        return;
    }
    ++result_.decisions;
    sink_(event);
}

/// Inside of a turn: goes on with the recording up to where life/ asked this.
template <class What>
std::optional<What> Replay::Impl::readOnTo(const std::string& asked)
{
    while (!isOver()) {
        const std::optional<Event> event = next();
        if (!event) {
            hasEnded_ = true;
            break;
        }
        const What* const place = std::get_if<What>(&event->what);
        if (!place && heldName(event->what)) {
            // Another turn cannot begin inside of this one.
            depart({}, {}, asked);
            break;
        }
        if (!place) {
            process(*event);
            continue;
        }
        expectNothingMore(*event);
        if (isOver())
            break;
        stage_->moveTime(*event);
        sink_(*event);
        return *place;
    }
    return {};
}

void Replay::Impl::makeWrites(std::uint64_t upTo)
{
    for (; !writes_.empty(); writes_.pop_front()) {
        const auto& write = std::get<KeyWritten>(writes_.front().what);
        if (write.number > upTo)
            break;
        stage_->write(writes_.front(), write);
    }
}

void Replay::Impl::compareOwnWrites()
{
    while (!ownRecorded_.empty() && !ownReplayed_.empty() && !isOver()) {
        const auto& [key, value] = ownRecorded_.front();
        const auto& [otherKey, otherValue] = ownReplayed_.front();
        if (key != otherKey || value != otherValue)
            depart({}, {},
                   "life wrote '" + key + "' = " + value.toDisplayString() + ", and now writes '" +
                       otherKey + "' = " + otherValue.toDisplayString());
        ownRecorded_.pop_front();
        ownReplayed_.pop_front();
    }
}

/// At the begin of something new, all that came before is compared.
void Replay::Impl::expectNothingMore(const Event& event)
{
    if (!outcomes_.empty())
        depart(event, outcomes_.front(), "something more happens before this");
}

/// The first difference counts.
void Replay::Impl::depart(std::optional<Event> recorded, std::optional<Event> replayed,
                          std::string text)
{
    if (!isOver())
        result_.difference =
            ReplayDifference{std::move(recorded), std::move(replayed), std::move(text)};
}

void Replay::Impl::onHappened(const Event& event)
{
    if (std::holds_alternative<HitsFound>(event.what))
        hits_.push_back(event);
    else if (isLifesOutcome(event.what))
        outcomes_.push_back(event);
}

void Replay::Impl::hold(const Happening& begin, vo::Duration /*delay*/, std::function<void()> turn)
{
    if (hasEnded_)
        return;
    if (given_ && given_->index() == begin.index()) {
        given_ = nullptr;
        turn();
        return;
    }
    if (const auto name = heldName(begin))
        held_[*name].push_back(std::move(turn));
}

void Replay::Impl::drop(const TimerFired& begin)
{
    held_.erase(*heldName(begin));
}

vo::Future<vo::Value> Replay::Impl::answer(std::uint64_t number, const std::string& text)
{
    const vo::Promise<vo::Value> promise;
    const std::optional<RequestMade> request =
        readOnTo<RequestMade>("it asks for " + text + ", which it did not");
    if (!request)
        return promise.future();
    if (request->number != number || request->text != text)
        depart({}, {}, "it asked for " + request->text + ", and now asks for " + text);
    else if (request->answer)
        keepPromise(promise, *request->answer);
    else
        promises_.emplace(number, promise);
    return promise.future();
}

std::list<AutonomousAction> Replay::Impl::suggestions(const NimbraLaunchpad& launchpad, int mask)
{
    std::list<AutonomousAction> suggestions;
    const std::optional<TruthsRead> read =
        readOnTo<TruthsRead>("it reads which rules are true, which it did not");
    if (!read)
        return suggestions;
    std::list<AutonomousAction> actions = launchpad.getActions();
    auto action = actions.begin();
    for (const std::string& rule : read->rules) {
        const auto isIt = [&](const AutonomousAction& each) {
            return each.description == rule &&
                   (each.synchronicity & static_cast<std::uint32_t>(mask)) != 0;
        };
        action = std::find_if(action, actions.end(), isIt);
        if (action == actions.end()) {
            depart({}, {}, "the condition of '" + rule + "' was true, and there is no such rule");
            break;
        }
        suggestions.push_back(*action++);
    }
    return suggestions;
}

void Replay::Impl::write(const std::string& key, const KRValue& value)
{
    if (hasEnded_)
        return;
    ownReplayed_.emplace_back(key, value);
    compareOwnWrites();
}

Replay::Replay(Source source, Sink sink)
    : impl_(std::make_unique<Impl>(std::move(source), std::move(sink)))
{
}

Replay::~Replay() = default;

ReplayResult Replay::run()
{
    return impl_->run();
}

}  // namespace KR
