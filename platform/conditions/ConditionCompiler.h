#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <tsl/robin_set.h>
#include <tuple>
#include <unordered_set>
#include <variant>
#include <vector>

#include "platform/conditions/ConditionNetwork.h"
#include "platform/conditions/ConditionParser.h"
#include "platform/conditions/ConditionPart.h"
#include "platform/conditions/IdTable.h"
#include "platform/conditions/KeySlot.h"
#include "platform/conditions/NetworkNode.h"
#include "platform/conditions/SmallList.h"
#include "platform/kr/KRValue.h"
#include "platform/kr/PrefetchingWatch.h"
#include "platform/vo/TextIndex.h"

namespace KR {

/// Turns the texts of conditions into nodes of a ConditionNetwork, and takes back those that no
/// condition needs any more.
///
/// What means the same is one node. Conditions of the same text are compiled once, to one root.
/// Within and across texts there is one leaf a comparison, however it is spelt, and one conjunction
/// a set of fanins (structural hashing). Negation is free: it lies in the edge. A disjunction is a
/// negated conjunction of negations; a comparison of truths is spelt out with both; what is
/// constant, doubled or contradicts itself is simplified away.
///
/// Not synchronised: a part of ConditionChecker.
class ConditionCompiler {
public:
    /// The network has no other compiler, and outlives it.
    explicit ConditionCompiler(ConditionNetwork& network);
    ConditionCompiler(const ConditionCompiler&) = delete;
    ConditionCompiler& operator=(const ConditionCompiler&) = delete;

    /// Adds a condition under a new id, greater than those before. Returns the keys that no
    /// condition has read so far; their values are unknown until they are set. Throws
    /// ConditionSyntaxError, and adds nothing, for a text that does not parse.
    std::vector<PrefetchingWatch> add(unsigned id, const std::string& text);
    /// Those of the keys of the last add() that conditions have read before, none of which spoke of
    /// time: from now on their changes are to have their uptime.
    const std::vector<PrefetchingWatch>& newlyStamped() const { return newlyStamped_; }
    /// Removes a condition that was added. Returns the keys that nobody reads any more.
    std::vector<PrefetchingWatch> remove(unsigned id);

    /// From here on conditions that speak of time and are removed leave what they are made of to
    /// those that are added, with all that it remembers. Calls nest.
    void keepTimed() { ++keeping_; }
    /// Ends that. Returns the keys that nobody reads any more.
    std::vector<PrefetchingWatch> releaseTimed();

    /// When an inspection is: uptimes are told by the wall clock.
    struct InspectionTime {
        vo::TimePoint now;
        vo::Duration uptime;
    };
    /// A condition that was added, part by part, as of the latest change of a key.
    ConditionPart inspect(unsigned id, const InspectionTime& time);

    /// The edge whose truth is that of a condition that was added.
    Edge rootOf(unsigned id) const { return (*roots_.find(id))->edge; }

private:
    using Watches = std::vector<PrefetchingWatch>;
    using Fanins = std::vector<Edge>;

    /// The conditions of one text.
    struct Root {
        std::string text;
        Edge edge;
        std::uint32_t conditions = 0;  ///< how many
        bool timed = false;            ///< speaks of time
        SmallList<KeyTag> tags;        ///< of its keys
    };
    struct TextOf {
        const std::string& operator()(const Root& root) const { return root.text; }
    };

    struct FaninsHash {
        const ConditionNetwork* network;
        std::size_t operator()(const Fanins& fanins) const;
        std::size_t operator()(NodeId conjunction) const;
    };
    struct SameFanins {
        using is_transparent = void;
        const ConditionNetwork* network;
        bool operator()(NodeId a, NodeId b) const { return a == b; }
        bool operator()(NodeId conjunction, const Fanins& fanins) const;
        bool operator()(const Fanins& fanins, NodeId conjunction) const;
    };
    using Pair = std::tuple<KeyTag, Expression::Kind, KeyTag>;
    using TimedKey = std::tuple<TimedMeaning::Kind, vo::Duration, Edge, Edge, unsigned, KeyTag>;

    /// What one side of a comparison is.
    using Operand = std::variant<KRValue, KeySlot*, Edge>;

    Root& makeRoot(const std::string& text, Watches& added);
    void collectKeys(const Expression& expression, Root& root, Watches& added);
    void stampKeys(const Root& root, Watches& added);
    KeySlot& readKey(const std::string& key, Watches& added);
    void releaseRoot(Root& root, Watches& removed);
    void removeIfUnused(NodeId id);
    void removeUnusedMade();
    ConditionPart inspect(const Expression& expression, const InspectionTime& time);
    void inspectKey(ConditionPart& part, const std::string& key, const InspectionTime& time) const;
    void inspectTime(ConditionPart& part, NodeId id, const InspectionTime& time) const;

    Edge compile(const Expression& expression);
    Operand operandOf(const Expression& expression);
    Edge truthOf(const Operand& operand);
    Edge comparison(Expression::Kind kind, const Operand& left, const Operand& right);
    Edge literalComparison(Expression::Kind kind, KeySlot& slot, const KRValue& literal);
    Edge keyComparison(Expression::Kind kind, KeySlot& left, KeySlot& right);
    Edge countComparison(Expression::Kind kind, const Expression& count, std::int64_t times);
    Edge ageComparison(Expression::Kind kind, const std::string& key, vo::Duration duration);
    template <class Reached, class Limit>
    Edge reachedComparison(Expression::Kind kind, Edge isKnown, const Reached& isReached,
                           Limit limit, Limit step);
    Edge timed(const TimedMeaning& meaning, std::string text);
    static TimedKey keyOf(const TimedMeaning& meaning);
    Edge choice(Edge selector, Edge yes, Edge no);
    Edge conjunction(Fanins fanins);
    Edge disjunction(Fanins fanins);
    NodeId make(NodeDefinition definition);

    ConditionNetwork& network_;
    std::deque<Root> rootStore_;
    std::vector<Root*> freeRoots_;
    vo::TextIndex<Root, TextOf> texts_;
    IdTable<Root*> roots_;  ///< by condition

    // Leaves that are not found by their key alone, parts that speak of time, and conjunctions, by
    // what they mean.
    std::map<Pair, NodeId> pairs_;
    std::map<TimedKey, NodeId> timed_;
    tsl::robin_set<NodeId, FaninsHash, SameFanins, std::allocator<NodeId>, true> conjunctions_;

    std::vector<NodeId> made_;  ///< by this add; empty between the calls
    unsigned adding_ = 0;       ///< the condition of the latest add
    Watches newlyStamped_;
    int keeping_ = 0;                    ///< calls of keepTimed() that have not ended
    std::unordered_set<NodeId> pinned_;  ///< nodes of those that are kept
    std::vector<Root*> kept_;  ///< roots that had no condition any more when they were put here
};

}  // namespace KR
