#include <deque>
#include <thread>

#include "platform/conditions/ConditionChecker.h"
#include "platform/vo/Executor.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using namespace std::chrono_literals;
using HitLists = std::vector<ConditionChecker::Hits>;

struct TimedCheckerTest : ::testing::Test {
    VirtualPlatform platform;
    std::string told;  ///< hit lists: "2 5! |" with "!" behind what became false
    std::optional<ConditionChecker> checker;

    TimedCheckerTest() { makeChecker(); }
    void makeChecker()
    {
        checker.emplace();
        checker->connect(platform.broker);
        checker->setCallback([this](const ConditionChecker::Hits& hits) {
            for (const auto& [id, truth] : hits)
                told += std::to_string(id) + (truth.isTrue() ? " " : "! ");
            told += "|";
        });
    }
    unsigned add(const std::string& text,
                 ConditionChecker::ReportMode mode = ConditionChecker::ReportChange)
    {
        return checker->addCondition(text, mode);
    }
    void raise(const std::string& key, const KRValue& value)
    {
        platform.memory().raiseEvent(key, value);
    }
    /// The hit lists since the last call, once that time has passed.
    std::string after(vo::Duration time)
    {
        platform.advance(time);
        return std::exchange(told, {});
    }
    std::string start(unsigned period = 0)
    {
        checker->run(period, false);
        return after(0s);
    }
};

TEST_F(TimedCheckerTest, AtOneInstantWritesComeFirstThenAllThatIsDueThenThePeriodThenLaterWrites)
{
    add("'A' for 6 s");
    add("'A'", ConditionChecker::ReportWhileTrue);
    add("'B' for 6 s");
    add("'C'");
    add("('A' for 5 s) for 1 s");
    add("age('B') >= 6 s");
    start(6'000'000);
    raise("A", 1);
    raise("B", 1);
    EXPECT_EQ(after(5999ms), "2 |");
    // Posted when the others that are due then have long been.
    const auto writer = platform.clock->makeExecutor("writer", vo::Clock::Threading::shared);
    writer->post([this] { raise("C", 1); }, 1ms);
    EXPECT_EQ(after(1ms), "4 |1 3 5 6 |2 |");
    raise("A", 0);
    EXPECT_EQ(after(0s), "1! 5! |") << "a moment of its own, though at the same instant";
    writer->close();
}

TEST_F(TimedCheckerTest, ATimerExistsOnlyWhileItCouldMatter)
{
    const auto next = [this] { return platform.clock->untilNextTask(); };
    add("'A' == 1 for 10 s");
    add("count('A' == 1, 3 s) >= 2");
    const unsigned aged = add("age('B') > 1 h");
    start();
    EXPECT_EQ(next(), std::nullopt);
    raise("A", 1);
    EXPECT_EQ(after(4s), "");
    EXPECT_EQ(next(), 6s);
    raise("A", 0);
    after(0s);
    EXPECT_EQ(next(), std::nullopt);
    raise("A", 1);
    after(1s);
    raise("A", 1);
    EXPECT_EQ(after(9s), "1 |") << "an equal write breaks no hold and is counted nowhere";
    EXPECT_EQ(next(), std::nullopt);
    raise("B", 1);
    after(2s);
    EXPECT_EQ(next(), 1h + 1us - 2s);
    checker->removeCondition(aged);
    EXPECT_EQ(next(), std::nullopt);
    add("age('B') <= 3 s");
    EXPECT_EQ(after(0s), "4 |") << "it was written two seconds ago";
    EXPECT_EQ(next(), 1s + 1us);
    checker->stop();
    EXPECT_EQ(next(), std::nullopt);
}

TEST_F(TimedCheckerTest, WhileMonitoringIsStoppedNothingIsCountedAndAHoldBeginsAnew)
{
    raise("A", 1);
    add("'A' == 1 for 2 s");
    add("count('A' == 1, 1 min) >= 2");
    add("('A' == 1) within 1 s of ('A' != 2)");
    EXPECT_EQ(start(), "") << "what is true already has not become true";
    EXPECT_EQ(after(2s), "1 |");
    raise("A", 0);
    raise("A", 1);
    EXPECT_EQ(after(0s), "1! |");
    platform.advance(1s);
    checker->resetChecks();
    EXPECT_EQ(after(1s), "1 |") << "what was reported is forgotten, and no hold";
    checker->stop();
    raise("A", 0);
    raise("A", 1);
    EXPECT_EQ(start(), "1! |");
    EXPECT_EQ(after(1999ms), "");
    raise("A", 0);
    raise("A", 1);
    EXPECT_EQ(after(0s), "2 |") << "one before, one after";
    checker->stop();
    platform.advance(1min);
    EXPECT_THAT(checker->checkConditions(false), ElementsAre(Pair(2, false)));
}

TEST_F(TimedCheckerTest, AnEqualPartKeepsItsHistoryWhenConditionsAreReplaced)
{
    const unsigned old = add("'A' == 1 for 10 s");
    const unsigned other = add("'B' && count('A' == 1, 1 h) >= 2");
    start();
    raise("A", 1);
    platform.advance(6s);
    {
        const ConditionChecker::Replacement outer(*checker);
        const ConditionChecker::Replacement replacement(*checker);
        checker->removeCondition(old);
        checker->removeCondition(other);
        raise("A", 0);
        raise("A", 1);
        after(1s);
        add("('A' == 1 for 10 s) && 'C' != 1");
        add("count(1 == 'A', 60 min) >= 2");
    }
    EXPECT_EQ(after(0s), "4 |") << "what happened meanwhile is counted, too";
    EXPECT_EQ(after(8999ms), "");
    EXPECT_EQ(after(1ms), "3 |");
    checker->removeCondition(3);
    checker->removeCondition(4);
    platform.advance(1s);
    add("'A' == 1 for 10 s");
    EXPECT_EQ(after(9999ms), "") << "without a replacement it begins anew";
    EXPECT_EQ(after(1ms), "5 |");
    EXPECT_EQ(platform.clock->untilNextTask(), std::nullopt);
}

TEST_F(TimedCheckerTest, AnotherCheckerGoesOnWithWhatThisOneRemembers)
{
    add("'A' for 1 min");
    add("count('A', 1 h) >= 3");
    add("count('B', 1 h) >= 2");
    add("'C' for 1 s");
    start();
    raise("A", 1);
    raise("A", 0);
    raise("A", 1);
    raise("B", 1);
    raise("B", 0);
    raise("C", 1);
    platform.advance(20s);
    const ConditionChecker::Histories histories = checker->histories();
    EXPECT_EQ(histories.size(), 4U);
    platform.memory().raiseEvent("A", 0);
    platform.memory().raiseEvent("C", 0);
    platform.advance(5s);

    makeChecker();
    for (const char* text :
         {"'A' for 1 min", "count('A', 1 h) >= 3", "count('B', 1 h) >= 2", "'C' for 1 s"})
        add(text);
    checker->resumeHistories(histories, 60s);
    start();
    raise("A", 1);
    EXPECT_EQ(after(0s), "") << "it was true then, and so has not become true now";
    raise("A", 0);
    raise("A", 1);
    EXPECT_EQ(after(0s), "2 |");
    raise("B", 1);
    EXPECT_EQ(after(0s), "3 |") << "it was false, and now became true";
    EXPECT_EQ(after(1min - 1ms), "") << "broken since, the hold begins anew";
    EXPECT_EQ(after(1ms + 1us), "1 |");
    raise("C", 1);
    EXPECT_EQ(after(999ms), "") << "too late to go on with";

    makeChecker();
    add("'A' for 1 min");
    checker->resumeHistories(histories, 60s);
    checker->checkConditions(false);
    EXPECT_EQ(start(), "1 |") << "long fulfilled, and still true";
    EXPECT_EQ(checker->histories().size(), 4U) << "the others wait";
    checker->stop();
    EXPECT_EQ(checker->histories().size(), 3U) << "no hold goes on while monitoring is stopped";
}

TEST_F(TimedCheckerTest, WhatIsKeptWhileConditionsAreReplacedStaysWhole)
{
    raise("B", 1);
    const std::string held = "'A' for 10 s";
    // The same as 'B', but for its text.
    const std::string simplified = "count('A', 1 min) >= 0 && 'B'";
    std::vector<unsigned> old{add(held), add(simplified), add("'B'")};
    EXPECT_EQ(start(), "2 3 |");
    raise("A", 1);
    platform.advance(6s);
    {
        const ConditionChecker::Replacement replacement(*checker);
        for (const unsigned id : old)
            checker->removeCondition(id);
        add("((" + held + ") && 'B') && false");
        EXPECT_FALSE(checker->inspect(4)->isTrue());
        add("'C'");
        add(simplified);
        add("'B'");
        add("1 == 1 && 'A' for 10 s");
    }
    EXPECT_EQ(after(4s), "6 |7 |8 |");
    raise("B", 0);
    raise("C", 1);
    EXPECT_EQ(after(0s), "6! 7! |5 |");
}

TEST_F(TimedCheckerTest, ARuleThatIsAddedCountsNothingFromBeforeThat)
{
    add("'A'");
    add("'B' for 4 s");
    start();
    raise("A", 1);
    add("count('A', 1 min) >= 1");
    add("'A' for 3 s");
    EXPECT_EQ(after(0s), "1 |");
    raise("A", 0);
    raise("A", 1);
    EXPECT_EQ(after(0s), "1! |1 3 |");
    raise("B", 1);
    platform.advance(4s);
    told.clear();
    // Written before the rule came that needs to know when, handled after.
    raise("C", 1);
    add("'C'");
    raise("C", 0);
    raise("C", 1);
    raise("B", 0);
    add("age('C') < 2 s");
    EXPECT_EQ(after(0s), "5 |5! |5 |2! |6 |");
    EXPECT_EQ(after(1999ms), "");
    EXPECT_EQ(after(1ms), "6! |");
}

/// "text = value" of a part and below it those of its parts; in the order in which they stand.
std::string inspected(const ConditionPart& part, const std::string& indent = "")
{
    const auto instantText = [](vo::TimePoint time) {
        return std::to_string((time - vo::TimePoint(24h * 20000)) / 1s);
    };
    std::string text = indent + part.text + " = " + part.value.toDisplayString();
    for (const vo::TimePoint instant : part.instants)
        text += " since " + instantText(instant);
    if (part.written)
        text += " written " + instantText(*part.written);
    if (part.due)
        text += " until " + instantText(*part.due);
    text += "\n";
    for (const ConditionPart& inner : part.parts)
        text += inspected(inner, indent + "  ");
    return text;
}

TEST_F(TimedCheckerTest, APartTellsItsTruthAndItsReasons)
{
    const unsigned id = add("!('A' == 2) && ('A' for 10 s || 'B' < \"x\") || false");
    const unsigned counted = add("count('A' == 1, 1 min) == 1 && age('A') < 9 s");
    EXPECT_FALSE(checker->inspect(7));
    start();
    platform.advance(2s);
    raise("A", 1);
    platform.advance(3s);
    platform.clock->jumpWallClock(100s);
    EXPECT_EQ(inspected(*checker->inspect(id)),
              R"(((!('A' == 2) && (('A' for 10 s) || ('B' < "x"))) || false) = false
  (!('A' == 2) && (('A' for 10 s) || ('B' < "x"))) = false
    !('A' == 2) = true
      ('A' == 2) = false
        'A' = 1 written 2
        2 = 2
    (('A' for 10 s) || ('B' < "x")) = false
      ('A' for 10 s) = false since 102 until 112
        'A' = 1 written 2
      ('B' < "x") = false
        'B' = none
        "x" = "x"
  false = false
)");
    EXPECT_EQ(inspected(*checker->inspect(counted)),
              R"(((count(('A' == 1), 1 min) == 1) && (age('A') < 9 s)) = true
  (count(('A' == 1), 1 min) == 1) = true since 102 until 162
    count(('A' == 1), 1 min) = none
      ('A' == 1) = true
        'A' = 1 written 2
        1 = 1
    1 = 1
  (age('A') < 9 s) = true until 111
    age('A') = 3.0 written 2
    9 s = none
)");
}

TEST(ConditionTime, ManyHoldsEndTogetherInOneMomentAndOneTask)
{
    constexpr std::size_t kTasksAtOneInstant = 20;
    const auto clock = std::make_shared<vo::VirtualClock>(vo::TimePoint(1h), kTasksAtOneInstant);
    vo::Application application(clock);
    const auto broker = KRBroker::create(application);
    ConditionChecker checker;
    HitLists lists;
    checker.connect(broker);
    checker.setCallback([&](const ConditionChecker::Hits& hits) { lists.push_back(hits); });
    for (unsigned i = 0; i < 100000; ++i)
        checker.addCondition("('A' && 'A' != " + std::to_string(i) + ") for 10 s",
                             ConditionChecker::ReportBecomesTrue);
    checker.run(0, false);
    broker->memory().raiseEvent("A", -1);
    clock->advance(10s - 1us);
    EXPECT_EQ(lists.size(), 0U);
    clock->advance(1us);
    ASSERT_EQ(lists.size(), 1U);
    EXPECT_EQ(lists[0].size(), 100000U);
    EXPECT_TRUE(std::is_sorted(lists[0].begin(), lists[0].end(),
                               [](const auto& a, const auto& b) { return a.first < b.first; }));
}

/// Somebody who raises a key on a thread of their own and is told of what comes of it.
class Raiser {
public:
    Raiser(ConditionChecker& checker, KRMemory& memory, int number)
        : memory_(memory), key_("K" + std::to_string(number))
    {
        checker.addCondition("'" + key_ + "' == 1 for 1 ms", ConditionChecker::ReportChange,
                             [this](unsigned, const KRValue& truth) { tell(truth.isTrue()); });
    }

    /// Pulses that may be held or not, and then one that is waited for.
    void raise()
    {
        for (int round = 0; round < 100; ++round) {
            for (int pulse = 0; pulse < round % 7; ++pulse)
                write(pulse % 2);
            write(1);
            for (int i = 0; i < 100; ++i)
                memory_.raiseEvent("Storm", i % 2);
            awaitTruth(true);
            write(1);
            write(0);
            awaitTruth(false);
        }
    }
    /// Of the hits, each another truth than the one before; starting with true.
    bool alternated() const { return alternated_; }

private:
    void write(int value) { memory_.raiseEvent(key_, value); }
    void tell(bool truth)
    {
        const vo::Lock lock(mutex_);
        alternated_ = alternated_ && truth != truth_;
        truth_ = truth;
        changed_.notifyAll();
    }
    void awaitTruth(bool truth)
    {
        const vo::Lock lock(mutex_);
        while (truth_ != truth)
            changed_.wait(mutex_);
    }

    KRMemory& memory_;
    const std::string key_;
    vo::Mutex mutex_;
    vo::Condition changed_;
    bool truth_ = false;
    bool alternated_ = true;
};

TEST(ConditionTime, NoHoldIsMissedOrDoubledWhileThreadsRaise)
{
    const Deadline deadline("the end of a hold");
    vo::Application application(vo::makeRealClock());
    const auto broker = KRBroker::create(application);
    ConditionChecker checker;
    checker.connect(broker);
    std::deque<Raiser> raisers;
    for (int i = 0; i < 4; ++i)
        raisers.emplace_back(checker, broker->memory(), i);
    checker.addCondition("count('Storm' == 1, 1 ms) >= 1000 || age('Storm') > 1 ms",
                         ConditionChecker::ReportChange);
    checker.run(1000, false);
    std::vector<std::thread> threads;
    for (Raiser& raiser : raisers)
        threads.emplace_back([&raiser] { raiser.raise(); });
    for (std::thread& thread : threads)
        thread.join();
    checker.stop();
    for (const Raiser& raiser : raisers)
        EXPECT_TRUE(raiser.alternated());
}

}  // namespace
}  // namespace KR
