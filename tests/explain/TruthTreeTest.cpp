#include "explain/ConditionWatch.h"
#include "explain/TruthTree.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

using std::chrono::seconds;

vo::TimePoint at(int second)
{
    return vo::TimePoint(seconds(second));
}

/// The tree of a condition that is watched.
TruthNode treeOf(const std::string& condition, ConditionWatch& watch)
{
    TreeFacts facts;
    facts.since = [&](const std::string& part) { return watch.since(part); };
    facts.key = [](const std::string&, bool) { return KeyFacts(); };
    return makeTruthTree(condition, watch.inspect(), facts);
}

/// "text[child child]", each checked to stand where the tree says.
std::string shown(const TruthNode& node, const std::string& condition)
{
    EXPECT_EQ(node.text, condition.substr(node.from, node.to - node.from));
    std::string text = node.text;
    for (const TruthNode& child : node.children) {
        EXPECT_LE(node.from, child.from) << node.text;
        EXPECT_GE(node.to, child.to) << node.text;
        text += (&child == &node.children.front() ? "[" : " | ") + shown(child, condition);
    }
    return text + (node.children.empty() ? "" : "]");
}

TEST(TruthTree, PartsStandWhereTheyAreWritten)
{
    const std::pair<const char*, const char*> rows[] = {
        {"'A'", "'A'"},
        {" 1 < 'A' ", "1 < 'A'['A']"},
        {"('A' || 'B') && !('C' == \"x\" && 'A')",
         "('A' || 'B') && !('C' == \"x\" && 'A')['A' || 'B'['A' | 'B'] | !('C' == \"x\" && "
         "'A')['C' == \"x\" && 'A'['C' == \"x\"['C'] | 'A']]]"},
        {"!!'A'", "!!'A'[!'A'['A']]"},
        {"(('A')) for 250ms for 1 s", "(('A')) for 250ms for 1 s[(('A')) for 250ms['A']]"},
        {"2 <= count(('A' && 'B'), 1 min)",
         "2 <= count(('A' && 'B'), 1 min)[count(('A' && 'B'), 1 min)['A' && 'B'['A' | 'B']]]"},
        {"age('A') < 2 s || 3 s >= age('B')",
         "age('A') < 2 s || 3 s >= age('B')[age('A') < 2 s[age('A')] | 3 s >= age('B')[age('B')]]"},
        {"('A' for 2 s) within 10 s of ('B')",
         "('A' for 2 s) within 10 s of ('B')['A' for 2 s['A'] | 'B']"},
        {"('A' < 3) != ('B' < -3)", "('A' < 3) != ('B' < -3)['A' < 3['A'] | 'B' < -3['B']]"}};
    for (const auto& [condition, tree] : rows) {
        ConditionWatch watch(condition);
        watch.begin(at(1));
        EXPECT_EQ(shown(treeOf(condition, watch), condition), tree);
    }
}

TEST(ConditionWatch, KnowsSinceWhenEachPartIsSoAndWhatMadeTheWholeTrue)
{
    const std::string condition = "'A' > 1 && 'B' for 5 s";
    ConditionWatch watch(condition);
    watch.write("A", 2, at(1));
    watch.begin(at(2));
    watch.write("B", 1, at(3));
    watch.write("B", 2, at(4));
    watch.write("C", 2, at(4));
    TruthNode tree = treeOf(condition, watch);
    EXPECT_EQ(tree.children[0].since, at(2)) << "from the beginning";
    EXPECT_EQ(tree.children[1].due, at(8));
    watch.write("A", 3, at(9));
    EXPECT_TRUE(watch.isTrue()) << "what was due before the write";
    EXPECT_EQ(watch.rise()->at, at(8));
    EXPECT_EQ(watch.rise()->key, "");
    watch.write("A", 0, at(10));
    EXPECT_EQ(watch.fall()->key, "A");
    EXPECT_EQ(watch.fall()->before, KRValue(3));
    watch.write("A", 5, at(11));
    watch.end(at(12));
    watch.write("B", 0, at(13));
    watch.begin(at(14));
    watch.write("B", 1, at(15));
    watch.advance(at(20));
    EXPECT_EQ(watch.rises(), 3U);
    EXPECT_EQ(watch.rise()->at, at(20)) << "what was held begins anew";
}

TEST(ConditionWatch, GoesOnWithWhatWasHeldAndCountedBeforeARestart)
{
    ConditionWatch watch("'A' for 1 min || count('B', 1 min) >= 3");
    watch.resume({{"('A' for 1 min)", {true, {seconds(10)}}},
                  {"count('B', 1 min) >= 3", {false, {seconds(60), seconds(70)}}}},
                 at(110));
    watch.write("A", 1, at(80));
    watch.begin(at(80));
    EXPECT_TRUE(watch.isTrue()) << "held for 70 s";
    watch.write("A", 0, at(100));
    EXPECT_FALSE(watch.isTrue());
    watch.write("B", 1, at(101));
    EXPECT_TRUE(watch.isTrue()) << "the third within a minute";
    watch.advance(at(120));
    EXPECT_FALSE(watch.isTrue());
}

}  // namespace
}  // namespace KR
