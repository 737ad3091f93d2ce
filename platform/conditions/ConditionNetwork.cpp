#include "platform/conditions/ConditionNetwork.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <variant>

#include "platform/conditions/Comparison.h"

namespace KR {

namespace {

void addPair(KeySlot& slot, NodeId leaf)
{
    if (!slot.pairs)
        slot.pairs = std::make_unique<SmallList<NodeId>>();
    slot.pairs->push_back(leaf);
}

}  // namespace

ConditionNetwork::ConditionNetwork()
{
    nodes_.emplace_back().truth = true;
    definitions_.emplace_back();
    reserveLevel(0);
}

std::vector<PrefetchingWatch> ConditionNetwork::watches() const
{
    std::vector<PrefetchingWatch> watches;
    watches.reserve(slots_.size());
    slots_.forEach([&](KeyTag tag, const KeySlot& slot) {
        watches.push_back({{*slot.key, tag, slot.timedReaders > 0}, &slot});
    });
    return watches;
}

KeySlot& ConditionNetwork::addKey(const std::string& key)
{
    KeySlot& slot = slots_.add(++lastTag_);
    slot.key = std::make_unique<const std::string>(key);
    slot.tag = lastTag_;
    keys_.insert(slot);
    return slot;
}

void ConditionNetwork::removeKey(KeySlot& slot)
{
    keys_.erase(slot);
    slots_.erase(slot.tag);
}

NodeId ConditionNetwork::add(NodeDefinition definition)
{
    auto id = static_cast<NodeId>(nodes_.size());
    if (free_.empty()) {
        nodes_.emplace_back();
        definitions_.push_back(std::move(definition));
    } else {
        id = free_.back();
        free_.pop_back();
        definitions_[id] = std::move(definition);
    }
    std::visit([this, id](const auto& d) { link(id, d); }, definitions_[id]);
    return id;
}

NodeDefinition ConditionNetwork::remove(NodeId id)
{
    NodeDefinition definition = std::exchange(definitions_[id], NodeDefinition());
    nodes_[id] = NetworkNode();
    free_.push_back(id);
    std::visit([this, id](const auto& d) { unlink(id, d); }, definition);
    return definition;
}

void ConditionNetwork::link(NodeId id, const KeyTruth& leaf)
{
    nodes_[id].truth = leaf.key->now.value.isTrue();
    leaf.key->truth = id;
}

void ConditionNetwork::unlink(NodeId /*id*/, const KeyTruth& leaf)
{
    leaf.key->truth = kConstant;
}

void ConditionNetwork::link(NodeId id, const LiteralComparison& leaf)
{
    const bool truth = holds(leaf.comparison, leaf.key->now.value, leaf.literal);
    nodes_[id].truth = truth;
    leaf.key->literals.add(leaf.comparison, leaf.literal, id, truth);
}

void ConditionNetwork::unlink(NodeId id, const LiteralComparison& leaf)
{
    leaf.key->literals.erase(leaf.comparison, leaf.literal, id);
}

void ConditionNetwork::link(NodeId id, const KeyComparison& leaf)
{
    nodes_[id].truth = holds(leaf.comparison, leaf.left->now.value, leaf.right->now.value);
    addPair(*leaf.left, id);
    if (leaf.left != leaf.right)
        addPair(*leaf.right, id);
}

void ConditionNetwork::unlink(NodeId id, const KeyComparison& leaf)
{
    leaf.left->pairs->erase(id);
    if (leaf.left != leaf.right)
        leaf.right->pairs->erase(id);
}

void ConditionNetwork::link(NodeId id, const Conjunction& conjunction)
{
    for (const Edge fanin : conjunction.fanins)
        linkFanin(id, fanin);
    nodes_[id].truth = nodes_[id].falseFanins == 0;
}

void ConditionNetwork::linkFanin(NodeId id, Edge fanin)
{
    NetworkNode& node = nodes_[id];
    NetworkNode& below = nodes_[fanin.node()];
    node.falseFanins += isTrue(fanin) ? 0 : 1;
    node.level =
        static_cast<std::uint16_t>(std::max<unsigned>(node.level, below.level + 1U)) & 0x7fff;
    below.fanouts.push_back(Fanout::to(Edge(id, fanin.negated())));
    reserveLevel(node.level);
}

void ConditionNetwork::reserveLevel(std::size_t level)
{
    if (pending_.size() <= level)
        pending_.resize(level + 1);
}

void ConditionNetwork::unlink(NodeId id, const Conjunction& conjunction)
{
    for (const Edge fanin : conjunction.fanins)
        nodes_[fanin.node()].fanouts.erase(Fanout::to(Edge(id, fanin.negated())));
}

void ConditionNetwork::attach(unsigned condition, Edge root)
{
    nodes_[root.node()].fanouts.push_back(Fanout::to(condition));
}

void ConditionNetwork::detach(unsigned condition, Edge root)
{
    nodes_[root.node()].fanouts.erase(Fanout::to(condition));
}

const std::vector<unsigned>& ConditionNetwork::set(KeyTag tag, const KRValue& value,
                                                   vo::TimePoint time, vo::Duration uptime)
{
    return change(tag, value, time, uptime, true);
}

const std::vector<unsigned>& ConditionNetwork::change(KeyTag tag, const KRValue& value,
                                                      vo::TimePoint time, vo::Duration uptime,
                                                      bool isMoment)
{
    changed_.clear();
    KeySlot* const slot = slots_.find(tag);
    if (!slot)
        return changed_;
    if (slot->literals.isIndexed())
        flipIndexed(*slot, value);
    slot->now.value = value;
    slot->now.time = time;
    slot->now.uptime = uptime;
    if (isMoment && slot->timedReaders > 0)
        noteUptime(*slot, uptime);

    if (slot->truth && nodes_[slot->truth].truth != value.isTrue())
        flip(slot->truth);
    slot->literals.flipUnindexed(value, [this](NodeId leaf) { flip(leaf); });
    if (slot->pairs)
        flipPairs(*slot);
    return endMoment();
}

const std::vector<unsigned>& ConditionNetwork::load(KeyTag tag, const KRMemory::Snapshot& snapshot)
{
    return change(tag, snapshot.value, snapshot.time, snapshot.uptime, false);
}

const std::vector<unsigned>& ConditionNetwork::endMoment()
{
    if (pendingCount_ > 0)
        propagate();
    if (isFirstIdle_)
        dropIdleLooks();
    sorter_.sort(changed_);
    return changed_;
}

void ConditionNetwork::flipIndexed(const KeySlot& slot, const KRValue& after)
{
    leafFlips_.clear();
    slot.literals.collectFlips(slot.now.value, after, leafFlips_);
    for (const NodeId leaf : leafFlips_)
        flip(leaf);
}

void ConditionNetwork::flipPairs(const KeySlot& slot)
{
    for (const NodeId leaf : *slot.pairs) {
        const auto& pair = std::get<KeyComparison>(definitions_[leaf]);
        if (nodes_[leaf].truth !=
            holds(pair.comparison, pair.left->now.value, pair.right->now.value))
            flip(leaf);
    }
}

void ConditionNetwork::flip(NodeId id)
{
    NetworkNode& node = nodes_[id];
    node.truth = !node.truth;
    for (const Fanout fanout : node.fanouts) {
        if (fanout.isCondition()) {
            changed_.push_back(fanout.condition());
            continue;
        }
        const Edge output = fanout.conjunction();
        NetworkNode& above = nodes_[output.node()];
        if (node.truth == output.negated())
            ++above.falseFanins;
        else
            --above.falseFanins;
        if (above.timed || (above.falseFanins == 0) != above.truth)
            postpone(output.node());
    }
}

/// Until the turn of its level.
void ConditionNetwork::postpone(NodeId id)
{
    NetworkNode& node = nodes_[id];
    if (node.pending)
        return;
    node.pending = true;
    pending_[node.level].push_back(id);
    ++pendingCount_;
}

// Every fanin of a node has a lower level, so it has its final truth when the node's turn comes. A
// node may find then that what made it pending has been undone.
void ConditionNetwork::propagate()
{
    for (auto level = pending_.begin(); pendingCount_ > 0; ++level) {
        for (const NodeId id : *level) {
            NetworkNode& node = nodes_[id];
            node.pending = false;
            if ((node.timed ? updatePart(id) : node.falseFanins == 0) != node.truth)
                flip(id);
        }
        pendingCount_ -= level->size();
        level->clear();
    }
}

}  // namespace KR
