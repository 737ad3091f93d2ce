#pragma once

#include "platform/conditions/ConditionParser.h"
#include "platform/kr/KRValue.h"

namespace KR {

/// How two values of a condition stand to each other.
enum class Order {
    less,
    equal,
    greater,
    same,  ///< equal, of a kind that has no order
    none   ///< neither equal nor ordered
};

/// Compares as conditions do: bools, ints and floats by their exact numeric value, texts byte by
/// byte; arrays and binaries are the same or nothing. Values of different kinds, an invalid value
/// and NaN stand in no order to anything. Goes as deep as an array is nested.
Order compare(const KRValue& a, const KRValue& b);

/// Whether `a OP b` is true, for a comparison operator and the order of a and b.
bool holds(Expression::Kind comparison, Order order);

/// Whether `a OP b` is true.
inline bool holds(Expression::Kind comparison, const KRValue& a, const KRValue& b)
{
    // The most frequent of all.
    if (comparison == Expression::Kind::equal && b.isString())
        return a == b;
    return holds(comparison, compare(a, b));
}

/// The operator with which `b OP a` says what `a comparison b` says.
Expression::Kind mirrored(Expression::Kind comparison);

}  // namespace KR
