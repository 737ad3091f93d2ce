#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "platform/conditions/ConditionParser.h"
#include "platform/conditions/ThresholdIndex.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"

namespace KR {

/// Conditions as one graph, kept up to date with the values of their keys.
///
/// A leaf is the truth of a key or one comparison of it. Every other node is a conjunction of
/// nodes, each taken as it is or negated at the edge; a disjunction is a negated conjunction of
/// negations, and a comparison of truths is spelt out with both. Sub-conditions with the same
/// meaning are one node, held by reference counts for as long as a condition needs it.
///
/// A conjunction counts its false inputs. A change of a key asks the key's leaves which of them
/// flip (see ThresholdIndex); a flip moves the counters of the nodes above it by one, and those
/// whose truth has changed by then flip in their turn, lowest first, so each node flips at most
/// once a change. What does not flip costs nothing.
///
/// Not synchronised: a part of ConditionChecker.
class ConditionGraph {
public:
    /// Names a key's slot; never 0, and never given twice.
    using Tag = std::uint32_t;
    using Watches = std::vector<KRMemory::Watch>;

    ConditionGraph();
    ConditionGraph(const ConditionGraph&) = delete;
    ConditionGraph& operator=(const ConditionGraph&) = delete;

    /// Adds a condition under a new id. Returns the keys that no condition has read so far; their
    /// values are unknown until they are set.
    Watches add(unsigned id, const Expression& expression);
    /// Removes a condition that was added. Returns the keys that nobody reads any more.
    Watches remove(unsigned id);

    /// The truth of a condition as of the latest change of a key.
    bool isTrue(unsigned id) const;

    /// Handles one change of a key; that of a tag which is gone is nothing. Returns the conditions
    /// whose truth it changed, in ascending id order, valid until the next call.
    const std::vector<unsigned>& set(Tag tag, KRValue value, vo::TimePoint time);

    /// Every key that a condition reads.
    Watches watches() const;
    /// Calls `f(key, snapshot)` for each of them, with the value and time that were set last.
    template <class F>
    void forEachKey(F f) const
    {
        for (const auto& [tag, slot] : slots_)
            f(slot.key, slot.now);
    }

    /// Nodes that exist, the constant aside.
    std::size_t size() const { return nodes_.size() - free_.size() - 1; }

private:
    using NodeId = ThresholdIndex::NodeId;

    /// A use of a node, as it is or negated.
    struct Edge {
        NodeId node;
        bool negated;

        Edge operator!() const { return {node, !negated}; }
        bool operator==(Edge other) const { return node == other.node && negated == other.negated; }
        bool operator<(Edge other) const
        {
            return std::tie(node, negated) < std::tie(other.node, other.negated);
        }
    };
    using Inputs = std::vector<Edge>;

    /// A key, and the leaves that read it.
    struct Slot {
        std::string key;
        Tag tag;
        std::size_t readers = 0;  ///< conditions
        KRMemory::Snapshot now = {};
        NodeId truth = 0;
        ThresholdIndex numbers;
        ThresholdIndex texts;
        std::vector<NodeId> pairs;  ///< comparisons with a key, evaluated at each change
    };
    using Pair = std::tuple<Tag, Expression::Kind, Tag>;

    struct TruthLeaf {
        Slot* slot;
    };
    struct LiteralLeaf {
        Slot* slot;
        Expression::Kind comparison;
        KRValue literal;
    };
    struct PairLeaf {
        Slot* left;
        Expression::Kind comparison;
        Slot* right;
    };
    struct Conjunction {
        const Inputs* inputs;  ///< the key in conjunctions_
        std::size_t falseInputs;
    };

    struct Node {
        std::variant<std::monostate, TruthLeaf, LiteralLeaf, PairLeaf, Conjunction> what;
        bool truth = false;
        bool due = false;  ///< waits in due_
        std::size_t height = 0;
        std::size_t references = 0;
        std::vector<Edge> outputs;  ///< the conjunctions above, and how they use this node
        std::vector<unsigned> conditions;
    };

    struct Root {
        Edge edge;
        std::vector<Slot*> slots;
    };

    /// What one side of a comparison is.
    using Operand = std::variant<KRValue, Slot*, Edge>;

    // Building.
    Slot& slotOf(const std::string& key, Watches& added);
    Edge compile(const Expression& expression);
    Operand operandOf(const Expression& expression);
    Edge truthOf(const Operand& operand);
    Edge comparison(Expression::Kind kind, const Operand& left, const Operand& right);
    Edge literalComparison(Expression::Kind kind, Slot& slot, const KRValue& literal);
    Edge pairComparison(Expression::Kind kind, Slot& left, Slot& right);
    Edge choice(Edge selector, Edge yes, Edge no);
    Edge conjunction(Inputs inputs);
    Edge disjunction(Inputs inputs);
    NodeId makeNode(Node node);
    void release(NodeId id);
    void takeOutOfSlots(const Node& node);
    static ThresholdIndex* indexOf(Slot& slot, const KRValue& value);

    // Following.
    bool isTrue(Edge edge) const { return nodes_[edge.node].truth != edge.negated; }
    void collectLeafFlips(Slot& slot, const KRValue& before, std::vector<NodeId>& flips) const;
    void flip(NodeId id);
    void settle();

    // Stable addresses: leaves and roots point to their slots.
    std::unordered_map<Tag, Slot> slots_;
    std::unordered_map<std::string, Tag> tags_;
    Tag lastTag_ = 0;
    std::unordered_map<unsigned, Root> roots_;

    std::vector<Node> nodes_;  ///< the first one is constantly true
    std::vector<NodeId> free_;
    std::map<Inputs, NodeId> conjunctions_;
    std::map<Pair, NodeId> pairs_;

    // Empty between the calls; kept for their storage.
    std::vector<NodeId> fresh_;             ///< nodes made by this add, held until it ends
    std::vector<NodeId> leafFlips_;         ///< of this change
    std::vector<std::vector<NodeId>> due_;  ///< nodes to look at in this change, by height
    std::size_t dueCount_ = 0;
    std::vector<unsigned> changed_;
};

}  // namespace KR
