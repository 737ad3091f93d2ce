#include "platform/conditions/Comparison.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace KR {

namespace {

template <class T>
Order orderOf(const T& a, const T& b)
{
    if (a < b)
        return Order::less;
    if (b < a)
        return Order::greater;
    return a == b ? Order::equal : Order::none;  // not equal: NaN
}

Order reversed(Order order)
{
    if (order == Order::less)
        return Order::greater;
    return order == Order::greater ? Order::less : order;
}

/// An int has 63 significant bits and a double 53, so neither fits the other's type: the whole
/// parts are compared as ints, then the fraction decides.
Order orderOf(std::int64_t a, double b)
{
    constexpr double kLimit = 9223372036854775808.0;  // 2^63
    if (std::isnan(b))
        return Order::none;
    if (b >= kLimit)
        return Order::less;
    if (b < -kLimit)
        return Order::greater;
    const double whole = std::trunc(b);
    const Order order = orderOf(a, static_cast<std::int64_t>(whole));
    return order == Order::equal ? orderOf(0.0, b - whole) : order;
}

bool isNumeric(const KRValue& value)
{
    return value.isNumber() || value.isBool();
}

Order orderOfNumbers(const KRValue& a, const KRValue& b)
{
    if (a.isFloat())
        return b.isFloat() ? orderOf(a.toFloat(), b.toFloat())
                           : reversed(orderOf(b.toInt(), a.toFloat()));
    return b.isFloat() ? orderOf(a.toInt(), b.toFloat()) : orderOf(a.toInt(), b.toInt());
}

bool isEqual(const KRValue& a, const KRValue& b)
{
    return holds(Expression::Kind::equal, compare(a, b));
}

}  // namespace

Order compare(const KRValue& a, const KRValue& b)
{
    if ((a.isInt() || a.isBool()) && (b.isInt() || b.isBool()))
        return orderOf(a.toInt(), b.toInt());
    if (isNumeric(a) && isNumeric(b))
        return orderOfNumbers(a, b);
    if (a.isString() && b.isString())
        return orderOf(a.toText().compare(b.toText()), 0);
    bool same = false;
    if (a.isArray() && b.isArray())
        same = std::equal(a.toArray().begin(), a.toArray().end(), b.toArray().begin(),
                          b.toArray().end(), isEqual);
    else if (a.isBinary() && b.isBinary())
        same = a.toBinary() == b.toBinary();
    return same ? Order::same : Order::none;
}

bool holds(Expression::Kind comparison, Order order)
{
    const bool equal = order == Order::equal;
    switch (comparison) {
        case Expression::Kind::equal:
            return equal || order == Order::same;
        case Expression::Kind::notEqual:
            return !equal && order != Order::same;
        case Expression::Kind::less:
            return order == Order::less;
        case Expression::Kind::lessEqual:
            return equal || order == Order::less;
        case Expression::Kind::greater:
            return order == Order::greater;
        case Expression::Kind::greaterEqual:
            return equal || order == Order::greater;
        default:
            return false;
    }
}

Expression::Kind mirrored(Expression::Kind comparison)
{
    switch (comparison) {
        case Expression::Kind::less:
            return Expression::Kind::greater;
        case Expression::Kind::lessEqual:
            return Expression::Kind::greaterEqual;
        case Expression::Kind::greater:
            return Expression::Kind::less;
        case Expression::Kind::greaterEqual:
            return Expression::Kind::lessEqual;
        default:
            return comparison;
    }
}

}  // namespace KR
