#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <sstream>

#include "platform/conditions/Comparison.h"
#include "platform/conditions/ConditionCompiler.h"
#include "platform/conditions/ConditionNetwork.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

using Kind = Expression::Kind;

TEST(Comparison, OrdersValuesAsConditionsDo)
{
    const std::int64_t big = 9007199254740993;  // 2^53 + 1, which no double holds
    const double limit = 9223372036854775808.0;
    const std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
    const KRValue array(KRValue::Array{1, "x"});
    const struct {
        const char* what;
        KRValue a;
        KRValue b;
        Order order;
    } rows[] = {
        {"int and float of one value", 2, 2.0, Order::equal},
        {"an int and the double nearest to it", big, 9007199254740992.0, Order::greater},
        {"the greatest int and 2^63", greatest, limit, Order::less},
        {"the least int and -2^63", -greatest - 1, -limit, Order::equal},
        {"a fraction below an int", -2, -2.5, Order::greater},
        {"infinity", greatest, INFINITY, Order::less},
        {"a float between two ints that no double holds", big, 9007199254740994.0, Order::less},
        {"NaN and itself", NAN, NAN, Order::none},
        {"a bool and an int", true, 1, Order::equal},
        {"texts by byte, unsigned", "z", "ü", Order::less},
        {"a text and its beginning", "ab", "a", Order::greater},
        {"a text and a number", "1", 1, Order::none},
        {"unknown and false", {}, false, Order::none},
        {"equal arrays, elements as values", KRValue::Array{1.0, "x"}, array, Order::same},
        {"arrays of different length", KRValue::Array{1}, array, Order::none},
        {"binaries", KRValue::Binary{1}, KRValue::Binary{1}, Order::same},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(compare(row.a, row.b), row.order) << row.what;
        for (const Kind kind : {Kind::equal, Kind::less, Kind::lessEqual, Kind::greater})
            EXPECT_EQ(holds(mirrored(kind), compare(row.b, row.a)), holds(kind, row.order));
    }
    EXPECT_FALSE(holds(Kind::lessEqual, Order::same)) << "no order";
    EXPECT_TRUE(holds(Kind::notEqual, Order::none));
    EXPECT_FALSE(holds(Kind::greaterEqual, Order::none));
}

using Memory = std::map<std::string, KRValue>;

/// What a condition means, by walking its tree.
KRValue valueOf(const Expression& e, const Memory& memory)
{
    const auto operand = [&](int i) { return valueOf(e.operands[i], memory); };
    switch (e.kind) {
        case Kind::literal:
            return e.value;
        case Kind::key:
            return memory.at(e.key);
        case Kind::negation:
            return !operand(0).isTrue();
        case Kind::conjunction:
            return operand(0).isTrue() && operand(1).isTrue();  // the texts below have two
        case Kind::disjunction:
            return operand(0).isTrue() || operand(1).isTrue();
        default:
            return holds(e.kind, compare(operand(0), operand(1)));
    }
}

class RandomConditions {
public:
    std::string text(int depth)
    {
        if (depth == 0 || pick(5) == 0)
            return pick(3) == 0 ? literal() : key();
        const std::string left = "(" + text(depth - 1) + ")";
        if (pick(5) == 0)
            return "!" + left;
        static constexpr const char* kOperators[] = {
            "&&", "||", "&&", "||", "==", "!=", "<", "<=", ">", ">="};
        const std::string right = pick(2) == 0 ? literal() : text(depth - 1);
        return left + kOperators[pick(10)] + "(" + right + ")";
    }
    std::string key() { return "'" + std::string(1, static_cast<char>('A' + pick(4))) + "'"; }
    KRValue value()
    {
        static const KRValue kNoLiterals[] = {
            {}, NAN, 1.0, KRValue::Array{1}, KRValue::Array{1.0}, KRValue::Binary{1}};
        return pick(3) == 0 ? kNoLiterals[pick(std::size(kNoLiterals))]
                            : parseCondition(literal()).value;
    }
    std::size_t pick(std::size_t count) { return random_() % count; }

private:
    std::string literal()
    {
        std::istringstream literals(
            "true false 0 1 2 -1 1.5 9007199254740993 9007199254740992.0 \"\" \"a\" \"b\" \"ab\"");
        std::string word;
        for (std::size_t i = pick(13) + 1; i > 0; --i)
            literals >> word;
        return word;
    }
    std::mt19937 random_{20240611};
};

TEST(ConditionNetwork, AgreesWithAPlainEvaluatorAndLeavesNothingBehind)
{
    struct Condition {
        std::string text;
        Expression expression;
        bool truth;
    };
    RandomConditions random;
    Memory memory{{"A", {}}, {"B", {}}, {"C", {}}, {"D", {}}};
    ConditionNetwork network;
    ConditionCompiler compiler(network);
    std::map<unsigned, Condition> conditions;
    std::map<std::string, KeyTag> tags;

    for (unsigned step = 1; step <= 6000; ++step) {
        if (step % 10 == 0) {
            Condition added{random.text(3), {}, false};
            added.expression = parseCondition(added.text);
            for (const KRMemory::Watch& watch : compiler.add(step, added.text)) {
                tags[watch.key] = watch.tag;
                network.set(watch.tag, memory[watch.key], {});
            }
            added.truth = valueOf(added.expression, memory).isTrue();
            EXPECT_EQ(network.isTrue(compiler.rootOf(step)), added.truth) << added.text;
            conditions.emplace(step, std::move(added));
        }
        if (conditions.size() > 60) {
            const auto victim = std::next(
                conditions.begin(), static_cast<std::ptrdiff_t>(random.pick(conditions.size())));
            for (const KRMemory::Watch& watch : compiler.remove(victim->first))
                tags.erase(watch.key);
            conditions.erase(victim);
        }
        const std::string key(1, static_cast<char>('A' + random.pick(4)));
        memory[key] = random.value();
        std::vector<unsigned> expected;
        for (auto& [id, condition] : conditions) {
            const bool truth = valueOf(condition.expression, memory).isTrue();
            if (truth != condition.truth)
                expected.push_back(id);
            condition.truth = truth;
        }
        if (tags.count(key)) {
            ASSERT_EQ(network.set(tags[key], memory[key], {}), expected) << step;
        }
        for (const auto& [id, condition] : conditions)
            ASSERT_EQ(network.isTrue(compiler.rootOf(id)), condition.truth) << condition.text;
    }
    for (const auto& [id, condition] : conditions)
        compiler.remove(id);
    EXPECT_EQ(network.size(), 0U);
    EXPECT_THAT(network.watches(), IsEmpty());
}

TEST(ConditionNetwork, WhatMeansTheSameIsOneNode)
{
    ConditionNetwork network;
    ConditionCompiler compiler(network);
    unsigned id = 0;
    for (const char* same :
         {"'A' == 1 && 'B'", "'B' && 1.0 == 'A'", "!(!'B' || 'A' != true)",
          "('B' && 'A' == 1) == true", "('A' == 1 && 'B' && true || false) > 0"}) {
        compiler.add(++id, same);
        EXPECT_EQ(network.size(), 3U) << same;
    }
}

TEST(ConditionNetwork, ChangedConditionsAreAscendingHoweverManyAndHoweverFarApart)
{
    for (const unsigned count : {3U, 5U, 64U, 65U, 300U})
        for (const unsigned apart : {1U, 300U}) {
            SCOPED_TRACE(std::to_string(count) + " " + std::to_string(apart));
            ConditionNetwork network;
            ConditionCompiler compiler(network);
            KeyTag a = 0;
            unsigned next = 70;
            std::vector<unsigned> ids;
            const auto remove = [&](std::size_t i) {
                compiler.remove(ids[i]);
                ids.erase(ids.begin() + static_cast<std::ptrdiff_t>(i));
            };
            for (const int value : {1, 0, 1, 0}) {
                for (std::size_t i = ids.size() * 3 / 4; i > 0; --i)
                    remove(0);  // which leaves room in front, that is used again
                for (; ids.size() < count; next += apart) {
                    ids.push_back(next);
                    const std::string other =
                        ids.size() % 2 ? " && !'N" + std::to_string(next) + "'" : "";
                    for (const KRMemory::Watch& watch : compiler.add(next, "'A' == 1" + other))
                        a = watch.key == "A" ? watch.tag : a;
                }
                EXPECT_EQ(network.set(a, value, {}), ids);
            }
            for (int value = 1; ids.size() > 1; value = 1 - value) {
                for (std::size_t i = 0; i < ids.size(); ++i)
                    remove(i);
                EXPECT_EQ(network.set(a, value, {}), ids);
            }
        }
}

TEST(ConditionNetwork, TheDeepestConditionThatParsesIsHandled)
{
    std::string text = "'A'";
    for (std::size_t i = 0; i < kMaxConditionDepth; ++i)
        text.insert(0, "('B'||'C'&&'D'==").append("<2<2)");
    ConditionNetwork network;
    ConditionCompiler compiler(network);
    for (const KRMemory::Watch& watch : compiler.add(1, text))
        network.set(watch.tag, KRValue(watch.key == "C" || watch.key == "D"), {});
    EXPECT_TRUE(network.isTrue(compiler.rootOf(1)));
    compiler.remove(1);
    EXPECT_EQ(network.size(), 0U);
}

}  // namespace
}  // namespace KR
