#pragma once

#include <map>
#include <vector>

#include "platform/conditions/ConditionParser.h"
#include "platform/conditions/NetworkNode.h"
#include "platform/kr/KRValue.h"

namespace KR {

/// The comparisons of one key with literals of one kind, all numbers or all texts, so arranged
/// that a change of the key finds those whose truth it flips without looking at the others.
///
/// An ordering flips exactly when the key's value passes its threshold, so the orderings stand in
/// the order of their thresholds and a change walks from the old value to the new one. At most two
/// equalities flip: with the old value and with the new one.
///
/// Not synchronised: a part of ConditionNetwork.
class ThresholdIndex {
public:
    /// The place of the node that compares with this literal; kConstant, which is none, is put
    /// there if it is new. The comparison is any but notEqual.
    NodeId& at(Expression::Kind comparison, const KRValue& literal);
    void erase(Expression::Kind comparison, const KRValue& literal);

    /// Appends the nodes whose truth flips when the key's value changes. Null stands for a value of
    /// another kind, with which every comparison is false.
    void collectFlips(const KRValue* before, const KRValue* after,
                      std::vector<NodeId>& flips) const;

private:
    /// A cut in the order of values: just before `value`, or just after it.
    struct Cut {
        KRValue value;
        bool after;
    };
    struct Earlier {
        using is_transparent = void;
        bool operator()(const KRValue& a, const KRValue& b) const;
        bool operator()(const Cut& a, const Cut& b) const;
        bool operator()(const KRValue& value, const Cut& cut) const;
        bool operator()(const Cut& cut, const KRValue& value) const;
    };
    using Cuts = std::map<Cut, NodeId, Earlier>;

    static Cut cutOf(Expression::Kind comparison, const KRValue& literal);
    Cuts& cutsOf(Expression::Kind comparison);

    std::map<KRValue, NodeId, Earlier> equal_;
    Cuts below_;  ///< true while the key's value lies before the cut
    Cuts above_;  ///< true while it lies after the cut
};

}  // namespace KR
