#include "platform/conditions/LiteralLeaves.h"

#include <algorithm>

namespace KR {

ThresholdIndex* LiteralLeaves::Indexes::of(const KRValue& value)
{
    if (value.isString())
        return &texts;
    return compare(value, KRValue(0)) == Order::none ? nullptr : &numbers;
}

NodeId LiteralLeaves::find(Expression::Kind comparison, const KRValue& literal) const
{
    if (indexes_)
        return indexes_->of(literal)->at(comparison, literal);
    for (const Leaf& leaf : leaves_)
        if (leaf.comparison == comparison && compare(leaf.literal, literal) == Order::equal)
            return leaf.node;
    return kConstant;
}

void LiteralLeaves::add(Expression::Kind comparison, const KRValue& literal, NodeId leaf,
                        bool truth)
{
    if (indexes_) {
        indexes_->of(literal)->at(comparison, literal) = leaf;
        return;
    }
    leaves_.push_back({literal, leaf, comparison, truth});
    if (leaves_.size() > kMaxUnindexed)
        addIndexes();
}

void LiteralLeaves::addIndexes()
{
    indexes_ = std::make_unique<Indexes>();
    for (const Leaf& leaf : leaves_)
        indexes_->of(leaf.literal)->at(leaf.comparison, leaf.literal) = leaf.node;
    leaves_.clear();
}

void LiteralLeaves::erase(Expression::Kind comparison, const KRValue& literal, NodeId leaf)
{
    if (indexes_)
        indexes_->of(literal)->erase(comparison, literal);
    else
        leaves_.erase(std::find_if(leaves_.begin(), leaves_.end(),
                                   [leaf](const Leaf& l) { return l.node == leaf; }));
}

void LiteralLeaves::collectFlips(const KRValue& before, const KRValue& after,
                                 std::vector<NodeId>& flips) const
{
    const ThresholdIndex* const indexBefore = indexes_->of(before);
    const ThresholdIndex* const indexAfter = indexes_->of(after);
    const auto collect = [&](const ThresholdIndex& index) {
        index.collectFlips(indexBefore == &index ? &before : nullptr,
                           indexAfter == &index ? &after : nullptr, flips);
    };
    collect(indexes_->numbers);
    collect(indexes_->texts);
}

}  // namespace KR
