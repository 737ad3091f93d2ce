#pragma once

#include <boost/container/small_vector.hpp>
#include <memory>
#include <vector>

#include "platform/conditions/Comparison.h"
#include "platform/conditions/ConditionParser.h"
#include "platform/conditions/NetworkNode.h"
#include "platform/conditions/ThresholdIndex.h"
#include "platform/kr/KRValue.h"

namespace KR {

/// The leaves that compare one key with literals, so kept that a change of the key finds those
/// whose truth it flips: by looking at each while they are few, by a ThresholdIndex from when they
/// were many.
///
/// A literal is a number, a bool or a text, a comparison any but notEqual. Not synchronised: a part
/// of ConditionNetwork.
class LiteralLeaves {
public:
    /// The leaf that says the same; kConstant when there is none.
    NodeId find(Expression::Kind comparison, const KRValue& literal) const;
    /// Adds a leaf that says what no other does, with its truth for the key's value now.
    void add(Expression::Kind comparison, const KRValue& literal, NodeId leaf, bool truth);
    /// Erases one that is there.
    void erase(Expression::Kind comparison, const KRValue& literal, NodeId leaf);

    bool isIndexed() const { return indexes_ != nullptr; }
    /// Appends the leaves whose truth flips when the key's value changes. Where they are indexed.
    void collectFlips(const KRValue& before, const KRValue& after,
                      std::vector<NodeId>& flips) const;
    /// Calls `flip(leaf)` for each leaf whose truth flips by the key's new value; of those that are
    /// not indexed.
    template <class F>
    void flipUnindexed(const KRValue& value, F flip)
    {
        for (Leaf& leaf : leaves_) {
            if (leaf.truth == holds(leaf.comparison, value, leaf.literal))
                continue;
            leaf.truth = !leaf.truth;
            flip(leaf.node);
        }
    }

private:
    /// With more leaves than these they get an index. It costs as much as looking at some ten.
    static constexpr std::size_t kMaxUnindexed = 8;

    struct Leaf {
        KRValue literal;
        NodeId node;
        Expression::Kind comparison;
        bool truth;
    };
    struct Indexes {
        ThresholdIndex numbers;
        ThresholdIndex texts;
        /// The index that a value has a place in; null for one that no literal equals or orders.
        ThresholdIndex* of(const KRValue& value);
    };

    void addIndexes();

    boost::container::small_vector<Leaf, 1> leaves_;  ///< while they are few
    std::unique_ptr<Indexes> indexes_;                ///< once there were many
};

}  // namespace KR
