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

template <class Ids>
std::size_t hashOf(const Ids& ids)
{
    return boost::hash_range(ids.begin(), ids.end());
}

}  // namespace

std::size_t ConditionGraph::InputsHash::operator()(const Inputs& inputs) const
{
    return hashOf(inputs);
}

std::size_t ConditionGraph::InputsHash::operator()(NodeId conjunction) const
{
    return hashOf(std::get<Conjunction>((*meanings)[conjunction]).inputs);
}

bool ConditionGraph::SameInputs::operator()(NodeId conjunction, const Inputs& inputs) const
{
    const SmallList<Edge>& mine = std::get<Conjunction>((*meanings)[conjunction]).inputs;
    return std::equal(mine.begin(), mine.end(), inputs.begin(), inputs.end());
}

bool ConditionGraph::SameInputs::operator()(const Inputs& inputs, NodeId conjunction) const
{
    return (*this)(conjunction, inputs);
}

ConditionGraph::ConditionGraph() : conjunctions_(0, InputsHash{&meanings_}, SameInputs{&meanings_})
{
    Node constant;
    constant.truth = true;
    nodes_.push_back(std::move(constant));
    meanings_.emplace_back();
}

ConditionGraph::Watches ConditionGraph::add(unsigned id, const std::string& text)
{
    Watches added;
    Root* root = texts_.find(text);
    if (!root)
        root = &makeRoot(text, added);
    ++root->conditions;
    nodes_[root->edge.node()].uses.push_back(Use::by(id));
    rootOf_.add(id) = root;
    return added;
}

ConditionGraph::Root& ConditionGraph::makeRoot(const std::string& text, Watches& added)
{
    const Expression expression = parseCondition(text);
    if (freeRoots_.empty())
        freeRoots_.push_back(&roots_.emplace_back());
    Root& root = *freeRoots_.back();
    freeRoots_.pop_back();
    root.text = text;
    texts_.insert(root);
    collectSlots(expression, root, added);
    root.edge = compile(expression);
    ++nodes_[root.edge.node()].references;
    // What is simplified away goes again; the rest is by now held from above.
    for (const NodeId fresh : fresh_)
        release(fresh);
    fresh_.clear();
    return root;
}

void ConditionGraph::collectSlots(const Expression& expression, Root& root, Watches& added)
{
    if (expression.kind == Expression::Kind::key) {
        Slot& slot = slotOf(expression.key, added);
        if (std::find(root.tags.begin(), root.tags.end(), slot.tag) == root.tags.end()) {
            ++slot.readers;
            root.tags.push_back(slot.tag);
        }
    }
    for (const Expression& operand : expression.operands)
        collectSlots(operand, root, added);
}

ConditionGraph::Watches ConditionGraph::remove(unsigned id)
{
    Watches removed;
    Root& root = **rootOf_.find(id);
    rootOf_.erase(id);
    nodes_[root.edge.node()].uses.erase(Use::by(id));
    if (--root.conditions == 0)
        releaseRoot(root, removed);
    return removed;
}

void ConditionGraph::releaseRoot(Root& root, Watches& removed)
{
    release(root.edge.node());
    for (const Tag tag : root.tags) {
        Slot& slot = *slots_.find(tag);
        if (--slot.readers > 0)
            continue;
        removed.push_back({*slot.key, tag});
        keys_.erase(slot);
        slots_.erase(tag);
    }
    texts_.erase(root);
    root = Root();
    freeRoots_.push_back(&root);
}

bool ConditionGraph::isTrue(unsigned id) const
{
    return isTrue((*rootOf_.find(id))->edge);
}

ConditionGraph::Watches ConditionGraph::watches() const
{
    Watches watches;
    watches.reserve(slots_.size());
    slots_.forEach([&](Tag tag, const Slot& slot) { watches.push_back({*slot.key, tag, &slot}); });
    return watches;
}

ConditionGraph::Slot& ConditionGraph::slotOf(const std::string& key, Watches& added)
{
    if (Slot* const known = keys_.find(key))
        return *known;
    Slot& slot = slots_.add(++lastTag_);
    slot.key = std::make_unique<const std::string>(key);
    slot.tag = lastTag_;
    keys_.insert(slot);
    added.push_back({key, lastTag_, &slot});
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
        return keys_.find(expression.key);
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
        const bool truth = node.truth;
        id = makeNode(LiteralLeaf{&slot, kind, literal}, std::move(node));
        if (slot.indexes) {
            slot.indexes->of(literal)->at(kind, literal) = id;
        } else {
            slot.literals.push_back({literal, id, id, kind, truth});
            if (slot.literals.size() > kMaxUnindexed)
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
    for (const Literal& leaf : slot.literals)
        if (leaf.comparison == kind && compare(leaf.literal, literal) == Order::equal)
            return leaf.node;
    return 0;
}

void ConditionGraph::addIndexes(Slot& slot)
{
    slot.indexes = std::make_unique<Indexes>();
    for (const Literal& leaf : slot.literals)
        slot.indexes->of(leaf.literal)->at(leaf.comparison, leaf.literal) = leaf.node;
    slot.literals.clear();
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
        addPair(left, id);
        if (&left != &right)
            addPair(right, id);
    }
    return Edge(id, false);
}

void ConditionGraph::addPair(Slot& slot, NodeId id)
{
    if (!slot.pairs)
        slot.pairs = std::make_unique<SmallList<NodeId>>();
    slot.pairs->push_back(id);
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

    const std::size_t hash = conjunctions_.hash_function()(inputs);
    const auto same = conjunctions_.find(inputs, hash);
    if (same != conjunctions_.end())
        return Edge(*same, false);

    Node node;
    Conjunction meaning;
    for (const Edge input : inputs) {
        node.falseInputs += isTrue(input) ? 0 : 1;
        node.height =
            std::max(node.height, static_cast<std::uint16_t>(nodes_[input.node()].height + 1));
        ++nodes_[input.node()].references;
        meaning.inputs.push_back(input);
    }
    node.truth = node.falseInputs == 0;
    const NodeId id = makeNode(std::move(meaning), std::move(node));
    conjunctions_.insert(id);
    for (const Edge input : inputs) {
        nodes_[input.node()].uses.push_back(Use::by(Edge(id, input.negated())));
        if (const auto* leaf = std::get_if<LiteralLeaf>(&meanings_[input.node()]))
            noteUse(*leaf->slot, input.node(), id);
    }
    return Edge(id, false);
}

void ConditionGraph::noteUse(Slot& slot, NodeId leaf, NodeId above)
{
    for (Literal& literal : slot.literals)
        if (literal.node == leaf && literal.above == leaf)
            literal.above = above;
}

ConditionGraph::NodeId ConditionGraph::makeNode(Meaning meaning, Node node)
{
    auto id = static_cast<NodeId>(nodes_.size());
    if (due_.size() <= node.height)
        due_.resize(node.height + std::size_t{1});
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
    if (std::holds_alternative<Conjunction>(meanings_[id]))
        conjunctions_.erase(id);
    const Meaning meaning = std::exchange(meanings_[id], Meaning());
    nodes_[id] = Node();
    free_.push_back(id);
    if (const auto* conjunction = std::get_if<Conjunction>(&meaning))
        releaseInputs(id, *conjunction);
    else
        takeOutOfSlots(id, meaning);
}

void ConditionGraph::releaseInputs(NodeId id, const Conjunction& conjunction)
{
    for (const Edge input : conjunction.inputs) {
        nodes_[input.node()].uses.erase(Use::by(Edge(id, input.negated())));
        release(input.node());
    }
}

void ConditionGraph::takeOutOfSlots(NodeId id, const Meaning& meaning)
{
    if (const auto* truth = std::get_if<TruthLeaf>(&meaning)) {
        truth->slot->truth = 0;
    } else if (const auto* leaf = std::get_if<LiteralLeaf>(&meaning)) {
        auto& literals = leaf->slot->literals;
        if (leaf->slot->indexes)
            leaf->slot->indexes->of(leaf->literal)->erase(leaf->comparison, leaf->literal);
        else
            literals.erase(std::find_if(literals.begin(), literals.end(),
                                        [id](const Literal& l) { return l.node == id; }));
    } else if (const auto* pair = std::get_if<PairLeaf>(&meaning)) {
        pairs_.erase({pair->left->tag, pair->comparison, pair->right->tag});
        pair->left->pairs->erase(id);
        if (pair->left != pair->right)
            pair->right->pairs->erase(id);
    }
}

const std::vector<unsigned>& ConditionGraph::set(Tag tag, const KRValue& value, vo::TimePoint time)
{
    changed_.clear();
    Slot* const slot = slots_.find(tag);
    if (!slot)
        return changed_;
    if (slot->indexes)
        flipIndexed(*slot, value);
    slot->now.value = value;
    slot->now.time = time;

    if (slot->truth && nodes_[slot->truth].truth != value.isTrue())
        flip(slot->truth);
    for (Literal& leaf : slot->literals) {
        if (leaf.truth == holds(leaf.comparison, value, leaf.literal))
            continue;
        vo::prefetch(&nodes_[leaf.above]);
        leaf.truth = !leaf.truth;
        flip(leaf.node);
    }
    if (slot->pairs)
        flipPairs(*slot);
    if (dueCount_ > 0)
        settle();
    if (!std::is_sorted(changed_.begin(), changed_.end()))
        sortChanged();
    return changed_;
}

void ConditionGraph::flipIndexed(Slot& slot, const KRValue& after)
{
    leafFlips_.clear();
    const KRValue& before = slot.now.value;
    const ThresholdIndex* indexBefore = slot.indexes->of(before);
    const ThresholdIndex* indexAfter = slot.indexes->of(after);
    for (const ThresholdIndex* index : {&slot.indexes->numbers, &slot.indexes->texts})
        index->collectFlips(index == indexBefore ? &before : nullptr,
                            index == indexAfter ? &after : nullptr, leafFlips_);
    for (const NodeId leaf : leafFlips_)
        flip(leaf);
}

void ConditionGraph::flipPairs(const Slot& slot)
{
    for (const NodeId leaf : *slot.pairs) {
        const auto& pair = std::get<PairLeaf>(meanings_[leaf]);
        if (nodes_[leaf].truth !=
            holds(pair.comparison, pair.left->now.value, pair.right->now.value))
            flip(leaf);
    }
}

void ConditionGraph::flip(NodeId id)
{
    Node& node = nodes_[id];
    node.truth = !node.truth;
    for (const Use use : node.uses) {
        if (use.isCondition()) {
            changed_.push_back(use.condition());
            continue;
        }
        const Edge output = use.conjunction();
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
