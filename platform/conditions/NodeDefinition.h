#pragma once

#include <memory>
#include <variant>

#include "platform/conditions/ConditionParser.h"
#include "platform/conditions/KeySlot.h"
#include "platform/conditions/NetworkNode.h"
#include "platform/conditions/SmallList.h"
#include "platform/conditions/TimedPart.h"
#include "platform/kr/KRValue.h"

namespace KR {

/// A leaf: the truth value of a key.
struct KeyTruth {
    KeySlot* key;
};

/// A leaf: a key compared with a literal, by any comparison but notEqual.
struct LiteralComparison {
    KeySlot* key;
    Expression::Kind comparison;
    KRValue literal;
};

/// A leaf: a key compared with a key, by any comparison but notEqual. They may be the same key.
struct KeyComparison {
    KeySlot* left;
    Expression::Kind comparison;
    KeySlot* right;
};

/// True when all its fanins are: other nodes, each as it is or negated. Two or more, in ascending
/// order, none of them the constant, and none twice.
struct Conjunction {
    SmallList<Edge> fanins;
};

/// A part of a condition that speaks of time.
struct Timed {
    std::unique_ptr<TimedPart> part;
};

/// What a node means; nothing of the constant and of one that is gone.
using NodeDefinition =
    std::variant<std::monostate, KeyTruth, LiteralComparison, KeyComparison, Conjunction, Timed>;

}  // namespace KR
