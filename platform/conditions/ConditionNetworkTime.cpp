// What comes of time: parts that begin, are looked at and are due.

#include <algorithm>
#include <utility>

#include "platform/conditions/ConditionNetwork.h"

namespace KR {

void ConditionNetwork::link(NodeId id, const Timed& timed)
{
    const TimedMeaning& meaning = timed.part->meaning();
    nodes_[id].timed = true;
    if (KeySlot* const key = meaning.key) {
        if (!key->ages)
            key->ages = std::make_unique<SmallList<NodeId>>();
        key->ages->push_back(id);
    } else {
        linkFanin(id, meaning.first);
        if (meaning.kind == TimedMeaning::Kind::within)
            linkFanin(id, meaning.second);
    }
    fresh_.emplace(timed.part->condition(), id);
    ++parts_;
}

void ConditionNetwork::unlink(NodeId id, const Timed& timed)
{
    const TimedMeaning& meaning = timed.part->meaning();
    if (meaning.key) {
        meaning.key->ages->erase(id);
    } else {
        const auto erase = [&](Edge fanin) {
            nodes_[fanin.node()].fanouts.erase(Fanout::to(Edge(id, fanin.negated())));
        };
        erase(meaning.first);
        if (meaning.kind == TimedMeaning::Kind::within)
            erase(meaning.second);
    }
    fresh_.erase({timed.part->condition(), id});
    --parts_;
    unschedule(id, *timed.part);
    dropIdleLooks();
}

const std::vector<unsigned>& ConditionNetwork::begin(vo::Duration now, unsigned last, bool goesOn)
{
    changed_.clear();
    beginning_ = TimedMoment{now, now};
    goesOn_ = goesOn;
    while (hasFresh(last)) {
        postpone(fresh_.begin()->second);
        fresh_.erase(fresh_.begin());
    }
    endMoment();
    goesOn_ = true;
    beginning_.reset();
    return changed_;
}

void ConditionNetwork::end()
{
    for (NodeId id = 0; id < definitions_.size() && fresh_.size() < parts_; ++id) {
        const auto* const timed = std::get_if<Timed>(&definitions_[id]);
        if (!timed)
            continue;
        timed->part->end();
        timed->part->scheduled.reset();
        fresh_.emplace(timed->part->condition(), id);
    }
    dues_.clear();
}

// What is looked at before it is due says anew when it will be.
const std::vector<unsigned>& ConditionNetwork::elapse()
{
    changed_.clear();
    moment_.now = std::max(moment_.now, dues_.begin()->first);
    moment_.elapsed = moment_.now;
    while (!dues_.empty() && moment_.isPast(dues_.begin()->first)) {
        const NodeId id = dues_.begin()->second;
        unschedule(id, partOf(id));
        postpone(id);
    }
    return endMoment();
}

/// Of a write: what is due at the same instant comes after it.
void ConditionNetwork::noteUptime(const KeySlot& slot, vo::Duration uptime)
{
    moment_.now = std::max(moment_.now, uptime);
    moment_.elapsed = std::max(moment_.elapsed, moment_.now - vo::Duration(1));
    if (!slot.ages)
        return;
    for (const NodeId age : *slot.ages)
        postpone(age);
}

TimedInputs ConditionNetwork::inputsOf(const TimedMeaning& meaning) const
{
    TimedInputs inputs;
    if (meaning.key && meaning.key->now.uptime != kNotStamped)
        inputs.written = meaning.key->now.uptime;
    inputs.first = isTrue(meaning.first);
    inputs.second = isTrue(meaning.second);
    return inputs;
}

/// Returns the part's truth; as it was while time stands still for it.
bool ConditionNetwork::updatePart(NodeId id)
{
    TimedPart& part = partOf(id);
    const TimedInputs inputs = inputsOf(part.meaning());
    const TimedMoment& moment = beginning_ ? *beginning_ : moment_;
    const bool begins = !part.hasBegun();
    if (begins && !beginning_)
        return nodes_[id].truth;
    if (begins)
        part.begin(inputs);
    if (!resumable_.empty() && goesOn_ && inputs.first)
        resumePart(part, moment.now, begins);
    const bool truth = part.update(inputs, moment);
    schedule(id, part);
    return truth;
}

/// One whose operand is true.
void ConditionNetwork::resumePart(TimedPart& part, vo::Duration now, bool begins)
{
    if (now > resumableUntil_)
        return resumable_.clear();
    const auto found = resumable_.find(part.text());
    if (found == resumable_.end())
        return;
    TimedHistory history = std::move(found->second);
    resumable_.erase(found);
    // What is true as the part begins has not become true now.
    history.isTrue = history.isTrue || begins;
    part.resume(history);
}

/// Parts are looked at no later than they are due. A look that is planned stays where the part is
/// due later by now, or not any more: most holds end before they are fulfilled and start again, and
/// to take a look out and put it in each time makes such a change take half as long again. The
/// first of all looks, which the clock is asked for, is one at a part that is due.
void ConditionNetwork::schedule(NodeId id, TimedPart& part)
{
    const auto due = part.due();
    if (!due)
        isFirstIdle_ = isFirstIdle_ || part.scheduled == nextDue();
    if (!due || (part.scheduled && *part.scheduled <= *due))
        return;
    unschedule(id, part);
    dues_.emplace(*due, id);
    part.scheduled = due;
}

void ConditionNetwork::dropIdleLooks()
{
    isFirstIdle_ = false;
    while (!dues_.empty() && !partOf(dues_.begin()->second).due())
        unschedule(dues_.begin()->second, partOf(dues_.begin()->second));
}

void ConditionNetwork::unschedule(NodeId id, TimedPart& part)
{
    if (!part.scheduled)
        return;
    dues_.erase({*part.scheduled, id});
    part.scheduled.reset();
    isFirstIdle_ = true;
}

std::map<std::string, TimedHistory> ConditionNetwork::histories(vo::Duration now) const
{
    std::map<std::string, TimedHistory> histories;
    if (now <= resumableUntil_)
        histories = resumable_;
    for (const NodeDefinition& definition : definitions_) {
        const auto* const timed = std::get_if<Timed>(&definition);
        if (!timed)
            continue;
        const bool isOver =
            timed->part->meaning().kind == TimedMeaning::Kind::hold && !timed->part->hasBegun();
        auto history = timed->part->history();
        if (history && !isOver)
            histories[timed->part->text()] = *std::move(history);
    }
    return histories;
}

void ConditionNetwork::resume(std::map<std::string, TimedHistory> histories, vo::Duration until)
{
    resumable_ = std::move(histories);
    resumableUntil_ = until;
}

}  // namespace KR
