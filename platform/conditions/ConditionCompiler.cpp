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
    newlyStamped_.clear();
    adding_ = id;
    Root* root = texts_.find(text);
    if (!root)
        root = &makeRoot(text, added);
    ++root->conditions;
    network_.attach(id, root->edge);
    roots_.add(id) = root;
    removeUnusedMade();
    return added;
}

/// What was simplified away goes again; the rest is by now needed by what is above it.
void ConditionCompiler::removeUnusedMade()
{
    for (const NodeId made : made_)
        removeIfUnused(made);
    made_.clear();
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
    root.timed = isTimed(expression);
    if (root.timed)
        stampKeys(root, added);
    root.edge = compile(expression);
    return root;
}

/// The order of writes and of what is due is that of their uptimes, so all keys of a condition that
/// speaks of time have them.
void ConditionCompiler::stampKeys(const Root& root, Watches& added)
{
    for (const KeyTag tag : root.tags) {
        KeySlot& slot = network_.slotOf(tag);
        if (slot.timedReaders++ > 0)
            continue;
        const auto known = std::find_if(added.begin(), added.end(),
                                        [tag](const PrefetchingWatch& w) { return w.tag == tag; });
        if (known == added.end())
            newlyStamped_.push_back({{*slot.key, tag, true}, &slot});
        else
            known->stamped = true;
    }
}

void ConditionCompiler::collectKeys(const Expression& expression, Root& root, Watches& added)
{
    if (expression.kind == Expression::Kind::key || expression.kind == Expression::Kind::age) {
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
    added.push_back({{key, slot.tag, false}, &slot});
    return slot;
}

ConditionCompiler::Watches ConditionCompiler::remove(unsigned id)
{
    Watches removed;
    Root& root = **roots_.find(id);
    roots_.erase(id);
    network_.detach(id, root.edge);
    if (--root.conditions > 0)
        return removed;
    if (root.timed && keeping_ > 0) {
        kept_.push_back(&root);
        pinned_.insert(root.edge.node());
    } else {
        releaseRoot(root, removed);
    }
    return removed;
}

ConditionCompiler::Watches ConditionCompiler::releaseTimed()
{
    Watches removed;
    if (--keeping_ > 0)
        return removed;
    // One may have been put there more than once.
    std::sort(kept_.begin(), kept_.end());
    kept_.erase(std::unique(kept_.begin(), kept_.end()), kept_.end());
    pinned_.clear();
    for (Root* const root : kept_) {
        if (root->conditions == 0)
            releaseRoot(*root, removed);
    }
    kept_.clear();
    return removed;
}

void ConditionCompiler::releaseRoot(Root& root, Watches& removed)
{
    removeIfUnused(root.edge.node());
    for (const KeyTag tag : root.tags) {
        KeySlot& slot = network_.slotOf(tag);
        slot.timedReaders -= root.timed ? 1 : 0;
        if (--slot.readers > 0)
            continue;
        removed.push_back({{*slot.key, tag, false}, nullptr});
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
    if (std::holds_alternative<std::monostate>(known) || network_.hasFanouts(id) ||
        pinned_.count(id) > 0)
        return;
    if (std::holds_alternative<Conjunction>(known))
        conjunctions_.erase(id);
    const NodeDefinition definition = network_.remove(id);
    if (const auto* pair = std::get_if<KeyComparison>(&definition))
        pairs_.erase({pair->left->tag, pair->comparison, pair->right->tag});
    if (const auto* conjunction = std::get_if<Conjunction>(&definition))
        for (const Edge fanin : conjunction->fanins)
            removeIfUnused(fanin.node());
    if (const auto* timed = std::get_if<Timed>(&definition)) {
        const TimedMeaning& meaning = timed->part->meaning();
        timed_.erase(keyOf(meaning));
        removeIfUnused(meaning.first.node());
        removeIfUnused(meaning.second.node());
    }
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
        case Expression::Kind::hold: {
            const Edge operand = compile(expression.operands.front());
            return timed({TimedMeaning::Kind::hold, expression.duration, operand},
                         canonicalTextOf(expression));
        }
        case Expression::Kind::within: {
            // Whichever comes first.
            const auto [first, second] = std::minmax(
                {compile(expression.operands.front()), compile(expression.operands.back())});
            return timed({TimedMeaning::Kind::within, expression.duration, first, second},
                         canonicalTextOf(expression));
        }
        default: {
            const Expression& left = expression.operands.front();
            const Expression& right = expression.operands.back();
            if (left.kind == Expression::Kind::count)
                return countComparison(expression.kind, left, right.value.toInt());
            if (left.kind == Expression::Kind::age)
                return ageComparison(expression.kind, left.key, right.duration);
            return comparison(expression.kind, operandOf(left), operandOf(right));
        }
    }
}

// What is counted is whether there were so many, so each comparison is made of those with one and
// with the other number.
Edge ConditionCompiler::countComparison(Expression::Kind kind, const Expression& count,
                                        std::int64_t times)
{
    const Edge operand = compile(count.operands.front());
    const auto isReached = [&](std::int64_t number) {
        if (number == 0)
            return Edge(kConstant, false);
        return timed(
            {TimedMeaning::Kind::count, count.duration, operand, {}, static_cast<unsigned>(number)},
            canonicalTextOf(count) + " >= " + std::to_string(number));
    };
    return reachedComparison(kind, isReached(0), isReached, times, std::int64_t{1});
}

Edge ConditionCompiler::ageComparison(Expression::Kind kind, const std::string& key,
                                      vo::Duration duration)
{
    KeySlot* const slot = network_.findKey(key);
    const auto isReached = [&](vo::Duration age) {
        return timed({TimedMeaning::Kind::age, age, {}, {}, 0, slot}, {});
    };
    return reachedComparison(kind, isReached(vo::Duration::zero()), isReached, duration,
                             vo::Duration(1));
}

/// Compares a number that is known, or else in no relation to anything, by whether it has reached
/// `limit` and the one after that.
template <class Reached, class Limit>
Edge ConditionCompiler::reachedComparison(Expression::Kind kind, Edge isKnown,
                                          const Reached& isReached, Limit limit, Limit step)
{
    switch (kind) {
        case Expression::Kind::less:
            return conjunction({isKnown, !isReached(limit)});
        case Expression::Kind::lessEqual:
            return conjunction({isKnown, !isReached(limit + step)});
        case Expression::Kind::greater:
            return isReached(limit + step);
        case Expression::Kind::greaterEqual:
            return isReached(limit);
        case Expression::Kind::equal:
            return conjunction({isReached(limit), !isReached(limit + step)});
        default:
            return conjunction(
                {isKnown, disjunction({!isReached(limit), isReached(limit + step)})});
    }
}

Edge ConditionCompiler::timed(const TimedMeaning& meaning, std::string text)
{
    NodeId& id = timed_[keyOf(meaning)];
    if (!id)
        id = make(Timed{TimedPart::make(meaning, std::move(text), adding_)});
    return Edge(id, false);
}

ConditionCompiler::TimedKey ConditionCompiler::keyOf(const TimedMeaning& meaning)
{
    return {meaning.kind,   meaning.duration, meaning.first,
            meaning.second, meaning.times,    meaning.key ? meaning.key->tag : 0};
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
