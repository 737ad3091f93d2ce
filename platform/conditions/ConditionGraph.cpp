#include "platform/conditions/ConditionGraph.h"

#include <algorithm>

#include "platform/conditions/Comparison.h"

namespace KR {

namespace {

constexpr std::uint32_t kConstant = 0;

template <class T>
void eraseOne(std::vector<T>& items, const T& item)
{
    *std::find(items.begin(), items.end(), item) = items.back();
    items.pop_back();
}

}  // namespace

ConditionGraph::ConditionGraph()
{
    Node constant;
    constant.truth = true;
    constant.references = 1;
    nodes_.push_back(std::move(constant));
}

ConditionGraph::Watches ConditionGraph::add(unsigned id, const Expression& expression)
{
    Watches added;
    Root root{};
    for (const std::string& key : keysOf(expression)) {
        root.slots.push_back(&slotOf(key, added));
        ++root.slots.back()->readers;
    }
    root.edge = compile(expression);
    Node& node = nodes_[root.edge.node];
    ++node.references;
    if (root.edge.node != kConstant)
        node.conditions.push_back(id);
    roots_.emplace(id, std::move(root));
    // What is simplified away goes again; the rest is by now held from above.
    for (const NodeId fresh : fresh_)
        release(fresh);
    fresh_.clear();
    return added;
}

ConditionGraph::Watches ConditionGraph::remove(unsigned id)
{
    const auto place = roots_.find(id);
    const Root root = std::move(place->second);
    roots_.erase(place);
    if (root.edge.node != kConstant)
        eraseOne(nodes_[root.edge.node].conditions, id);
    release(root.edge.node);

    Watches removed;
    for (Slot* slot : root.slots) {
        if (--slot->readers > 0)
            continue;
        removed.push_back({slot->key, slot->tag});
        tags_.erase(slot->key);
        slots_.erase(slot->tag);
    }
    return removed;
}

bool ConditionGraph::isTrue(unsigned id) const
{
    return isTrue(roots_.at(id).edge);
}

ConditionGraph::Watches ConditionGraph::watches() const
{
    Watches watches;
    watches.reserve(slots_.size());
    for (const auto& [tag, slot] : slots_)
        watches.push_back({slot.key, tag});
    return watches;
}

ConditionGraph::Slot& ConditionGraph::slotOf(const std::string& key, Watches& added)
{
    const auto [place, isNew] = tags_.try_emplace(key, 0);
    if (isNew) {
        place->second = ++lastTag_;
        Slot& slot = slots_[lastTag_];
        slot.key = key;
        slot.tag = lastTag_;
        added.push_back({key, lastTag_});
    }
    return slots_.at(place->second);
}

ConditionGraph::Edge ConditionGraph::compile(const Expression& expression)
{
    switch (expression.kind) {
        case Expression::Kind::literal:
        case Expression::Kind::key:
            return truthOf(operandOf(expression));
        case Expression::Kind::negation:
            return !compile(expression.operands.front());
        case Expression::Kind::conjunction:
        case Expression::Kind::disjunction: {
            Inputs inputs;
            for (const Expression& operand : expression.operands)
                inputs.push_back(compile(operand));
            return expression.kind == Expression::Kind::conjunction
                       ? conjunction(std::move(inputs))
                       : disjunction(std::move(inputs));
        }
        default:
            return comparison(expression.kind, operandOf(expression.operands.front()),
                              operandOf(expression.operands.back()));
    }
}

ConditionGraph::Operand ConditionGraph::operandOf(const Expression& expression)
{
    if (expression.kind == Expression::Kind::literal)
        return expression.value;
    if (expression.kind == Expression::Kind::key)
        return &slots_.at(tags_.at(expression.key));
    return compile(expression);
}

ConditionGraph::Edge ConditionGraph::truthOf(const Operand& operand)
{
    if (const auto* edge = std::get_if<Edge>(&operand))
        return *edge;
    if (const auto* literal = std::get_if<KRValue>(&operand))
        return {kConstant, !literal->isTrue()};
    Slot& slot = *std::get<Slot*>(operand);
    if (!slot.truth) {
        Node node;
        node.what = TruthLeaf{&slot};
        node.truth = slot.now.value.isTrue();
        slot.truth = makeNode(std::move(node));
    }
    return {slot.truth, false};
}

// A truth on one side has two possible values, so the comparison is a choice between what it says
// of each.
ConditionGraph::Edge ConditionGraph::comparison(Expression::Kind kind, const Operand& left,
                                                const Operand& right)
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
        return {kConstant, !holds(kind, compare(*literal, *other))};
    if (literal)
        return comparison(mirrored(kind), right, left);
    Slot& slot = *std::get<Slot*>(left);
    return other ? literalComparison(kind, slot, *other)
                 : pairComparison(kind, slot, *std::get<Slot*>(right));
}

ConditionGraph::Edge ConditionGraph::literalComparison(Expression::Kind kind, Slot& slot,
                                                       const KRValue& literal)
{
    NodeId& id = indexOf(slot, literal)->at(kind, literal);
    if (!id) {
        Node node;
        node.what = LiteralLeaf{&slot, kind, literal};
        node.truth = holds(kind, compare(slot.now.value, literal));
        id = makeNode(std::move(node));
    }
    return {id, false};
}

ConditionGraph::Edge ConditionGraph::pairComparison(Expression::Kind kind, Slot& left, Slot& right)
{
    if (left.tag > right.tag)
        return pairComparison(mirrored(kind), right, left);
    NodeId& id = pairs_[{left.tag, kind, right.tag}];
    if (!id) {
        Node node;
        node.what = PairLeaf{&left, kind, &right};
        node.truth = holds(kind, compare(left.now.value, right.now.value));
        id = makeNode(std::move(node));
        left.pairs.push_back(id);
        if (&left != &right)
            right.pairs.push_back(id);
    }
    return {id, false};
}

ConditionGraph::Edge ConditionGraph::choice(Edge selector, Edge yes, Edge no)
{
    if (yes == no)
        return yes;
    return disjunction({conjunction({selector, yes}), conjunction({!selector, no})});
}

ConditionGraph::Edge ConditionGraph::disjunction(Inputs inputs)
{
    for (Edge& input : inputs)
        input = !input;
    return !conjunction(std::move(inputs));
}

ConditionGraph::Edge ConditionGraph::conjunction(Inputs inputs)
{
    std::sort(inputs.begin(), inputs.end());
    inputs.erase(std::unique(inputs.begin(), inputs.end()), inputs.end());
    const auto contradiction = std::adjacent_find(inputs.begin(), inputs.end(),
                                                  [](Edge a, Edge b) { return a.node == b.node; });
    // The constant comes first; negated it is false.
    if (contradiction != inputs.end() || inputs.front() == Edge{kConstant, true})
        return {kConstant, true};
    if (inputs.size() > 1 && inputs.front().node == kConstant)
        inputs.erase(inputs.begin());
    if (inputs.size() == 1)
        return inputs.front();

    const auto [place, isNew] = conjunctions_.try_emplace(std::move(inputs), 0);
    if (isNew) {
        Node node;
        Conjunction what{&place->first, 0};
        for (const Edge input : place->first) {
            what.falseInputs += isTrue(input) ? 0 : 1;
            node.height = std::max(node.height, nodes_[input.node].height + 1);
        }
        node.truth = what.falseInputs == 0;
        node.what = what;
        place->second = makeNode(std::move(node));
        for (const Edge input : place->first) {
            ++nodes_[input.node].references;
            nodes_[input.node].outputs.push_back({place->second, input.negated});
        }
    }
    return {place->second, false};
}

ConditionGraph::NodeId ConditionGraph::makeNode(Node node)
{
    NodeId id = static_cast<NodeId>(nodes_.size());
    node.references = 1;
    if (due_.size() <= node.height)
        due_.resize(node.height + 1);
    if (free_.empty()) {
        nodes_.push_back(std::move(node));
    } else {
        id = free_.back();
        free_.pop_back();
        nodes_[id] = std::move(node);
    }
    fresh_.push_back(id);
    return id;
}

void ConditionGraph::release(NodeId id)
{
    if (--nodes_[id].references > 0)
        return;
    const Node node = std::move(nodes_[id]);
    nodes_[id] = Node();
    free_.push_back(id);
    if (const auto* conjunction = std::get_if<Conjunction>(&node.what)) {
        const auto place = conjunctions_.find(*conjunction->inputs);
        for (const Edge input : place->first) {
            eraseOne(nodes_[input.node].outputs, Edge{id, input.negated});
            release(input.node);
        }
        conjunctions_.erase(place);
    } else if (const auto* pair = std::get_if<PairLeaf>(&node.what)) {
        pairs_.erase({pair->left->tag, pair->comparison, pair->right->tag});
        eraseOne(pair->left->pairs, id);
        if (pair->left != pair->right)
            eraseOne(pair->right->pairs, id);
    } else {
        takeOutOfSlots(node);
    }
}

void ConditionGraph::takeOutOfSlots(const Node& node)
{
    if (const auto* truth = std::get_if<TruthLeaf>(&node.what))
        truth->slot->truth = 0;
    else if (const auto* leaf = std::get_if<LiteralLeaf>(&node.what))
        indexOf(*leaf->slot, leaf->literal)->erase(leaf->comparison, leaf->literal);
}

/// Null for a value that no literal equals or has an order with.
ThresholdIndex* ConditionGraph::indexOf(Slot& slot, const KRValue& value)
{
    if (value.isString())
        return &slot.texts;
    return compare(value, KRValue(0)) == Order::none ? nullptr : &slot.numbers;
}

const std::vector<unsigned>& ConditionGraph::set(Tag tag, KRValue value, vo::TimePoint time)
{
    changed_.clear();
    const auto place = slots_.find(tag);
    if (place == slots_.end())
        return changed_;
    Slot& slot = place->second;
    const KRValue before = std::exchange(slot.now.value, std::move(value));
    slot.now.time = time;

    leafFlips_.clear();
    collectLeafFlips(slot, before, leafFlips_);
    for (const NodeId leaf : leafFlips_)
        flip(leaf);
    settle();
    std::sort(changed_.begin(), changed_.end());
    return changed_;
}

void ConditionGraph::collectLeafFlips(Slot& slot, const KRValue& before,
                                      std::vector<NodeId>& flips) const
{
    const KRValue& after = slot.now.value;
    if (slot.truth && before.isTrue() != after.isTrue())
        flips.push_back(slot.truth);
    const ThresholdIndex* indexBefore = indexOf(slot, before);
    const ThresholdIndex* indexAfter = indexOf(slot, after);
    for (const ThresholdIndex* index : {&slot.numbers, &slot.texts})
        index->collectFlips(index == indexBefore ? &before : nullptr,
                            index == indexAfter ? &after : nullptr, flips);
    for (const NodeId id : slot.pairs) {
        const auto& pair = std::get<PairLeaf>(nodes_[id].what);
        const Order order = compare(pair.left->now.value, pair.right->now.value);
        if (holds(pair.comparison, order) != nodes_[id].truth)
            flips.push_back(id);
    }
}

void ConditionGraph::flip(NodeId id)
{
    Node& node = nodes_[id];
    node.truth = !node.truth;
    changed_.insert(changed_.end(), node.conditions.begin(), node.conditions.end());
    for (const Edge output : node.outputs) {
        Node& above = nodes_[output.node];
        auto& conjunction = std::get<Conjunction>(above.what);
        if (node.truth == output.negated)
            ++conjunction.falseInputs;
        else
            --conjunction.falseInputs;
        if (!above.due && (conjunction.falseInputs == 0) != above.truth) {
            above.due = true;
            due_[above.height].push_back(output.node);
            ++dueCount_;
        }
    }
}

// Every input of a node is lower than the node, so it has its final truth when the node's turn
// comes. A node may find then that what made it due has been undone.
void ConditionGraph::settle()
{
    for (auto level = due_.begin(); dueCount_ > 0; ++level) {
        for (const NodeId id : *level) {
            Node& node = nodes_[id];
            node.due = false;
            if ((std::get<Conjunction>(node.what).falseInputs == 0) != node.truth)
                flip(id);
        }
        dueCount_ -= level->size();
        level->clear();
    }
}

}  // namespace KR
