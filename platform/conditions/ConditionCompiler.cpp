#include "platform/conditions/ConditionCompiler.h"

#include <algorithm>
#include <boost/container_hash/hash.hpp>
#include <utility>

#include "platform/conditions/Comparison.h"
#include "platform/conditions/NodeDefinition.h"

namespace KR {

namespace {

template <class Ids>
std::size_t hashOf(const Ids& ids)
{
    return boost::hash_range(ids.begin(), ids.end());
}

const SmallList<Edge>& faninsOf(const ConditionNetwork& network, NodeId conjunction)
{
    return std::get<Conjunction>(network.definitionOf(conjunction)).fanins;
}

}  // namespace

std::size_t ConditionCompiler::FaninsHash::operator()(const Fanins& fanins) const
{
    return hashOf(fanins);
}

std::size_t ConditionCompiler::FaninsHash::operator()(NodeId conjunction) const
{
    return hashOf(faninsOf(*network, conjunction));
}

bool ConditionCompiler::SameFanins::operator()(NodeId conjunction, const Fanins& fanins) const
{
    const SmallList<Edge>& mine = faninsOf(*network, conjunction);
    return std::equal(mine.begin(), mine.end(), fanins.begin(), fanins.end());
}

bool ConditionCompiler::SameFanins::operator()(const Fanins& fanins, NodeId conjunction) const
{
    return (*this)(conjunction, fanins);
}

ConditionCompiler::ConditionCompiler(ConditionNetwork& network)
    : network_(network), conjunctions_(0, FaninsHash{&network}, SameFanins{&network})
{
}

ConditionCompiler::Watches ConditionCompiler::add(unsigned id, const std::string& text)
{
    Watches added;
    Root* root = texts_.find(text);
    if (!root)
        root = &makeRoot(text, added);
    ++root->conditions;
    network_.attach(id, root->edge);
    roots_.add(id) = root;
    // What was simplified away goes again; the rest is by now needed by what is above it.
    for (const NodeId made : made_)
        removeIfUnused(made);
    made_.clear();
    return added;
}

ConditionCompiler::Root& ConditionCompiler::makeRoot(const std::string& text, Watches& added)
{
    const Expression expression = parseCondition(text);
    if (freeRoots_.empty())
        freeRoots_.push_back(&rootStore_.emplace_back());
    Root& root = *freeRoots_.back();
    freeRoots_.pop_back();
    root.text = text;
    texts_.insert(root);
    collectKeys(expression, root, added);
    root.edge = compile(expression);
    return root;
}

void ConditionCompiler::collectKeys(const Expression& expression, Root& root, Watches& added)
{
    if (expression.kind == Expression::Kind::key) {
        KeySlot& slot = readKey(expression.key, added);
        if (std::find(root.tags.begin(), root.tags.end(), slot.tag) == root.tags.end()) {
            ++slot.readers;
            root.tags.push_back(slot.tag);
        }
    }
    for (const Expression& operand : expression.operands)
        collectKeys(operand, root, added);
}

KeySlot& ConditionCompiler::readKey(const std::string& key, Watches& added)
{
    if (KeySlot* const known = network_.findKey(key))
        return *known;
    KeySlot& slot = network_.addKey(key);
    added.push_back({{key, slot.tag}, &slot});
    return slot;
}

ConditionCompiler::Watches ConditionCompiler::remove(unsigned id)
{
    Watches removed;
    Root& root = **roots_.find(id);
    roots_.erase(id);
    network_.detach(id, root.edge);
    if (--root.conditions == 0)
        releaseRoot(root, removed);
    return removed;
}

void ConditionCompiler::releaseRoot(Root& root, Watches& removed)
{
    removeIfUnused(root.edge.node());
    for (const KeyTag tag : root.tags) {
        KeySlot& slot = network_.slotOf(tag);
        if (--slot.readers > 0)
            continue;
        removed.push_back({{*slot.key, tag}, nullptr});
        network_.removeKey(slot);
    }
    texts_.erase(root);
    root = Root();
    freeRoots_.push_back(&root);
}

/// And then what only it needed. One that is gone already, by another way, is left alone.
void ConditionCompiler::removeIfUnused(NodeId id)
{
    const NodeDefinition& known = network_.definitionOf(id);
    if (std::holds_alternative<std::monostate>(known) || network_.hasFanouts(id))
        return;
    if (std::holds_alternative<Conjunction>(known))
        conjunctions_.erase(id);
    const NodeDefinition definition = network_.remove(id);
    if (const auto* pair = std::get_if<KeyComparison>(&definition))
        pairs_.erase({pair->left->tag, pair->comparison, pair->right->tag});
    if (const auto* conjunction = std::get_if<Conjunction>(&definition))
        for (const Edge fanin : conjunction->fanins)
            removeIfUnused(fanin.node());
}

Edge ConditionCompiler::compile(const Expression& expression)
{
    switch (expression.kind) {
        case Expression::Kind::literal:
        case Expression::Kind::key:
            return truthOf(operandOf(expression));
        case Expression::Kind::negation:
            return !compile(expression.operands.front());
        case Expression::Kind::conjunction:
        case Expression::Kind::disjunction: {
            Fanins fanins;
            for (const Expression& operand : expression.operands)
                fanins.push_back(compile(operand));
            return expression.kind == Expression::Kind::conjunction
                       ? conjunction(std::move(fanins))
                       : disjunction(std::move(fanins));
        }
        default:
            return comparison(expression.kind, operandOf(expression.operands.front()),
                              operandOf(expression.operands.back()));
    }
}

ConditionCompiler::Operand ConditionCompiler::operandOf(const Expression& expression)
{
    if (expression.kind == Expression::Kind::literal)
        return expression.value;
    if (expression.kind == Expression::Kind::key)
        return network_.findKey(expression.key);
    return compile(expression);
}

Edge ConditionCompiler::truthOf(const Operand& operand)
{
    if (const auto* edge = std::get_if<Edge>(&operand))
        return *edge;
    if (const auto* literal = std::get_if<KRValue>(&operand))
        return Edge(kConstant, !literal->isTrue());
    KeySlot& slot = *std::get<KeySlot*>(operand);
    return Edge(slot.truth ? slot.truth : make(KeyTruth{&slot}), false);
}

// A truth on one side has two possible values, so the comparison is a choice between what it says
// of each.
Edge ConditionCompiler::comparison(Expression::Kind kind, const Operand& left, const Operand& right)
{
    if (kind == Expression::Kind::notEqual)
        return !comparison(Expression::Kind::equal, left, right);
    if (const auto* edge = std::get_if<Edge>(&left))
        return choice(*edge, comparison(kind, KRValue(true), right),
                      comparison(kind, KRValue(false), right));
    if (std::holds_alternative<Edge>(right))
        return comparison(mirrored(kind), right, left);

    const auto* literal = std::get_if<KRValue>(&left);
    const auto* other = std::get_if<KRValue>(&right);
    if (literal && other)
        return Edge(kConstant, !holds(kind, compare(*literal, *other)));
    if (literal)
        return comparison(mirrored(kind), right, left);
    KeySlot& slot = *std::get<KeySlot*>(left);
    return other ? literalComparison(kind, slot, *other)
                 : keyComparison(kind, slot, *std::get<KeySlot*>(right));
}

Edge ConditionCompiler::literalComparison(Expression::Kind kind, KeySlot& slot,
                                          const KRValue& literal)
{
    const NodeId known = slot.literals.find(kind, literal);
    return Edge(known ? known : make(LiteralComparison{&slot, kind, literal}), false);
}

Edge ConditionCompiler::keyComparison(Expression::Kind kind, KeySlot& left, KeySlot& right)
{
    if (left.tag > right.tag)
        return keyComparison(mirrored(kind), right, left);
    NodeId& id = pairs_[{left.tag, kind, right.tag}];
    if (!id)
        id = make(KeyComparison{&left, kind, &right});
    return Edge(id, false);
}

Edge ConditionCompiler::choice(Edge selector, Edge yes, Edge no)
{
    if (yes == no)
        return yes;
    return disjunction({conjunction({selector, yes}), conjunction({!selector, no})});
}

Edge ConditionCompiler::disjunction(Fanins fanins)
{
    for (Edge& fanin : fanins)
        fanin = !fanin;
    return !conjunction(std::move(fanins));
}

Edge ConditionCompiler::conjunction(Fanins fanins)
{
    std::sort(fanins.begin(), fanins.end());
    fanins.erase(std::unique(fanins.begin(), fanins.end()), fanins.end());
    const auto contradiction = std::adjacent_find(
        fanins.begin(), fanins.end(), [](Edge a, Edge b) { return a.node() == b.node(); });
    // The constant comes first; negated it is false.
    if (contradiction != fanins.end() || fanins.front() == Edge(kConstant, true))
        return Edge(kConstant, true);
    if (fanins.size() > 1 && fanins.front().node() == kConstant)
        fanins.erase(fanins.begin());
    if (fanins.size() == 1)
        return fanins.front();

    const auto same = conjunctions_.find(fanins);
    if (same != conjunctions_.end())
        return Edge(*same, false);
    Conjunction definition;
    for (const Edge fanin : fanins)
        definition.fanins.push_back(fanin);
    const NodeId id = make(std::move(definition));
    conjunctions_.insert(id);
    return Edge(id, false);
}

NodeId ConditionCompiler::make(NodeDefinition definition)
{
    const NodeId id = network_.add(std::move(definition));
    made_.push_back(id);
    return id;
}

}  // namespace KR
