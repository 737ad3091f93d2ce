#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/conditions/IdSorter.h"
#include "platform/conditions/IdTable.h"
#include "platform/conditions/KeySlot.h"
#include "platform/conditions/NetworkNode.h"
#include "platform/conditions/NodeDefinition.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/KRValue.h"
#include "platform/kr/MemoryFeed.h"
#include "platform/kr/PrefetchingWatch.h"
#include "platform/vo/Cache.h"
#include "platform/vo/Clock.h"
#include "platform/vo/TextIndex.h"

namespace KR {

/// The truths of conditions, kept up to date with the values of the keys that they read.
///
/// An and-inverter graph. A leaf is the truth of a key, or one comparison of it. Every other node
/// is the conjunction of its fanins: nodes, each taken as it is or negated at the edge. What the
/// truth of a node goes to, conjunctions above it and conditions that it is the root of, are its
/// fanouts. Which nodes a condition needs is for ConditionCompiler to say, which adds and removes
/// them.
///
///     'A' == 1 && !'B'          condition 7
///                                   |
///                              conjunction     level 1
///                               /      \ negated
///                         'A' == 1     'B'     level 0, leaves
///
/// A conjunction counts its false fanins. A change of a key finds those of its leaves that flip. A
/// flip moves the counters of the node's fanouts by one; those whose truth has changed by then flip
/// in their turn, level by level, so each node flips at most once a change. What does not flip
/// costs nothing.
///
/// A part that speaks of time is a node, too: it is looked at when a fanin of it flips, when the
/// key whose age it tells is written, and at the instant that it says it is due. Instants are
/// uptimes; whoever owns the network says when they have come. Time goes from begin() to end():
/// before and after, nothing happens to these parts and nothing of them is due.
///
/// Not synchronised: a part of ConditionChecker.
class ConditionNetwork {
public:
    ConditionNetwork();
    ConditionNetwork(const ConditionNetwork&) = delete;
    ConditionNetwork& operator=(const ConditionNetwork&) = delete;

    // The keys' values, and what comes of them.

    /// Handles one change of a key; that of a tag which is gone is nothing. Returns the conditions
    /// whose truth it changed, in ascending id order, valid until the next call. Changes of a key
    /// that parts of time read have their exact uptime; whatever was due before has been handled.
    const std::vector<unsigned>& set(KeyTag tag, const KRValue& value, vo::TimePoint time,
                                     vo::Duration uptime = kNotStamped);
    /// The same for what memory says that the key holds, which is no moment of its own.
    const std::vector<unsigned>& load(KeyTag tag, const KRMemory::Snapshot& snapshot);
    /// As of the latest change of a key.
    bool isTrue(Edge edge) const { return nodes_[edge.node()].truth != edge.negated(); }
    /// Has what a change of this key touches first fetched meanwhile.
    void expect(KeyTag tag) const
    {
        if (const KeySlot* const slot = slots_.find(tag))
            vo::prefetch(slot, sizeof *slot);
    }

    /// Every key that a condition reads.
    std::vector<PrefetchingWatch> watches() const;
    /// Calls `f(key, snapshot)` for each of them, with the value and time that were set last.
    template <class F>
    void forEachKey(F f) const
    {
        slots_.forEach([&f](KeyTag, const KeySlot& slot) { f(*slot.key, slot.now); });
    }
    /// The key of a tag and what was set last; nulls for a tag that is gone.
    std::pair<const std::string*, const KRMemory::Snapshot*> keyOf(KeyTag tag) const
    {
        const KeySlot* const slot = slots_.find(tag);
        return slot ? std::pair(slot->key.get(), &slot->now) : std::pair(nullptr, nullptr);
    }

    // Time.

    /// Has time go on for the parts of conditions up to this one for which it does not yet; as one
    /// moment. Where it does not go on after that, no history is taken up. Returns the conditions
    /// whose truth it changed, as set() does.
    const std::vector<unsigned>& begin(vo::Duration now, unsigned last, bool goesOn);
    /// Whether there are parts that begin() is for.
    bool hasFresh(unsigned last) const { return !fresh_.empty() && fresh_.begin()->first <= last; }
    /// Has time stand still for all parts, whose truth stays as it is.
    void end();
    /// Whether something may change by itself.
    bool hasDue() const { return !dues_.empty(); }
    /// The next instant at which it may.
    std::optional<vo::Duration> nextDue() const
    {
        return dues_.empty() ? std::nullopt : std::optional(dues_.begin()->first);
    }
    /// Handles what is due at nextDue(), which there is, as one moment. Returns what set() does.
    const std::vector<unsigned>& elapse();
    /// What the parts have to go on with, by their texts, and what still waits to be gone on with.
    std::map<std::string, TimedHistory> histories(vo::Duration now) const;
    /// Until that instant, a part that begins or whose operand becomes true goes on with the
    /// history of its text.
    void resume(std::map<std::string, TimedHistory> histories, vo::Duration until);

    // The nodes, for the compiler.

    /// Null when there is none. A slot stays where it is until its key is removed.
    KeySlot* findKey(const std::string& key) const { return keys_.find(key); }
    /// Of a key that is there.
    KeySlot& slotOf(KeyTag tag) { return slots_.at(tag); }
    /// A key that is not there; its value is unknown until it is set.
    KeySlot& addKey(const std::string& key);
    /// One that has no leaves.
    void removeKey(KeySlot& slot);

    /// Adds a node that means what no other does; its truth is that of the keys' values now.
    NodeId add(NodeDefinition definition);
    /// Removes a node that has no fanouts. Its fanins stay, even if they now have none.
    NodeDefinition remove(NodeId id);
    const NodeDefinition& definitionOf(NodeId id) const { return definitions_[id]; }
    bool hasFanouts(NodeId id) const { return !nodes_[id].fanouts.empty(); }

    /// Reports a condition's changes from here on, as those of its root.
    void attach(unsigned condition, Edge root);
    void detach(unsigned condition, Edge root);

    /// Nodes that exist, the constant aside.
    std::size_t size() const { return nodes_.size() - free_.size() - 1; }

private:
    struct KeyOf {
        const std::string& operator()(const KeySlot& slot) const { return *slot.key; }
    };

    // For each kind of definition: what a new node's truth is and by whom it is found; and the
    // opposite.
    void link(NodeId, const std::monostate&) {}
    void link(NodeId id, const KeyTruth& leaf);
    void link(NodeId id, const LiteralComparison& leaf);
    void link(NodeId id, const KeyComparison& leaf);
    void link(NodeId id, const Conjunction& conjunction);
    void link(NodeId id, const Timed& timed);
    void unlink(NodeId, const std::monostate&) {}
    void unlink(NodeId id, const KeyTruth& leaf);
    void unlink(NodeId id, const LiteralComparison& leaf);
    void unlink(NodeId id, const KeyComparison& leaf);
    void unlink(NodeId id, const Conjunction& conjunction);
    void unlink(NodeId id, const Timed& timed);
    void linkFanin(NodeId id, Edge fanin);
    void reserveLevel(std::size_t level);

    const std::vector<unsigned>& change(KeyTag tag, const KRValue& value, vo::TimePoint time,
                                        vo::Duration uptime, bool isMoment);
    void flipIndexed(const KeySlot& slot, const KRValue& after);
    void flipPairs(const KeySlot& slot);
    void flip(NodeId id);
    void postpone(NodeId id);
    void propagate();
    const std::vector<unsigned>& endMoment();

    void noteUptime(const KeySlot& slot, vo::Duration uptime);
    TimedPart& partOf(NodeId id) const { return *std::get<Timed>(definitions_[id]).part; }
    TimedInputs inputsOf(const TimedMeaning& meaning) const;
    bool updatePart(NodeId id);
    void resumePart(TimedPart& part, vo::Duration now, bool begins);
    void schedule(NodeId id, TimedPart& part);
    void unschedule(NodeId id, TimedPart& part);
    void dropIdleLooks();

    IdTable<KeySlot> slots_;
    vo::TextIndex<KeySlot, KeyOf> keys_;
    KeyTag lastTag_ = 0;

    std::vector<NetworkNode> nodes_;           ///< the first one is the constant
    std::vector<NodeDefinition> definitions_;  ///< of the nodes
    std::vector<NodeId> free_;

    TimedMoment moment_;  ///< the latest of those that have their uptime
    std::set<std::pair<vo::Duration, NodeId>> dues_;  ///< when to look at which part
    bool isFirstIdle_ = false;  ///< the first of them may be at a part that is not due
    std::set<std::pair<unsigned, NodeId>> fresh_;  ///< parts that have not begun, by condition
    bool goesOn_ = true;                           ///< whether histories are taken up
    std::size_t parts_ = 0;                        ///< parts that speak of time
    std::optional<TimedMoment> beginning_;         ///< while parts begin; may be ahead of moment_
    std::map<std::string, TimedHistory> resumable_;
    vo::Duration resumableUntil_{};

    // Empty between the calls; kept for their storage.
    std::vector<NodeId> leafFlips_;             ///< of this change, found by an index
    std::vector<std::vector<NodeId>> pending_;  ///< nodes to look at in this change, by level
    std::size_t pendingCount_ = 0;
    std::vector<unsigned> changed_;
    IdSorter sorter_;
};

}  // namespace KR
