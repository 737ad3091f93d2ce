#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/conditions/SmallList.h"
#include "platform/vo/Cache.h"

namespace KR {

/// Names a node of a ConditionNetwork. Those of nodes that are gone are given again.
using NodeId = std::uint32_t;

/// The node that is constantly true. Where none can stand for a node, it is what says so.
constexpr NodeId kConstant = 0;

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

/// What the truth of a node goes to: a conjunction, or a condition that it is the root of.
class Fanout {
public:
    Fanout() = default;
    /// To a conjunction, which takes the node as it is or negated.
    static Fanout to(Edge conjunction) { return Fanout(conjunction.code() << 1); }
    static Fanout to(unsigned condition) { return Fanout(condition << 1 | 1U); }

    bool isCondition() const { return (code_ & 1) != 0; }
    unsigned condition() const { return code_ >> 1; }
    Edge conjunction() const { return Edge::of(code_ >> 1); }
    bool operator==(Fanout other) const { return code_ == other.code_; }

private:
    explicit Fanout(std::uint32_t code) : code_(code) {}

    std::uint32_t code_ = 0;
};

/// What a change of a node touches.
struct alignas(vo::kCacheLine / 2) NetworkNode {
    NetworkNode() : timed(false), level(0) {}

    bool truth = false;
    bool pending = false;           ///< waits for its turn in this change
    bool timed : 1;                 ///< is a Timed, whose truth is not that of its fanins alone
    std::uint16_t level : 15;       ///< 0 of a leaf; otherwise above that of every fanin
    std::uint32_t falseFanins = 0;  ///< of a conjunction
    SmallList<Fanout> fanouts;      ///< in the order in which they were added
};
static_assert(sizeof(NetworkNode) == vo::kCacheLine / 2);

}  // namespace KR
