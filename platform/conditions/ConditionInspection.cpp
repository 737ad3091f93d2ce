// What a condition amounts to, part by part.

#include <algorithm>

#include "platform/conditions/ConditionCompiler.h"

namespace KR {

namespace {

using Kind = ConditionPart::Kind;

Kind kindOf(Expression::Kind kind)
{
    switch (kind) {
        case Expression::Kind::literal:
            return Kind::literal;
        case Expression::Kind::key:
            return Kind::key;
        case Expression::Kind::duration:
            return Kind::duration;
        case Expression::Kind::age:
            return Kind::age;
        case Expression::Kind::count:
            return Kind::count;
        case Expression::Kind::negation:
            return Kind::negation;
        case Expression::Kind::hold:
            return Kind::hold;
        case Expression::Kind::within:
            return Kind::within;
        case Expression::Kind::conjunction:
            return Kind::all;
        case Expression::Kind::disjunction:
            return Kind::any;
        default:
            return Kind::comparison;
    }
}

}  // namespace

// Its nodes are there; what was simplified away is made for the moment.
ConditionPart ConditionCompiler::inspect(unsigned id, const InspectionTime& time)
{
    ConditionPart whole = inspect(parseCondition((*roots_.find(id))->text), time);
    removeUnusedMade();
    return whole;
}

ConditionPart ConditionCompiler::inspect(const Expression& expression, const InspectionTime& time)
{
    ConditionPart part;
    part.kind = kindOf(expression.kind);
    part.text = textOf(expression);
    for (const Expression& operand : expression.operands)
        part.parts.push_back(inspect(operand, time));
    switch (part.kind) {
        case Kind::literal:
            part.value = expression.value;
            break;
        case Kind::key:
        case Kind::age:
            inspectKey(part, expression.key, time);
            break;
        case Kind::duration:
        case Kind::count:
            break;
        default: {
            const Edge edge = compile(expression);
            part.value = network_.isTrue(edge);
            const bool isOfMeasure =
                part.kind == Kind::comparison && expression.operands.front().isMeasure();
            if (part.kind == Kind::hold || part.kind == Kind::within || isOfMeasure)
                inspectTime(part, edge.node(), time);
        }
    }
    return part;
}

void ConditionCompiler::inspectKey(ConditionPart& part, const std::string& key,
                                   const InspectionTime& time) const
{
    const KRMemory::Snapshot& now = network_.findKey(key)->now;
    part.key = key;
    if (now.time != vo::TimePoint())
        part.written = now.time;
    if (part.kind == Kind::key)
        part.value = now.value;
    else if (now.uptime != kNotStamped)
        part.value = std::chrono::duration<double>(time.uptime - now.uptime).count();
}

/// Of a node that is a part that speaks of time, or that is made of such parts.
void ConditionCompiler::inspectTime(ConditionPart& part, NodeId id,
                                    const InspectionTime& time) const
{
    const NodeDefinition& definition = network_.definitionOf(id);
    if (const auto* conjunction = std::get_if<Conjunction>(&definition)) {
        for (const Edge fanin : conjunction->fanins)
            inspectTime(part, fanin.node(), time);
        return;
    }
    const auto* timed = std::get_if<Timed>(&definition);
    if (!timed || !timed->part->hasBegun())
        return;
    const auto wall = [&time](vo::Duration uptime) { return time.now + (uptime - time.uptime); };
    if (const auto due = timed->part->due())
        part.due = part.due ? std::min(*part.due, wall(*due)) : wall(*due);
    const auto history = timed->part->history();
    if (!history || history->instants.size() <= part.instants.size())
        return;
    part.instants.clear();
    for (const vo::Duration instant : history->instants)
        part.instants.push_back(wall(instant));
}

}  // namespace KR
