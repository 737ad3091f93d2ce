#include <atomic>
#include <future>
#include <thread>

#include "platform/conditions/ConditionChecker.h"
#include "platform/conditions/ConditionParser.h"
#include "tests/support/Allocations.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using std::chrono::seconds;
using HitLists = std::vector<ConditionChecker::Hits>;

constexpr unsigned kSecond = 1000000;

struct CheckerTest : ::testing::Test {
    VirtualPlatform platform;
    KRMemory& memory = platform.memory();
    HitLists lists;
    ConditionChecker checker;

    CheckerTest()
    {
        checker.connect(platform.broker);
        checker.setCallback([this](const ConditionChecker::Hits& hits) { lists.push_back(hits); });
    }
    unsigned add(const std::string& text,
                 ConditionChecker::ReportMode mode = ConditionChecker::ReportBecomesTrue)
    {
        return checker.addCondition(text, mode);
    }
    void raise(const std::string& key, std::initializer_list<KRValue> values)
    {
        for (const KRValue& value : values)
            memory.raiseEvent(key, value);
    }
    void start(unsigned period = 0)
    {
        checker.run(period, false);
        platform.runPending();
    }
    /// The hit lists since the last call, after what is due has happened.
    HitLists taken()
    {
        platform.runPending();
        return std::exchange(lists, {});
    }
};

ConditionChecker::Hits hits(std::initializer_list<unsigned> ids, bool truth = true)
{
    ConditionChecker::Hits result;
    for (const unsigned id : ids)
        result.emplace_back(id, truth);
    return result;
}

TEST_F(CheckerTest, EachModeReportsItsChangesInOneAscendingList)
{
    std::vector<std::pair<unsigned, KRValue>> own;
    for (const unsigned mode : {0, 1, 2, 3, 4})
        add("'Level' > 2", static_cast<ConditionChecker::ReportMode>(mode));
    const unsigned single = checker.addCondition(
        "'Level' > 2", ConditionChecker::ReportChange,
        [&](unsigned id, const KRValue& value) { own.emplace_back(id, value); });
    start();
    EXPECT_THAT(taken(), IsEmpty()) << "an unknown key";
    memory.raiseEvent("Level", 3);
    EXPECT_THAT(taken(), ElementsAre(hits({1, 3, 4})));
    memory.raiseEvent("Level", 4.5);
    memory.raiseEvent("Other", 1);
    EXPECT_THAT(taken(), IsEmpty()) << "nothing flips";
    memory.raiseEvent("Level", {});
    EXPECT_THAT(taken(), ElementsAre(hits({2, 3}, false)));
    EXPECT_THAT(own, ElementsAre(Pair(single, true), Pair(single, false)));
}

TEST_F(CheckerTest, EveryChangeIsAMomentOfItsOwnAndNoPulseIsLost)
{
    add("'A' && 'B'");
    add("'A' == 1");
    add("'B' == 1");
    start();
    HitLists expected;
    for (int i = 0; i < 100000; ++i) {
        const bool first = i % 3 == 0;
        memory.raiseEvent(first ? "A" : "B", 0);
        memory.raiseEvent(first ? "A" : "B", 1);
        expected.push_back(i == 0 ? hits({2}) : hits({1, first ? 2U : 3U}));
    }
    EXPECT_TRUE(taken() == expected);
}

TEST_F(CheckerTest, AConditionAddedWhileRunningNeverSeesAMomentThatWasNone)
{
    add("'Old'");
    start();
    raise("Old", {1, 0});
    memory.raiseEvent("New", 1);
    const unsigned both = add("'Old' && 'New'");
    const unsigned pulse = add("'New' == 2");
    const unsigned present = add("'New' == 1");
    EXPECT_TRUE(checker.removeCondition(add("'New'")));
    const unsigned alike = add("'New' == 1");
    raise("New", {2, 1});
    EXPECT_FALSE(checker.isConditionTrue(present)) << "evaluated on the checker's thread";
    EXPECT_THAT(taken(), ElementsAre(hits({1}), hits({present}), hits({alike}), hits({pulse}),
                                     hits({present, alike})));
    EXPECT_FALSE(checker.isConditionTrue(both));

    EXPECT_TRUE(checker.removeCondition(pulse));
    EXPECT_FALSE(checker.removeCondition(pulse)) << "again";
    EXPECT_FALSE(checker.hasCondition(pulse));
    memory.raiseEvent("New", 2);
    EXPECT_THAT(taken(), IsEmpty());
    EXPECT_EQ(add("'A'"), alike + 1) << "ids are not reused";
}

TEST_F(CheckerTest, ARestartReadsMemoryAnewAndReplaysNothing)
{
    memory.raiseEvent("A", 1);
    const unsigned a = add("'A'");
    add("'B' == 1");
    const unsigned never = add("'A' == 1", ConditionChecker::ReportNever);
    start();
    EXPECT_THAT(taken(), ElementsAre(hits({a})));
    memory.raiseEvent("B", 1);
    checker.stop();
    memory.raiseEvent("B", 0);
    memory.raiseEvent("A", 2);
    EXPECT_THAT(taken(), IsEmpty()) << "what was queued at the stop is dropped";
    EXPECT_TRUE(checker.isConditionTrue(never)) << "as of the stop";

    start();
    EXPECT_THAT(taken(), IsEmpty()) << "A was true before, and the pulse is over";
    EXPECT_FALSE(checker.isConditionTrue(never));
    checker.stop();
    checker.resetChecks();
    EXPECT_FALSE(checker.isConditionTrue(a));
    start();
    EXPECT_THAT(taken(), ElementsAre(hits({a})));
    const unsigned off = add("'A'", ConditionChecker::ReportBecomesFalse);
    taken();
    checker.resetChecks();
    EXPECT_FALSE(checker.isConditionTrue(off)) << "nothing is queued";
    EXPECT_THAT(taken(), ElementsAre(hits({a})));
    raise("A", {0, 3});
    checker.resetChecks();
    checker.run(kSecond, false);
    EXPECT_TRUE(checker.isConditionTrue(off)) << "not handled yet";
    EXPECT_THAT(taken(), ElementsAre(hits({off}, false), hits({a}), hits({a})))
        << "anew, after what was queued";
    EXPECT_FALSE(platform.clock->untilNextTask()) << "running it once more changes nothing";
}

TEST_F(CheckerTest, ARunOfOneMomentIsOverWithIt)
{
    memory.raiseEvent("A", 1);
    const unsigned a = add("'A'");
    const unsigned pulsed = add("'B' == 1");
    const unsigned both = add("'A' && 'B' == 2", ConditionChecker::ReportWhileTrue);
    checker.run(kSecond, true);
    memory.raiseEvent("B", 1);
    EXPECT_THAT(taken(), ElementsAre(hits({a})));
    memory.raiseEvent("A", 0);
    platform.advance(seconds(3));
    EXPECT_THAT(taken(), IsEmpty());
    EXPECT_FALSE(checker.isConditionTrue(pulsed));

    // The first moment has not had its turn when the next one comes.
    checker.run(0, true);
    raise("B", {1, 2});
    checker.resetChecks();
    EXPECT_FALSE(checker.isConditionTrue(pulsed));
    memory.raiseEvent("A", 1);
    checker.run(0, true);
    raise("B", {1, 2});
    EXPECT_EQ(checker.checkConditions(true), hits({both}));
    EXPECT_THAT(lists, IsEmpty()) << "behind the run's, which come on the checker's thread";
    EXPECT_THAT(taken(), ElementsAre(hits({pulsed}), hits({a, both}), hits({both})))
        << "no pulse after a moment is one of it";
    checker.resetChecks();
    start();
    EXPECT_THAT(taken(), ElementsAre(hits({a, both}))) << "it was idle";
}

TEST_F(CheckerTest, WhatIsTrueIsReportedAgainAtEveryPeriod)
{
    add("'A'", ConditionChecker::ReportWhileTrue);
    add("'A'");
    for (int i = 0; i < 101; ++i)
        add(i == 0 ? "'B'" : "'C'", ConditionChecker::ReportWhileTrue);
    const unsigned last = add("'B'", ConditionChecker::ReportWhileTrue);
    start(6 * kSecond);
    platform.advance(seconds(5));
    memory.raiseEvent("A", 1);
    memory.raiseEvent("B", 1);
    EXPECT_THAT(taken(), ElementsAre(hits({1, 2}), hits({3, last})));
    platform.advance(seconds(13));
    EXPECT_THAT(taken(), testing::AllOf(testing::SizeIs(3), testing::Each(hits({1, 3, last}))));
    memory.raiseEvent("A", 0);
    platform.advance(seconds(6));
    EXPECT_THAT(taken(), ElementsAre(hits({3, last})));
    checker.stop();
    EXPECT_FALSE(platform.clock->untilNextTask()) << "no timer stays behind";
}

TEST_F(CheckerTest, ACheckIsUpToDateWithMemory)
{
    unsigned own = 0;
    add("'A'", ConditionChecker::ReportWhileTrue);
    checker.addCondition("'A'", ConditionChecker::ReportBecomesTrue,
                         [&](unsigned id, const KRValue&) { own = id; });
    add("'B'");
    add("'A'", ConditionChecker::ReportBecomesFalse);
    memory.raiseEvent("A", 1);
    memory.raiseEvent("B", 1);
    EXPECT_EQ(checker.checkConditions(false), hits({1, 2, 3})) << "idle";
    EXPECT_EQ(checker.checkConditions(true), hits({1}));
    EXPECT_THAT(std::exchange(lists, {}), ElementsAre(hits({1}))) << "on this thread";
    EXPECT_EQ(own, 0U);
    memory.raiseEvent("A", 0);
    EXPECT_EQ(checker.checkConditions(false), (ConditionChecker::Hits{{4, false}}));
    memory.raiseEvent("A", 1);
    EXPECT_EQ(checker.checkConditions(true), hits({1, 2}));
    EXPECT_THAT(std::exchange(lists, {}), ElementsAre(hits({1})));
    EXPECT_EQ(own, 2U);
}

TEST_F(CheckerTest, EveryHitListComesInTheOrderOfItsMomentWithTheValuesOfThen)
{
    const unsigned on = add("'A' > 0", ConditionChecker::ReportWhileTrue);
    const unsigned two = add("'A' == 2");
    std::function<void()> inside = [] {};
    std::vector<std::pair<ConditionChecker::Hits, int>> told;
    const auto note = [&](const ConditionChecker::Hits& list) {
        const auto valueOf = [](const PersistentValues& v) { return v.at("A").second.toInt32(); };
        std::exchange(inside, [] {})();
        told.emplace_back(list, valueOf(checker.getPersistentValues()));
        EXPECT_EQ(told.back().second, valueOf(*checker.sharePersistentValues()));
    };
    const auto checkAt = [&](int value) {
        memory.raiseEvent("A", value);
        checker.checkConditions(true);
    };
    checker.setCallback(note);
    start();
    raise("A", {1, 0, 2, 5, 6});
    EXPECT_EQ(checker.checkConditions(true), hits({on}));
    EXPECT_FALSE(checker.isConditionTrue(two));
    checkAt(2);
    memory.raiseEvent("A", 7);
    EXPECT_THAT(told, IsEmpty()) << "all on the checker's thread";
    EXPECT_EQ(checker.getPersistentValues().at("A").second, KRValue(2)) << "outside of callbacks";
    inside = [&] { checkAt(8); };
    platform.runPending();
    EXPECT_THAT(std::exchange(told, {}),
                ElementsAre(Pair(hits({on}), 1), Pair(hits({on, two}), 2), Pair(hits({on}), 6),
                            Pair(hits({two}), 2), Pair(hits({on}), 2), Pair(hits({on}), 8)));

    // A stop, another run and its hits before the callback has looked.
    inside = [&] {
        checker.stop();
        memory.raiseEvent("A", 2);
        checker.run(0, false);
    };
    raise("A", {0, 3});
    platform.runPending();
    checker.stop();
    EXPECT_THAT(std::exchange(told, {}), ElementsAre(Pair(hits({on}), 3), Pair(hits({two}), 2)));

    // Idle, the thread of a check delivers, also what others find meanwhile.
    std::promise<void> checked;
    std::thread other;
    inside = [&] {
        other = std::thread([&] {
            checkAt(1);
            checked.set_value();
        });
        EXPECT_EQ(checked.get_future().wait_for(seconds(60)), std::future_status::ready)
            << "waits for the one who delivers";
        checkAt(2);
        checker.run(0, false);
        memory.raiseEvent("A", 9);
        platform.runPending();
        EXPECT_THAT(told, IsEmpty()) << "one at a time";
    };
    checkAt(4);
    other.join();
    EXPECT_THAT(told, ElementsAre(Pair(hits({on}), 4)));
    platform.runPending();
    EXPECT_THAT(told,
                ElementsAre(Pair(hits({on}), 4), Pair(hits({on}), 1), Pair(hits({on, two}), 2)));
}

TEST_F(CheckerTest, PersistentValuesAreOfTheLatestHandledChange)
{
    const auto stamp = static_cast<std::uint64_t>(platform.clock->now().time_since_epoch() /
                                                  std::chrono::microseconds(1));
    memory.raiseEvent("A", 1);
    add("'A' || 'Never' == 1 || true");
    const auto present = Pair("A", Pair(stamp, KRValue(1)));
    const auto unknown = Pair("Never", Pair(0U, KRValue()));
    start();
    platform.advance(seconds(1));
    memory.raiseEvent("A", 2);
    EXPECT_THAT(checker.getPersistentValues(), ElementsAre(present, unknown)) << "still queued";
    platform.advance(seconds(1));
    memory.raiseEvent("A", 2);
    platform.runPending();
    EXPECT_THAT(checker.getPersistentValues(),
                ElementsAre(Pair("A", Pair(stamp + 2 * kSecond, KRValue(2))), unknown));
}

TEST_F(CheckerTest, AChangeThatFiresNothingAllocatesNothing)
{
    for (const std::string key : {"A", "B"})
        add("'" + key + "'==\"Low\" && !'Asleep'");
    memory.raiseEvent("Asleep", true);
    start();
    checker.setCallback([](const ConditionChecker::Hits&) { ADD_FAILURE() << "something fired"; });
    const auto change = [&](int rounds) {
        for (int i = 0; i < rounds; ++i) {
            for (const std::string key : {"A", "B"})
                memory.raiseEvent(key, KRValue(i % 2 ? "Low" : "High"));
            if (i % 2)
                platform.runPending();
        }
    };
    change(2 * KRMemory::kMaxHistory);
    const std::size_t before = allocationsOfThisThread();
    change(1000);
    EXPECT_EQ(allocationsOfThisThread(), before);
}

TEST_F(CheckerTest, ACallbackMayUseTheCheckerAndMayThrow)
{
    unsigned added = 0;
    checker.addCondition("'A'", ConditionChecker::ReportChange, [&](unsigned, const KRValue& on) {
        if (!on.isTrue())
            return checker.stop();
        added = add("'A' == 1");
        checker.removeCondition(2);
        checker.checkConditions(false);
        throw std::runtime_error("no patience");
    });
    const auto note = [&](unsigned id, const KRValue&) { lists.push_back(hits({id})); };
    checker.addCondition("'A'", ConditionChecker::ReportChange, note);
    start();
    memory.raiseEvent("A", 1);
    const HitLists first = taken();
    EXPECT_THAT(first, ElementsAre(hits({2}), hits({added}))) << "hit 2 was on its way";
    EXPECT_THAT(platform.log.lines(vo::LogLevel::error),
                ElementsAre("ConditionChecker/callback of condition 1: no patience"));
    checker.addCondition("!'A'", ConditionChecker::ReportBecomesTrue, note);
    raise("A", {0, 1});
    EXPECT_THAT(taken(), IsEmpty()) << "the callback that stopped was the last";
    EXPECT_FALSE(checker.isConditionTrue(added));

    EXPECT_THROW(checker.connect(platform.broker), std::logic_error) << "again";
    checker.exit();
    EXPECT_FALSE(checker.hasCondition(1));
    add("true");
    start();
    EXPECT_THAT(taken(), IsEmpty()) << "the callback went, too";
}

TEST_F(CheckerTest, AStopWaitsForTheCallbackThatRuns)
{
    std::atomic<bool> ended{false};
    std::future<bool> endedBeforeStop;
    add("true");
    checker.setCallback([&](const ConditionChecker::Hits&) {
        endedBeforeStop = std::async(std::launch::async, [&] {
            checker.stop();
            return ended.load();
        });
        // The stop takes the period's timer away before it waits.
        for (int i = 0; i < 10'000'000 && platform.clock->untilNextTask(); ++i)
            std::this_thread::yield();
        ended = true;
    });
    start(kSecond);
    EXPECT_TRUE(endedBeforeStop.get());
}

}  // namespace
}  // namespace KR
