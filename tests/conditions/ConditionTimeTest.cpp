#include <deque>
#include <random>
#include <sstream>
#include <thread>

#include "platform/conditions/Comparison.h"
#include "platform/conditions/ConditionChecker.h"
#include "platform/conditions/ConditionParser.h"
#include "platform/vo/Executor.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using namespace std::chrono_literals;
using Kind = Expression::Kind;
using HitLists = std::vector<ConditionChecker::Hits>;

/// What a condition means, by walking its tree at every moment with all that ever happened in mind.
class NaiveCondition {
public:
    struct Moment {
        std::int64_t now;
        std::int64_t elapsed;  ///< by then all that was due has come about
        bool isFirst;          ///< what is true has been so for nobody knows how long
        std::map<std::string, std::pair<KRValue, std::int64_t>>
            memory;  ///< and when it was written
    };

    explicit NaiveCondition(const std::string& text) : root_(parseCondition(text)) {}
    bool isTrueAt(const Moment& moment) { return isTrue(root_, moment); }

private:
    struct Past {
        bool isTrue = false;
        std::int64_t since = 0;
        std::vector<std::int64_t> rises;
    };

    bool isTrue(const Expression& e, const Moment& moment)
    {
        const std::int64_t length = e.duration.count();
        switch (e.kind) {
            case Kind::negation:
                return !isTrue(e.operands[0], moment);
            case Kind::conjunction:
            case Kind::disjunction: {
                // Both are looked at: what is in them goes on, whatever the other one says.
                const bool first = isTrue(e.operands[0], moment);
                const bool second = isTrue(e.operands[1], moment);
                return e.kind == Kind::conjunction ? first && second : first || second;
            }
            case Kind::hold: {
                const Past& past = follow(e.operands[0], moment);
                return past.isTrue && past.since + length <= moment.elapsed;
            }
            case Kind::within: {
                const Past& first = follow(e.operands[0], moment);
                const Past& second = follow(e.operands[1], moment);
                for (const std::int64_t a : first.rises)
                    for (const std::int64_t b : second.rises)
                        if (std::abs(a - b) <= length && std::max(a, b) + length > moment.elapsed)
                            return true;
                return false;
            }
            default:
                return compares(e, moment);
        }
    }

    bool compares(const Expression& e, const Moment& moment)
    {
        const Expression& left = e.operands[0];
        const Expression& right = e.operands[1];
        if (left.kind == Kind::count) {
            const auto& rises = follow(left.operands[0], moment).rises;
            const auto count = std::count_if(rises.begin(), rises.end(), [&](std::int64_t rise) {
                return rise + left.duration.count() > moment.elapsed;
            });
            return holds(e.kind, KRValue(static_cast<std::int64_t>(count)), right.value);
        }
        if (left.kind == Kind::age) {
            const auto key = moment.memory.find(left.key);
            return key != moment.memory.end() &&
                   holds(e.kind, KRValue(moment.elapsed - key->second.second),
                         KRValue(static_cast<std::int64_t>(right.duration.count())));
        }
        const auto key = moment.memory.find(left.key);
        return holds(e.kind, key == moment.memory.end() ? KRValue() : key->second.first,
                     right.value);
    }

    const Past& follow(const Expression& operand, const Moment& moment)
    {
        const bool truth = isTrue(operand, moment);
        Past& past = pasts_[&operand];
        if (truth && !past.isTrue) {
            past.since = moment.now;
            if (!moment.isFirst)
                past.rises.push_back(moment.now);
        }
        past.isTrue = truth;
        return past;
    }

    const Expression root_;
    std::map<const Expression*, Past> pasts_;
};

class RandomTimedConditions {
public:
    explicit RandomTimedConditions(unsigned seed) : random_(seed) {}

    std::string text(int depth)
    {
        if (depth == 0)
            return key() + (pick(4) == 0 ? " != " : " == ") + std::to_string(pick(2));
        const std::string inner =
            "(" + text(depth - 1 - static_cast<int>(pick(2)) * (depth > 1)) + ")";
        switch (pick(8)) {
            case 0:
                return "!" + inner;
            case 1:
                return inner + " && (" + text(depth - 1) + ")";
            case 2:
                return inner + " || (" + text(depth - 1) + ")";
            case 3:
                return "age(" + key() + ")" + comparison() + duration();
            case 4:
                return "count(" + inner + ", " + duration() + ")" + comparison() +
                       std::to_string(pick(4));
            case 5:
                return inner + " within " + duration() + " of (" + text(depth - 1) + ")";
            default:
                return inner + " for " + duration();
        }
    }
    std::size_t pick(std::size_t count) { return random_() % count; }
    std::string key() { return "'" + std::string(1, static_cast<char>('A' + pick(3))) + "'"; }

private:
    std::string duration() { return "0.00" + std::to_string(pick(6) + 1) + " ms"; }
    const char* comparison()
    {
        static constexpr const char* kComparisons[] = {" < ",  " <= ", " > ",
                                                       " >= ", " == ", " != "};
        return kComparisons[pick(6)];
    }
    std::mt19937 random_;
};

/// What is written at one instant, in microseconds.
struct Write {
    int instant;
    std::string key;
    int value;
};

class TimedTable {
public:
    explicit TimedTable(unsigned seed) : random_(seed), isInspected_(seed % 16 == 0)
    {
        for (int i = 0; i < 3; ++i)
            texts_.push_back(random_.text(3));
        int instant = 0;
        for (int i = 0; i < 24; ++i) {
            instant += static_cast<int>(random_.pick(4) * random_.pick(3));
            const std::string key = random_.key();
            writes_.push_back({instant, key.substr(1, 1), static_cast<int>(random_.pick(2))});
        }
        end_ = instant + 40;
    }

    std::string asText() const
    {
        std::ostringstream text;
        for (const std::string& condition : texts_)
            text << condition << "\n";
        for (const Write& write : writes_)
            text << write.instant << ": " << write.key << " = " << write.value << "\n";
        return text.str();
    }

    /// At every instant each write is a moment, and then all that is due is one.
    HitLists expected() const
    {
        std::vector<NaiveCondition> conditions(texts_.begin(), texts_.end());
        std::vector<bool> truths(texts_.size());
        NaiveCondition::Moment moment{0, 0, true, {}};
        HitLists lists;
        const auto look = [&] {
            ConditionChecker::Hits hits;
            for (std::size_t i = 0; i < conditions.size(); ++i) {
                const bool truth = conditions[i].isTrueAt(moment);
                if (truth != truths[i])
                    hits.emplace_back(static_cast<unsigned>(i + 1), truth);
                truths[i] = truth;
            }
            if (!hits.empty())
                lists.push_back(hits);
        };
        look();
        moment.isFirst = false;
        auto write = writes_.begin();
        for (int instant = 0; instant < end_; ++instant) {
            moment.now = instant;
            for (; write != writes_.end() && write->instant == instant; ++write) {
                moment.elapsed = instant - 1;
                moment.memory[write->key] = {write->value, instant};
                look();
            }
            moment.elapsed = instant;
            look();
        }
        return lists;
    }

    HitLists found()
    {
        VirtualPlatform platform;
        ConditionChecker checker;
        HitLists lists;
        checker.connect(platform.broker);
        checker.setCallback([&](const ConditionChecker::Hits& hits) {
            lists.push_back(hits);
            // It parses and compiles anew, which takes its time.
            for (const auto& [id, truth] : isInspected_ ? hits : ConditionChecker::Hits())
                EXPECT_EQ(checker.inspect(id)->isTrue(), truth.isTrue());
        });
        for (const std::string& text : texts_)
            checker.addCondition(text, ConditionChecker::ReportChange);
        checker.run(0, false);
        const auto writer = platform.clock->makeExecutor("writer", vo::Clock::Threading::shared);
        std::function<void(std::size_t)> writeNext = [&](std::size_t i) {
            if (i == writes_.size())
                return;
            const vo::Duration due(writes_[i].instant);
            // Posted at the instant before, and so maybe after what is due at the same one.
            writer->post(
                [&, i]() mutable {
                    const int instant = writes_[i].instant;
                    for (; i < writes_.size() && writes_[i].instant == instant; ++i)
                        platform.memory().raiseEvent(writes_[i].key, writes_[i].value);
                    if (random_.pick(5) == 0)
                        platform.clock->jumpWallClock(random_.pick(2) == 0 ? -1h : 1h);
                    writeNext(i);
                },
                due - platform.clock->uptime());
        };
        platform.runPending();
        writeNext(0);
        platform.advance(vo::Duration(end_ - 1));
        writer->close();
        return lists;
    }

private:
    RandomTimedConditions random_;
    const bool isInspected_;
    std::vector<std::string> texts_;
    std::vector<Write> writes_;
    int end_ = 0;
};

TEST(ConditionTime, AgreesWithAPlainEvaluatorThatLooksAtEveryInstant)
{
    std::size_t moments = 0;
    for (unsigned seed = 0; seed < 10000; ++seed) {
        TimedTable table(seed);
        const HitLists expected = table.expected();
        moments += expected.size();
        ASSERT_EQ(table.found(), expected) << "table " << seed << "\n" << table.asText();
    }
    EXPECT_GT(moments, 50000U) << "something happened";
}

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
    std::size_t told() const { return told_; }

private:
    void write(int value) { memory_.raiseEvent(key_, value); }
    void tell(bool truth)
    {
        const vo::Lock lock(mutex_);
        alternated_ = alternated_ && truth != truth_;
        truth_ = truth;
        ++told_;
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
    std::size_t told_ = 0;
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
    for (const Raiser& raiser : raisers) {
        EXPECT_TRUE(raiser.alternated());
        EXPECT_GE(raiser.told(), 200U);
    }
}

}  // namespace
}  // namespace KR
