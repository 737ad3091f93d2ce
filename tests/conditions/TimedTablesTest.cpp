#include <random>

#include "platform/conditions/Comparison.h"
#include "platform/conditions/ConditionChecker.h"
#include "platform/conditions/ConditionParser.h"
#include "platform/vo/Executor.h"
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
        ASSERT_EQ(table.found(), expected) << "table " << seed;
    }
    EXPECT_GT(moments, 50000U) << "something happened";
}

}  // namespace
}  // namespace KR
