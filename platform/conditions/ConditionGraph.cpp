#include "platform/conditions/ConditionGraph.h"

#include <algorithm>
#include <boost/container_hash/hash.hpp>

#include "platform/conditions/Comparison.h"

namespace KR {

namespace {

constexpr std::uint32_t kConstant = 0;

/// As many changed conditions are sorted as they come; more of them are marked in a table of bits.
constexpr std::size_t kMaxSorted = 64;
/// The table is used where it has at most as many bits a changed condition.
constexpr std::size_t kMaxBitsPerChange = 256;

template <class Items, class T>
void eraseOne(Items& items, const T& item)
{
    *std::find(items.begin(), items.end(), item) = items.back();
    items.pop_back();
}

}  // namespace

ConditionGraph::ConditionGraph()
{
    Node constant;
    constant.truth = true;
    nodes_.push_back(std::move(constant));
    meanings_.emplace_back();
}

ConditionGraph::Watches ConditionGraph::add(unsigned id, const std::string& text)
{
    Watches added;
    const auto known = texts_.find(text);
    RootId root = 0;
    if (known != texts_.end()) {
        root = known->second;
    } else {
        root = makeRoot(id, parseCondition(text), added);
        roots_[root].text = &texts_.emplace(text, root).first->first;
    }
    roots_[root].conditions.push_back(id);
    rootOf_.add(id) = root;
    return added;
}

ConditionGraph::RootId ConditionGraph::makeRoot(unsigned id, const Expression& expression,
                                                Watches& added)
{
    Root root;
    collectSlots(id, expression, root, added);
    root.edge = compile(expression);
    auto place = static_cast<RootId>(roots_.size());
    if (freeRoots_.empty()) {
        roots_.emplace_back();
    } else {
        place = freeRoots_.back();
        freeRoots_.pop_back();
    }
    Node& node = nodes_[root.edge.node()];
    ++node.references;
    root.next = std::exchange(node.root, place);
    roots_[place] = std::move(root);
    // What is simplified away goes again; the rest is by now held from above.
    for (const NodeId fresh : fresh_)
        release(fresh);
    fresh_.clear();
    return place;
}

void ConditionGraph::collectSlots(unsigned id, const Expression& expression, Root& root,
                                  Watches& added)
{
    if (expression.kind == Expression::Kind::key) {
        Slot& slot = slotOf(expression.key, added);
        if (slot.lastAdded != id) {
            slot.lastAdded = id;
            ++slot.readers;
            root.tags.push_back(slot.tag);
        }
    }
    for (const Expression& operand : expression.operands)
        collectSlots(id, operand, root, added);
}

ConditionGraph::Watches ConditionGraph::remove(unsigned id)
{
    Watches removed;
    const RootId root = *rootOf_.find(id);
    rootOf_.erase(id);
    auto& conditions = roots_[root].conditions;
    conditions.erase(std::lower_bound(conditions.begin(), conditions.end(), id));
    if (conditions.empty())
        releaseRoot(root, removed);
    return removed;
}

void ConditionGraph::releaseRoot(RootId id, Watches& removed)
{
    const Root root = std::exchange(roots_[id], Root());
    freeRoots_.push_back(id);
    texts_.erase(texts_.find(*root.text));
    RootId* place = &nodes_[root.edge.node()].root;
    while (*place != id)
        place = &roots_[*place].next;
    *place = root.next;
    release(root.edge.node());

    for (const Tag tag : root.tags) {
        Slot& slot = *slots_.find(tag);
        if (--slot.readers > 0)
            continue;
        removed.push_back({*slot.key, tag});
        slots_.erase(tag);
        tags_.erase(removed.back().key);
    }
}

bool ConditionGraph::isTrue(unsigned id) const
{
    return isTrue(roots_[*rootOf_.find(id)].edge);
}

ConditionGraph::Watches ConditionGraph::watches() const
{
    Watches watches;
    watches.reserve(slots_.size());
    slots_.forEach([&](Tag tag, const Slot& slot) { watches.push_back({*slot.key, tag}); });
    return watches;
}

ConditionGraph::Slot& ConditionGraph::slotOf(const std::string& key, Watches& added)
{
    const auto [place, isNew] = tags_.try_emplace(key, 0);
    if (!isNew)
        return *slots_.find(place->second);
    place->second = ++lastTag_;
    Slot& slot = slots_.add(lastTag_);
    slot.key = &place->first;
    slot.tag = lastTag_;
    added.push_back({key, lastTag_});
    return slot;
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
        return slots_.find(tags_.at(expression.key));
    return compile(expression);
}

ConditionGraph::Edge ConditionGraph::truthOf(const Operand& operand)
{
    if (const auto* edge = std::get_if<Edge>(&operand))
        return *edge;
    if (const auto* literal = std::get_if<KRValue>(&operand))
        return Edge(kConstant, !literal->isTrue());
    Slot& slot = *std::get<Slot*>(operand);
    if (!slot.truth) {
        Node node;
        node.truth = slot.now.value.isTrue();
        slot.truth = makeNode(TruthLeaf{&slot}, std::move(node));
    }
    return Edge(slot.truth, false);
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
        return Edge(kConstant, !holds(kind, compare(*literal, *other)));
    if (literal)
        return comparison(mirrored(kind), right, left);
    Slot& slot = *std::get<Slot*>(left);
    return other ? literalComparison(kind, slot, *other)
                 : pairComparison(kind, slot, *std::get<Slot*>(right));
}

ConditionGraph::Edge ConditionGraph::literalComparison(Expression::Kind kind, Slot& slot,
                                                       const KRValue& literal)
{
    NodeId id = findLiteral(kind, slot, literal);
    if (!id) {
        Node node;
        node.truth = holds(kind, slot.now.value, literal);
        id = makeNode(LiteralLeaf{&slot, kind, literal}, std::move(node));
        if (slot.indexes) {
            slot.indexes->of(literal)->at(kind, literal) = id;
        } else {
            slot.leaves.push_back(id);
            if (slot.leaves.size() > kMaxUnindexed)
                addIndexes(slot);
        }
    }
    return Edge(id, false);
}

/// The leaf that says the same; 0 when there is none.
ConditionGraph::NodeId ConditionGraph::findLiteral(Expression::Kind kind, const Slot& slot,
                                                   const KRValue& literal) const
{
    if (slot.indexes)
        return slot.indexes->of(literal)->at(kind, literal);
    for (const NodeId id : slot.leaves) {
        const auto* leaf = std::get_if<LiteralLeaf>(&meanings_[id]);
        if (leaf && leaf->comparison == kind && compare(leaf->literal, literal) == Order::equal)
            return id;
    }
    return 0;
}

void ConditionGraph::addIndexes(Slot& slot)
{
    slot.indexes = std::make_unique<Indexes>();
    const auto isIndexed = [&](NodeId id) {
        const auto* leaf = std::get_if<LiteralLeaf>(&meanings_[id]);
        if (leaf)
            slot.indexes->of(leaf->literal)->at(leaf->comparison, leaf->literal) = id;
        return leaf != nullptr;
    };
    slot.leaves.erase(std::remove_if(slot.leaves.begin(), slot.leaves.end(), isIndexed),
                      slot.leaves.end());
}

ThresholdIndex* ConditionGraph::Indexes::of(const KRValue& value)
{
    if (value.isString())
        return &texts;
    return compare(value, KRValue(0)) == Order::none ? nullptr : &numbers;
}

ConditionGraph::Edge ConditionGraph::pairComparison(Expression::Kind kind, Slot& left, Slot& right)
{
    if (left.tag > right.tag)
        return pairComparison(mirrored(kind), right, left);
    NodeId& id = pairs_[{left.tag, kind, right.tag}];
    if (!id) {
        Node node;
        node.truth = holds(kind, left.now.value, right.now.value);
        id = makeNode(PairLeaf{&left, kind, &right}, std::move(node));
        left.leaves.push_back(id);
        if (&left != &right)
            right.leaves.push_back(id);
    }
    return Edge(id, false);
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
    const auto contradiction = std::adjacent_find(
        inputs.begin(), inputs.end(), [](Edge a, Edge b) { return a.node() == b.node(); });
    // The constant comes first; negated it is false.
    if (contradiction != inputs.end() || inputs.front() == Edge(kConstant, true))
        return Edge(kConstant, true);
    if (inputs.size() > 1 && inputs.front().node() == kConstant)
        inputs.erase(inputs.begin());
    if (inputs.size() == 1)
        return inputs.front();

    const std::size_t hash = boost::hash_range(inputs.begin(), inputs.end());
    const auto [first, last] = conjunctions_.equal_range(hash);
    for (auto same = first; same != last; ++same)
        if (std::get<Inputs>(meanings_[same->second]) == inputs)
            return Edge(same->second, false);

    Node node;
    for (const Edge input : inputs) {
        node.falseInputs += isTrue(input) ? 0 : 1;
        node.height = std::max(node.height, nodes_[input.node()].height + 1);
        ++nodes_[input.node()].references;
    }
    node.truth = node.falseInputs == 0;
    const NodeId id = makeNode(std::move(inputs), std::move(node));
    conjunctions_.emplace(hash, id);
    for (const Edge input : std::get<Inputs>(meanings_[id]))
        nodes_[input.node()].outputs.push_back(Edge(id, input.negated()));
    return Edge(id, false);
}

ConditionGraph::NodeId ConditionGraph::makeNode(Meaning meaning, Node node)
{
    auto id = static_cast<NodeId>(nodes_.size());
    if (due_.size() <= node.height)
        due_.resize(node.height + 1);
    if (free_.empty()) {
        nodes_.push_back(std::move(node));
        meanings_.push_back(std::move(meaning));
    } else {
        id = free_.back();
        free_.pop_back();
        nodes_[id] = std::move(node);
        meanings_[id] = std::move(meaning);
    }
    fresh_.push_back(id);
    return id;
}

void ConditionGraph::release(NodeId id)
{
    if (--nodes_[id].references > 0)
        return;
    const Meaning meaning = std::exchange(meanings_[id], Meaning());
    nodes_[id] = Node();
    free_.push_back(id);
    const auto* inputs = std::get_if<Inputs>(&meaning);
    if (!inputs)
        return takeOutOfSlots(id, meaning);
    auto place = conjunctions_.find(boost::hash_range(inputs->begin(), inputs->end()));
    while (place->second != id)
        ++place;
    conjunctions_.erase(place);
    for (const Edge input : *inputs) {
        eraseOne(nodes_[input.node()].outputs, Edge(id, input.negated()));
        release(input.node());
    }
}

void ConditionGraph::takeOutOfSlots(NodeId id, const Meaning& meaning)
{
    if (const auto* truth = std::get_if<TruthLeaf>(&meaning)) {
        truth->slot->truth = 0;
    } else if (const auto* leaf = std::get_if<LiteralLeaf>(&meaning)) {
        if (leaf->slot->indexes)
            leaf->slot->indexes->of(leaf->literal)->erase(leaf->comparison, leaf->literal);
        else
            eraseOne(leaf->slot->leaves, id);
    } else if (const auto* pair = std::get_if<PairLeaf>(&meaning)) {
        pairs_.erase({pair->left->tag, pair->comparison, pair->right->tag});
        eraseOne(pair->left->leaves, id);
        if (pair->left != pair->right)
            eraseOne(pair->right->leaves, id);
    }
}

const std::vector<unsigned>& ConditionGraph::set(Tag tag, const KRValue& value, vo::TimePoint time)
{
    changed_.clear();
    Slot* const slot = slots_.find(tag);
    if (!slot)
        return changed_;
    KRValue before;
    if (slot->indexes)
        before = std::move(slot->now.value);
    slot->now.value = value;
    slot->now.time = time;

    if (slot->truth && nodes_[slot->truth].truth != value.isTrue())
        flip(slot->truth);
    for (const NodeId leaf : slot->leaves)
        if (nodes_[leaf].truth != evaluate(leaf))
            flip(leaf);
    if (slot->indexes)
        flipIndexed(*slot->indexes, before, value);
    if (dueCount_ > 0)
        settle();
    if (changed_.size() > 1)
        sortChanged();
    return changed_;
}

void ConditionGraph::flipIndexed(Indexes& indexes, const KRValue& before, const KRValue& after)
{
    leafFlips_.clear();
    const ThresholdIndex* indexBefore = indexes.of(before);
    const ThresholdIndex* indexAfter = indexes.of(after);
    for (const ThresholdIndex* index : {&indexes.numbers, &indexes.texts})
        index->collectFlips(index == indexBefore ? &before : nullptr,
                            index == indexAfter ? &after : nullptr, leafFlips_);
    for (const NodeId leaf : leafFlips_)
        flip(leaf);
}

/// A leaf of Slot::leaves.
bool ConditionGraph::evaluate(NodeId leaf) const
{
    const Meaning& meaning = meanings_[leaf];
    if (const auto* literal = std::get_if<LiteralLeaf>(&meaning))
        return holds(literal->comparison, literal->slot->now.value, literal->literal);
    const auto& pair = std::get<PairLeaf>(meaning);
    return holds(pair.comparison, pair.left->now.value, pair.right->now.value);
}

void ConditionGraph::flip(NodeId id)
{
    Node& node = nodes_[id];
    node.truth = !node.truth;
    for (RootId root = node.root; root; root = roots_[root].next)
        changed_.insert(changed_.end(), roots_[root].conditions.begin(),
                        roots_[root].conditions.end());
    for (const Edge output : node.outputs) {
        Node& above = nodes_[output.node()];
        if (node.truth == output.negated())
            ++above.falseInputs;
        else
            --above.falseInputs;
        if (!above.due && (above.falseInputs == 0) != above.truth) {
            above.due = true;
            due_[above.height].push_back(output.node());
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
            if ((node.falseInputs == 0) != node.truth)
                flip(id);
        }
        dueCount_ -= level->size();
        level->clear();
    }
}

void ConditionGraph::sortChanged()
{
    const auto [least, greatest] = std::minmax_element(changed_.begin(), changed_.end());
    const std::size_t base = *least;
    const std::size_t bits = *greatest - base + 1;
    if (changed_.size() <= kMaxSorted || bits > changed_.size() * kMaxBitsPerChange) {
        std::sort(changed_.begin(), changed_.end());
        return;
    }
    marks_.assign(bits / 64 + 1, 0);
    for (const unsigned id : changed_)
        marks_[(id - base) / 64] |= std::uint64_t{1} << ((id - base) % 64);
    auto out = changed_.begin();
    for (std::size_t word = 0; word < marks_.size(); ++word)
        for (std::uint64_t left = marks_[word]; left != 0; left &= left - 1)
            *out++ = static_cast<unsigned>(base + word * 64 +
                                           static_cast<std::size_t>(__builtin_ctzll(left)));
}

}  // namespace KR
