#include "explain/RemedyMoves.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "platform/conditions/Comparison.h"

namespace KR {

namespace {

using Kind = Expression::Kind;
using Move = RemedyMoves::Move;
using Moves = RemedyMoves::Moves;

/// Nobody would do more by hand.
constexpr int kMostRises = 20;
/// Ways of making an operand rise that are tried again and again.
constexpr std::size_t kMostWays = 3;

bool isWrite(const Move& move)
{
    return std::all_of(move.begin(), move.end(),
                       [](const Remedy::Step& step) { return !step.key.empty(); });
}

void append(Moves& moves, Moves more)
{
    std::move(more.begin(), more.end(), std::back_inserter(moves));
}

Move joined(Move first, const Move& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// The writes that put back what a move changes, as it is in this part; nothing where a key was
/// never written.
std::optional<Move> undone(const Move& move, const ConditionPart& part)
{
    const auto keys = keysIn(part);
    Move back;
    for (const Remedy::Step& step : move) {
        const auto held = keys.find(step.key);
        if (held == keys.end() || !held->second->value.isValid() ||
            held->second->kind != ConditionPart::Kind::key)
            return std::nullopt;
        back.insert(back.begin(), {step.key, held->second->value, {}});
    }
    return back;
}

/// One side of a comparison: what it can be, which of that it is now, and how it gets there.
struct Side {
    struct Way {
        KRValue value;
        Moves moves;  ///< none for what it is now
    };
    std::vector<Way> ways;
};

}  // namespace

Moves RemedyMoves::towards(const Expression& expression, const ConditionPart& part,
                           bool wanted) const
{
    Moves moves;
    switch (expression.kind) {
        case Kind::literal:
            break;
        case Kind::key:
            for (const KRValue& value : values_.of(expression.key)) {
                if (value.isTrue() == wanted)
                    moves.push_back({{expression.key, value, {}}});
            }
            break;
        case Kind::negation:
            return towards(expression.operands.front(), part.parts.front(), !wanted);
        case Kind::conjunction:
        case Kind::disjunction:
            return (expression.kind == Kind::conjunction) == wanted
                       ? ofAll(expression, part, wanted)
                       : ofAny(expression, part, wanted);
        case Kind::hold:
            if (wanted && part.parts.front().isTrue())
                return waitFor(part);
            return towards(expression.operands.front(), part.parts.front(), wanted);
        case Kind::within:
            if (!wanted)
                return waitFor(part);
            for (std::size_t i = 0; i < 2; ++i)
                append(moves, rises(expression.operands[i], part.parts[i]));
            break;
        default:
            return ofComparison(expression, part, wanted);
    }
    return moves;
}

/// All operands are to be so: the first one that a write helps; and once there is none, waiting.
Moves RemedyMoves::ofAll(const Expression& expression, const ConditionPart& part, bool wanted) const
{
    Moves waits;
    Moves writes;
    for (std::size_t i = 0; i < part.parts.size(); ++i) {
        if (part.parts[i].isTrue() == wanted)
            continue;
        Moves moves = towards(expression.operands[i], part.parts[i], wanted);
        if (moves.empty())
            return {};
        if (std::none_of(moves.begin(), moves.end(), isWrite))
            append(waits, std::move(moves));
        else if (writes.empty())
            writes = std::move(moves);
    }
    return writes.empty() ? waits : writes;
}

Moves RemedyMoves::ofAny(const Expression& expression, const ConditionPart& part, bool wanted) const
{
    Moves moves;
    for (std::size_t i = 0; i < part.parts.size(); ++i)
        append(moves, towards(expression.operands[i], part.parts[i], wanted));
    return moves;
}

Moves RemedyMoves::ofComparison(const Expression& expression, const ConditionPart& part,
                                bool wanted) const
{
    if (expression.operands.front().kind == Kind::count)
        return ofCount(expression, part, wanted);
    Moves moves;
    if (expression.operands.front().kind == Kind::age) {
        moves = ofAge(part.parts.front());
        append(moves, waitFor(part));
        return moves;
    }
    const auto sideOf = [&](std::size_t i) {
        const Expression& operand = expression.operands[i];
        const ConditionPart& now = part.parts[i];
        Side side{{{now.value, {}}}};
        if (operand.kind == Kind::key) {
            for (const KRValue& value : values_.of(operand.key))
                side.ways.push_back({value, {{{operand.key, value, {}}}}});
        } else if (operand.kind != Kind::literal) {
            side.ways.push_back({!now.isTrue(), towards(operand, now, !now.isTrue())});
        }
        return side;
    };
    const Side left = sideOf(0);
    const Side right = sideOf(1);
    for (const Side::Way& a : left.ways) {
        for (const Side::Way& b : right.ways) {
            if (holds(expression.kind, a.value, b.value) != wanted)
                continue;
            // One at a time; where both are to change, the other one is next.
            append(moves, a.moves.empty() ? b.moves : a.moves);
        }
    }
    return moves;
}

/// It can be waited for, or the operand be made to become true as often as it takes.
Moves RemedyMoves::ofCount(const Expression& expression, const ConditionPart& part,
                           bool wanted) const
{
    const Expression& count = expression.operands.front();
    const Expression& operand = count.operands.front();
    const ConditionPart& operandPart = part.parts.front().parts.front();
    const auto counted = static_cast<int>(
        std::count_if(part.instants.begin(), part.instants.end(),
                      [&](vo::TimePoint rise) { return rise + count.duration > now_; }));
    Moves moves = waitFor(part);
    int missing = 1;
    while (missing <= kMostRises && holds(expression.kind, KRValue(counted + missing),
                                          expression.operands.back().value) != wanted)
        ++missing;
    if (missing > kMostRises)
        return moves;
    Moves ways = towards(operand, operandPart, !operandPart.isTrue());
    for (std::size_t i = 0; i < std::min(ways.size(), kMostWays); ++i) {
        const auto back = isWrite(ways[i]) ? undone(ways[i], operandPart) : std::nullopt;
        if (!back) {
            moves.push_back(ways[i]);
            continue;
        }
        Move all = operandPart.isTrue() ? Move() : ways[i];
        for (int rise = operandPart.isTrue() ? 0 : 1; rise < missing; ++rise)
            all = operandPart.isTrue() ? joined(joined(all, ways[i]), *back)
                                       : joined(joined(all, *back), ways[i]);
        moves.push_back(all);
    }
    return moves;
}

/// Written anew, it is young.
Moves RemedyMoves::ofAge(const ConditionPart& part) const
{
    Moves moves;
    for (const KRValue& value : values_.of(part.key))
        moves.push_back({{part.key, value, {}}});
    return moves;
}

/// Has an operand become true: one that is true is made false before.
Moves RemedyMoves::rises(const Expression& operand, const ConditionPart& part) const
{
    Moves moves = towards(operand, part, !part.isTrue());
    if (!part.isTrue())
        return moves;
    for (Move& move : moves) {
        if (const auto back = isWrite(move) ? undone(move, part) : std::nullopt)
            move = joined(std::move(move), *back);
    }
    return moves;
}

Moves RemedyMoves::waitFor(const ConditionPart& part) const
{
    if (!part.due || *part.due <= now_)
        return {};
    return {{{"", {}, *part.due - now_}}};
}

}  // namespace KR
