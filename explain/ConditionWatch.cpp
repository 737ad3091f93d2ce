#include "explain/ConditionWatch.h"

#include <utility>

#include "platform/conditions/ConditionParser.h"

namespace KR {

ConditionWatch::ConditionWatch(const std::string& condition) : parts_(1)
{
    const Expression whole = parseCondition(condition);
    for (const std::string& key : keysOf(whole))
        keys_[key];
    addParts(whole);
}

/// The whole is the first.
void ConditionWatch::addParts(const Expression& expression)
{
    const bool hasTruth = !expression.isMeasure() && expression.kind != Expression::Kind::literal &&
                          expression.kind != Expression::Kind::duration;
    const std::string text = textOf(expression);
    if ((hasTruth || ids_.empty()) && ids_.count(text) == 0) {
        ids_[text] = stage_.add(text);
        parts_.push_back({text, false, {}, {}});
    }
    for (const Expression& operand : expression.operands)
        addParts(operand);
}

void ConditionWatch::load(const std::string& key, const KRValue& value, vo::TimePoint written)
{
    keys_[key] = value;
    stage_.load(key, value, written);
}

void ConditionWatch::write(const std::string& key, const KRValue& value, vo::TimePoint time,
                           const std::string& writer)
{
    if (!isFollowing_)
        return load(key, value, time);
    const Turn cause{time, key, std::exchange(keys_[key], value), value, writer};
    note(stage_.write(key, value, time), cause);
}

void ConditionWatch::begin(vo::TimePoint time)
{
    if (isFollowing_)
        return;
    isFollowing_ = true;
    begun_ = time;
    for (Part& part : parts_)
        part.changed.reset();
    stage_.begin(time);
    if (!isTrue())
        return;
    rise_ = Turn{time, {}, {}, {}, {}, true};
    ++rises_;
}

void ConditionWatch::end(vo::TimePoint time)
{
    if (!isFollowing_)
        return;
    advance(time);
    stage_.end();
    isFollowing_ = false;
}

void ConditionWatch::advance(vo::TimePoint time)
{
    if (isFollowing_)
        note(stage_.advance(time), {});
}

void ConditionWatch::note(
    const std::vector<std::pair<vo::TimePoint, ConditionStage::Change>>& changes, const Turn& cause)
{
    for (const auto& [time, change] : changes) {
        const auto [id, truth] = change;
        Part& part = parts_[id];
        part.changed = time;
        part.isRisen = part.isRisen || truth;
        if (truth)
            part.risen = time;
        if (id != 1)
            continue;
        // What was due before the write came about by itself.
        const bool isByWrite = !cause.key.empty() && time == cause.at;
        Turn turn = isByWrite ? cause : Turn{};
        turn.at = time;
        (truth ? rise_ : fall_) = turn;
        rises_ += truth ? 1 : 0;
    }
}

ConditionMoment ConditionWatch::moment(vo::TimePoint now)
{
    ConditionMoment moment{now, inspect(), {}};
    for (const Part& part : parts_) {
        if (part.isRisen)
            moment.rises[part.text] = part.risen;
    }
    return moment;
}

std::optional<vo::TimePoint> ConditionWatch::since(const std::string& part) const
{
    const auto id = ids_.find(part);
    if (id == ids_.end())
        return std::nullopt;
    const std::optional<vo::TimePoint>& changed = parts_[id->second].changed;
    return changed || !isFollowing_ ? changed : begun_;
}

}  // namespace KR
