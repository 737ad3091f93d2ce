#include "explain/ConditionRehearsal.h"

#include <algorithm>

namespace KR {

namespace {

using Kind = Expression::Kind;

Expression keyExpression(const std::string& key)
{
    Expression expression{};
    expression.kind = Kind::key;
    expression.key = key;
    return expression;
}

Expression twoOf(Kind kind, Expression first, Expression second)
{
    Expression expression{};
    expression.kind = kind;
    expression.operands.push_back(std::move(first));
    expression.operands.push_back(std::move(second));
    return expression;
}

void collectKeys(const ConditionPart& part, std::map<std::string, const ConditionPart*>& keys)
{
    using PartKind = ConditionPart::Kind;
    if (part.kind == PartKind::key)
        keys[part.key] = &part;
    else if (part.kind == PartKind::age)
        keys.emplace(part.key, &part);
    for (const ConditionPart& each : part.parts)
        collectKeys(each, keys);
}

}  // namespace

std::map<std::string, const ConditionPart*> keysIn(const ConditionPart& condition)
{
    std::map<std::string, const ConditionPart*> keys;
    collectKeys(condition, keys);
    return keys;
}

ConditionRehearsal::ConditionRehearsal(const ConditionMoment& moment)
    : start_(moment.now), expression_(parseCondition(moment.condition.text))
{
    while (moment.condition.text.find("'" + prefix_) != std::string::npos)
        prefix_ += "_";
    Expression rebuilt = expression_;
    rebuild(moment, rebuilt, moment.condition);
    rebuilt_ = textOf(rebuilt);
    for (const auto& [key, part] : keysIn(moment.condition))
        keys_[key] = {part->kind == ConditionPart::Kind::key ? part->value : KRValue(),
                      part->written};
    restart();
}

void ConditionRehearsal::restart()
{
    // What does not speak of time remembers nothing but the keys' values.
    if (stage_ && !isTimed(expression_))
        return loadKeys();
    stage_ = std::make_unique<ConditionStage>();
    stage_->add(rebuilt_);
    loadKeys();
    playPast();
}

/// Puts the rehearsal's keys beside the operands that are followed through time.
void ConditionRehearsal::rebuild(const ConditionMoment& moment, Expression& expression,
                                 const ConditionPart& part)
{
    for (std::size_t i = 0; i < expression.operands.size(); ++i)
        rebuild(moment, expression.operands[i], part.parts[i]);
    if (expression.kind == Kind::hold) {
        const ConditionPart& operand = part.parts.front();
        std::vector<vo::TimePoint> since;
        if (operand.isTrue())
            since.push_back(part.instants.empty() ? moment.now : part.instants.front());
        follow(expression.operands.front(), operand, since);
    } else if (expression.kind == Kind::within) {
        for (std::size_t i = 0; i < 2; ++i) {
            const auto rise = moment.rises.find(part.parts[i].text);
            std::vector<vo::TimePoint> rises;
            if (rise != moment.rises.end())
                rises.push_back(rise->second);
            else if (part.isTrue() && part.due)
                rises.push_back(*part.due - expression.duration);
            follow(expression.operands[i], part.parts[i], rises);
        }
    } else if (!expression.operands.empty() && expression.operands.front().kind == Kind::count) {
        follow(expression.operands.front().operands.front(), part.parts.front().parts.front(),
               part.instants);
    }
}

void ConditionRehearsal::follow(Expression& operand, const ConditionPart& part,
                                std::vector<vo::TimePoint> rises)
{
    const std::string own = prefix_ + " " + std::to_string(pasts_.size());
    pasts_.push_back({own, part.isTrue(), std::move(rises)});
    operand = twoOf(Kind::disjunction,
                    twoOf(Kind::conjunction, std::move(operand), keyExpression(prefix_)),
                    keyExpression(own));
}

void ConditionRehearsal::loadKeys()
{
    for (const auto& [key, held] : keys_)
        stage_->load(key, held.value, held.written);
}

void ConditionRehearsal::playPast()
{
    struct Write {
        vo::TimePoint time;
        const std::string* key;
        bool truth;
    };
    std::vector<Write> writes;
    for (const Past& past : pasts_) {
        // What was true all the time has not become true.
        stage_->load(past.key, past.isTrue && past.rises.empty(), {});
        for (std::size_t i = 0; i < past.rises.size(); ++i) {
            writes.push_back({past.rises[i], &past.key, true});
            if (i + 1 < past.rises.size() || !past.isTrue)
                writes.push_back({past.rises[i], &past.key, false});
        }
    }
    std::stable_sort(writes.begin(), writes.end(),
                     [](const Write& a, const Write& b) { return a.time < b.time; });
    stage_->begin((writes.empty() ? start_ : std::min(start_, writes.front().time)) -
                  vo::Duration(1));
    for (const Write& write : writes)
        stage_->write(*write.key, write.truth, write.time);
    stage_->advance(start_);
    if (pasts_.empty())
        return;
    stage_->write(prefix_, true, start_);
    for (const Past& past : pasts_)
        stage_->write(past.key, false, start_);
    stage_->advance(start_);
}

ConditionPart ConditionRehearsal::inspect()
{
    return withoutOwnKeys(stage_->inspect(1), expression_);
}

ConditionPart ConditionRehearsal::withoutOwnKeys(ConditionPart part,
                                                 const Expression& expression) const
{
    const bool isFollowed = part.kind == ConditionPart::Kind::any &&
                            part.parts.back().kind == ConditionPart::Kind::key &&
                            part.parts.back().key.rfind(prefix_, 0) == 0;
    if (isFollowed) {
        // Moved out of it before it is overwritten.
        ConditionPart operand = std::move(part.parts.front().parts.front());
        return withoutOwnKeys(std::move(operand), expression);
    }
    part.text = textOf(expression);
    for (std::size_t i = 0; i < part.parts.size(); ++i)
        part.parts[i] = withoutOwnKeys(std::move(part.parts[i]), expression.operands[i]);
    return part;
}

}  // namespace KR
