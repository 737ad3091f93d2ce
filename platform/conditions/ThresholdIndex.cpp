#include "platform/conditions/ThresholdIndex.h"

#include <utility>

#include "platform/conditions/Comparison.h"

namespace KR {

bool ThresholdIndex::Earlier::operator()(const KRValue& a, const KRValue& b) const
{
    return compare(a, b) == Order::less;
}

bool ThresholdIndex::Earlier::operator()(const Cut& a, const Cut& b) const
{
    const Order order = compare(a.value, b.value);
    return order == Order::less || (order == Order::equal && !a.after && b.after);
}

bool ThresholdIndex::Earlier::operator()(const KRValue& value, const Cut& cut) const
{
    const Order order = compare(value, cut.value);
    return order == Order::less || (order == Order::equal && cut.after);
}

bool ThresholdIndex::Earlier::operator()(const Cut& cut, const KRValue& value) const
{
    return !(*this)(value, cut);
}

ThresholdIndex::Cut ThresholdIndex::cutOf(Expression::Kind comparison, const KRValue& literal)
{
    return {literal,
            comparison == Expression::Kind::lessEqual || comparison == Expression::Kind::greater};
}

ThresholdIndex::Cuts& ThresholdIndex::cutsOf(Expression::Kind comparison)
{
    const bool below =
        comparison == Expression::Kind::less || comparison == Expression::Kind::lessEqual;
    return below ? below_ : above_;
}

NodeId& ThresholdIndex::at(Expression::Kind comparison, const KRValue& literal)
{
    if (comparison == Expression::Kind::equal)
        return equal_[literal];
    return cutsOf(comparison)[cutOf(comparison, literal)];
}

void ThresholdIndex::erase(Expression::Kind comparison, const KRValue& literal)
{
    if (comparison == Expression::Kind::equal)
        equal_.erase(literal);
    else
        cutsOf(comparison).erase(cutOf(comparison, literal));
}

void ThresholdIndex::collectFlips(const KRValue* before, const KRValue* after,
                                  std::vector<NodeId>& flips) const
{
    const bool rises = before && after && compare(*before, *after) == Order::less;
    const bool falls = before && after && compare(*before, *after) == Order::greater;
    if (before && after && !rises && !falls)
        return;

    for (const KRValue* value : {before, after}) {
        if (!value)
            continue;
        const auto found = equal_.find(*value);
        if (found != equal_.end())
            flips.push_back(found->second);
    }
    // The first cut after the value. A value of another kind makes every comparison false, so to
    // the ones below it is as if it lay at the very end, to the ones above as if at the beginning.
    const auto walk = [&](const Cuts& cuts, Cuts::const_iterator ofNone, bool forward) {
        auto from = before ? cuts.upper_bound(*before) : ofNone;
        auto to = after ? cuts.upper_bound(*after) : ofNone;
        if (!forward)
            std::swap(from, to);
        for (; from != to; ++from)
            flips.push_back(from->second);
    };
    walk(below_, below_.end(), rises || (before && !after));
    walk(above_, above_.begin(), rises || (!before && after));
}

}  // namespace KR
