#include "explain/ConditionStage.h"

#include <algorithm>
#include <utility>

namespace KR {

namespace {

// The stage's uptime is the wall clock's time, which nobody sets here.
vo::Duration uptimeOf(vo::TimePoint time)
{
    return time.time_since_epoch();
}

}  // namespace

unsigned ConditionStage::add(const std::string& text)
{
    compiler_.add(lastId_ + 1, text);
    return ++lastId_;
}

void ConditionStage::load(const std::string& key, const KRValue& value,
                          std::optional<vo::TimePoint> written)
{
    if (const KeySlot* const slot = network_.findKey(key))
        network_.load(slot->tag, {value, written.value_or(vo::TimePoint()),
                                  written ? uptimeOf(*written) : kNotStamped});
}

void ConditionStage::resume(std::map<std::string, TimedHistory> histories, vo::TimePoint until)
{
    network_.resume(std::move(histories), uptimeOf(until));
}

void ConditionStage::begin(vo::TimePoint now)
{
    now_ = now;
    network_.begin(uptimeOf(now), lastId_, true);
}

ConditionStage::Changes ConditionStage::write(const std::string& key, const KRValue& value,
                                              vo::TimePoint time)
{
    Changes changes;
    now_ = std::max(now_, time);
    elapse(uptimeOf(now_) - vo::Duration(1), changes);
    if (const KeySlot* const slot = network_.findKey(key))
        note(network_.set(slot->tag, value, now_, uptimeOf(now_)), now_, changes);
    return changes;
}

ConditionStage::Changes ConditionStage::advance(vo::TimePoint time)
{
    Changes changes;
    now_ = std::max(now_, time);
    elapse(uptimeOf(now_), changes);
    return changes;
}

void ConditionStage::elapse(vo::Duration limit, Changes& changes)
{
    for (auto due = network_.nextDue(); due && *due <= limit; due = network_.nextDue())
        note(network_.elapse(), vo::TimePoint(*due), changes);
}

void ConditionStage::note(const std::vector<unsigned>& changed, vo::TimePoint time,
                          Changes& changes) const
{
    for (const unsigned id : changed)
        changes.push_back({time, {id, isTrue(id)}});
}

std::optional<vo::TimePoint> ConditionStage::nextDue() const
{
    const auto due = network_.nextDue();
    return due ? std::optional(vo::TimePoint(*due)) : std::nullopt;
}

ConditionPart ConditionStage::inspect(unsigned id)
{
    return compiler_.inspect(id, {now_, uptimeOf(now_)});
}

}  // namespace KR
