#pragma once

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <tsl/robin_set.h>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "platform/conditions/ConditionParser.h"
#include "platform/conditions/IdTable.h"
#include "platform/conditions/SmallList.h"
#include "platform/conditions/ThresholdIndex.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/Cache.h"
#include "platform/vo/Clock.h"
#include "platform/vo/TextIndex.h"

namespace KR {

/// Conditions as one graph, kept up to date with the values of their keys.
///
/// Conditions of the same text are compiled once, to one root. A leaf is the truth of a key or one
/// comparison of it. Every other node is a conjunction of nodes, each taken as it is or negated at
/// the edge; a disjunction is a negated conjunction of negations, and a comparison of truths is
/// spelt out with both. Sub-conditions with the same meaning are one node, held by reference counts
/// for as long as a condition needs it.
///
/// A conjunction counts its false inputs. A change of a key finds those of its leaves that flip: by
/// looking at each where they are few, by a ThresholdIndex where they are many. A flip moves the
/// counters of the nodes above it by one, and those whose truth has changed by then flip in their
/// turn, lowest first, so each node flips at most once a change. What does not flip costs nothing.
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

    /// Adds a condition under a new id, greater than those before. Returns the keys that no
    /// condition has read so far; their values are unknown until they are set. Throws
    /// ConditionSyntaxError, and adds nothing, for a text that does not parse.
    Watches add(unsigned id, const std::string& text);
    /// Removes a condition that was added. Returns the keys that nobody reads any more.
    Watches remove(unsigned id);

    /// The truth of a condition as of the latest change of a key.
    bool isTrue(unsigned id) const;

    /// Handles one change of a key; that of a tag which is gone is nothing. Returns the conditions
    /// whose truth it changed, in ascending id order, valid until the next call.
    const std::vector<unsigned>& set(Tag tag, const KRValue& value, vo::TimePoint time);

    /// Has what a change of this key touches first fetched meanwhile.
    void expect(Tag tag) const
    {
        if (const Slot* const slot = slots_.find(tag))
            vo::prefetch(slot, sizeof *slot);
    }

    /// Every key that a condition reads.
    Watches watches() const;
    /// Calls `f(key, snapshot)` for each of them, with the value and time that were set last.
    template <class F>
    void forEachKey(F f) const
    {
        slots_.forEach([&f](Tag, const Slot& slot) { f(*slot.key, slot.now); });
    }
    /// The key of a tag and what was set last; nulls for a tag that is gone.
    std::pair<const std::string*, const KRMemory::Snapshot*> keyOf(Tag tag) const
    {
        const Slot* const slot = slots_.find(tag);
        return slot ? std::pair(slot->key.get(), &slot->now) : std::pair(nullptr, nullptr);
    }

    /// Nodes that exist, the constant aside.
    std::size_t size() const { return nodes_.size() - free_.size() - 1; }

private:
    using NodeId = ThresholdIndex::NodeId;

    /// Comparisons of a key with literals that are looked at one by one; with more of them the key
    /// gets an index. It costs as much as looking at some ten.
    static constexpr std::size_t kMaxUnindexed = 8;

    /// A node as it is, or negated.
    class Edge {
    public:
        Edge() = default;
        Edge(NodeId id, bool isNegated) : code_(id << 1 | (isNegated ? 1U : 0U)) {}
        static Edge of(std::uint32_t code) { return {code >> 1, (code & 1) != 0}; }

        std::uint32_t code() const { return code_; }
        NodeId node() const { return code_ >> 1; }
        bool negated() const { return (code_ & 1) != 0; }
        Edge operator!() const { return {node(), !negated()}; }
        bool operator==(Edge other) const { return code_ == other.code_; }
        bool operator<(Edge other) const { return code_ < other.code_; }
        /// As of its code.
        friend std::size_t hash_value(Edge edge) { return edge.code_; }

    private:
        std::uint32_t code_ = 0;
    };
    using Inputs = std::vector<Edge>;

    /// What the truth of a node concerns: a conjunction above, or a condition that it is the root
    /// of.
    class Use {
    public:
        Use() = default;
        /// By a conjunction, which takes the node as it is or negated.
        static Use by(Edge conjunction) { return Use(conjunction.code() << 1); }
        static Use by(unsigned condition) { return Use(condition << 1 | 1U); }

        bool isCondition() const { return (code_ & 1) != 0; }
        unsigned condition() const { return code_ >> 1; }
        Edge conjunction() const { return Edge::of(code_ >> 1); }
        bool operator==(Use other) const { return code_ == other.code_; }

    private:
        explicit Use(std::uint32_t code) : code_(code) {}

        std::uint32_t code_ = 0;
    };

    struct Indexes {
        ThresholdIndex numbers;
        ThresholdIndex texts;
        /// The index that a value has a place in; null for one that no literal equals or orders.
        ThresholdIndex* of(const KRValue& value);
    };

    /// A comparison of a key with a literal.
    struct Literal {
        KRValue literal;
        NodeId node;
        NodeId above;  ///< that used the node first: likely to be looked at next
        Expression::Kind comparison;
        bool truth;
    };
    /// A key, and the leaves that read it. It takes two lines of the processor's cache.
    struct alignas(2 * vo::kCacheLine) Slot {
        KRMemory::Snapshot now = {};
        NodeId truth = 0;
        Tag tag = 0;
        boost::container::small_vector<Literal, 1> literals;  ///< while they are few
        std::unique_ptr<Indexes> indexes;                     ///< once there were many literals
        std::unique_ptr<SmallList<NodeId>> pairs;             ///< comparisons with other keys
        std::unique_ptr<const std::string> key;
        std::uint32_t readers = 0;  ///< roots
    };
    static_assert(sizeof(Slot) == 2 * vo::kCacheLine);
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
        SmallList<Edge> inputs;  ///< in ascending order
    };
    /// What a node means.
    using Meaning = std::variant<std::monostate, TruthLeaf, LiteralLeaf, PairLeaf, Conjunction>;

    /// What a change of a node touches. A leaf often lies beside the node that it was made for.
    struct alignas(vo::kCacheLine / 2) Node {
        bool truth = false;
        bool due = false;  ///< waits in due_
        std::uint16_t height = 0;
        std::uint32_t falseInputs = 0;  ///< of a conjunction
        std::uint32_t references = 1;
        SmallList<Use> uses;  ///< in the order in which they were added
    };
    static_assert(sizeof(Node) == vo::kCacheLine / 2);

    /// The conditions of one text.
    struct Root {
        std::string text;
        Edge edge;
        std::uint32_t conditions = 0;  ///< how many
        SmallList<Tag> tags;           ///< of its keys
    };

    struct KeyOf {
        const std::string& operator()(const Slot& slot) const { return *slot.key; }
        const std::string& operator()(const Root& root) const { return root.text; }
    };
    struct InputsHash {
        const std::vector<Meaning>* meanings;
        std::size_t operator()(const Inputs& inputs) const;
        std::size_t operator()(NodeId conjunction) const;
    };
    struct SameInputs {
        using is_transparent = void;
        const std::vector<Meaning>* meanings;
        bool operator()(NodeId a, NodeId b) const { return a == b; }
        bool operator()(NodeId conjunction, const Inputs& inputs) const;
        bool operator()(const Inputs& inputs, NodeId conjunction) const;
    };

    /// What one side of a comparison is.
    using Operand = std::variant<KRValue, Slot*, Edge>;

    // Building.
    Root& makeRoot(const std::string& text, Watches& added);
    void collectSlots(const Expression& expression, Root& root, Watches& added);
    Slot& slotOf(const std::string& key, Watches& added);
    Edge compile(const Expression& expression);
    Operand operandOf(const Expression& expression);
    Edge truthOf(const Operand& operand);
    Edge comparison(Expression::Kind kind, const Operand& left, const Operand& right);
    Edge literalComparison(Expression::Kind kind, Slot& slot, const KRValue& literal);
    NodeId findLiteral(Expression::Kind kind, const Slot& slot, const KRValue& literal) const;
    void addIndexes(Slot& slot);
    Edge pairComparison(Expression::Kind kind, Slot& left, Slot& right);
    static void addPair(Slot& slot, NodeId id);
    Edge choice(Edge selector, Edge yes, Edge no);
    Edge conjunction(Inputs inputs);
    Edge disjunction(Inputs inputs);
    static void noteUse(Slot& slot, NodeId leaf, NodeId above);
    NodeId makeNode(Meaning meaning, Node node);
    void releaseRoot(Root& root, Watches& removed);
    void release(NodeId id);
    void releaseInputs(NodeId id, const Conjunction& conjunction);
    void takeOutOfSlots(NodeId id, const Meaning& meaning);

    // Following.
    bool isTrue(Edge edge) const { return nodes_[edge.node()].truth != edge.negated(); }
    void flipIndexed(Slot& slot, const KRValue& after);
    void flipPairs(const Slot& slot);
    void flip(NodeId id);
    void settle();
    void sortChanged();

    IdTable<Slot> slots_;
    vo::TextIndex<Slot, KeyOf> keys_;
    Tag lastTag_ = 0;
    std::deque<Root> roots_;
    std::vector<Root*> freeRoots_;
    vo::TextIndex<Root, KeyOf> texts_;
    IdTable<Root*> rootOf_;  ///< by condition

    std::vector<Node> nodes_;        ///< the first one is constantly true
    std::vector<Meaning> meanings_;  ///< of the nodes
    std::vector<NodeId> free_;
    tsl::robin_set<NodeId, InputsHash, SameInputs, std::allocator<NodeId>, true> conjunctions_;
    std::map<Pair, NodeId> pairs_;

    // Empty between the calls; kept for their storage.
    std::vector<NodeId> fresh_;             ///< nodes made by this add, held until it ends
    std::vector<NodeId> leafFlips_;         ///< of this change, found by an index
    std::vector<std::vector<NodeId>> due_;  ///< nodes to look at in this change, by height
    std::size_t dueCount_ = 0;
    std::vector<unsigned> changed_;
    std::vector<std::uint64_t> marks_;  ///< a bit for each condition that changed
};

}  // namespace KR
