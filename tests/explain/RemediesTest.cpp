#include <random>
#include <set>

#include "explain/Remedies.h"
#include "platform/conditions/ConditionChecker.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using namespace std::chrono_literals;

/// A checker that lives through writes, and the moment that it has come to.
class LivedCondition {
public:
    explicit LivedCondition(const std::string& text)
    {
        checker_.connect(platform_.broker);
        whole_ = checker_.addCondition(text, ConditionChecker::ReportBecomesFalse,
                                       [this](unsigned, const KRValue&) { isFallen_ = true; });
        followOperands(parseCondition(text));
        checker_.run(0, false);
        platform_.runPending();
        isStarted_ = true;
    }

    void write(const std::string& key, const KRValue& value)
    {
        platform_.memory().raiseEvent(key, value);
        platform_.runPending();
    }
    void advance(vo::Duration time) { platform_.advance(time); }
    bool isTrue() const { return checker_.isConditionTrue(whole_); }
    ConditionMoment moment() const
    {
        return {platform_.clock->now(), *checker_.inspect(whole_), rises_};
    }
    /// Whether these steps have the condition become true.
    bool isHelpedBy(const Remedy& remedy, RemedyGoal goal)
    {
        isFallen_ = goal == RemedyGoal::isTrue || !isTrue();
        for (const Remedy::Step& step : remedy.steps)
            step.key.empty() ? advance(step.wait) : write(step.key, step.value);
        return isFallen_ && isTrue();
    }

private:
    void followOperands(const Expression& expression)
    {
        for (const Expression& operand : expression.operands) {
            if (expression.kind == Expression::Kind::within)
                checker_.addCondition(textOf(operand), ConditionChecker::ReportBecomesTrue,
                                      [this, text = textOf(operand)](unsigned, const KRValue&) {
                                          if (isStarted_)
                                              rises_[text] = platform_.clock->now();
                                      });
            followOperands(operand);
        }
    }

    mutable VirtualPlatform platform_;
    ConditionChecker checker_;
    unsigned whole_ = 0;
    std::map<std::string, vo::TimePoint> rises_;
    bool isStarted_ = false;
    bool isFallen_ = false;
};

class RandomCondition {
public:
    explicit RandomCondition(unsigned seed) : random_(seed) {}

    std::string text(int depth)
    {
        if (depth == 0)
            return pick(4) == 0 ? key() : key() + comparison() + (pick(5) == 0 ? key() : literal());
        const std::string inner = "(" + text(depth - 1) + ")";
        switch (pick(11)) {
            case 0:
                return "!" + inner;
            case 1:
            case 2:
            case 3:
                return inner + " && (" + text(depth - 1) + ")";
            case 4:
                return inner + " || (" + text(depth - 1) + ")";
            case 5:
                return "age(" + key() + ")" + comparison() + duration();
            case 6:
                return "count(" + inner + ", " + duration() + ")" + comparison() +
                       std::to_string(pick(4));
            case 7:
                return inner + " within " + duration() + " of (" + text(depth - 1) + ")";
            case 8:
                return inner + " for " + duration();
            case 9:
                return inner + (pick(2) == 0 ? " == (" : " != (") + text(depth - 1) + ")";
            default:
                return text(depth - 1);
        }
    }
    std::string key() { return "'" + keyName() + "'"; }
    std::string keyName() { return std::string(1, static_cast<char>('A' + pick(4))); }
    std::string literal()
    {
        static constexpr const char* kLiterals[] = {"0", "1", "2", "2.5", "true", "\"a\"", "\"b\""};
        return kLiterals[pick(7)];
    }
    std::size_t pick(std::size_t count) { return random_() % count; }

private:
    std::string duration() { return std::to_string(pick(6) + 1) + " s"; }
    const char* comparison()
    {
        static constexpr const char* kComparisons[] = {" < ",  " <= ", " > ",
                                                       " >= ", " == ", " != "};
        return kComparisons[pick(6)];
    }
    std::mt19937 random_;
};

/// One condition, and what happens until the moment of the question.
class RandomLife {
public:
    explicit RandomLife(unsigned seed)
        : random_(seed), text(random_.text(1 + static_cast<int>(seed % 3)))
    {
        for (std::size_t i = random_.pick(12); i > 0; --i)
            happenings_.push_back({random_.keyName(), parseCondition(random_.literal()).value,
                                   vo::Duration(1'000'000 * random_.pick(3))});
    }
    std::unique_ptr<LivedCondition> live() const
    {
        auto lived = std::make_unique<LivedCondition>(text);
        for (const Remedy::Step& each : happenings_) {
            lived->write(each.key, each.value);
            lived->advance(each.wait);
        }
        return lived;
    }

private:
    RandomCondition random_;
    std::vector<Remedy::Step> happenings_;

public:
    const std::string text;
};

/// "A=1 5 s B=0".
std::string textOf(const Remedy& remedy)
{
    std::string text;
    for (const Remedy::Step& step : remedy.steps) {
        text += text.empty() ? "" : " ";
        text += step.key.empty() ? std::to_string(step.wait / 1s) + " s"
                                 : step.key + "=" + step.value.toDisplayString();
    }
    return text;
}

/// Fewest keys, of two at most, whose writing makes a condition true; more than two for none.
std::size_t fewestKeysOf(const ConditionMoment& moment)
{
    const std::vector<std::string> keys{"A", "B", "C", "D"};
    const KRValue values[] = {0, 1, 2, 2.5, 3, "a", "b"};
    const auto isEnough = [&](const std::string& a, const KRValue& va, const std::string& b,
                              const KRValue& vb) {
        ConditionRehearsal rehearsal(moment);
        rehearsal.write(a, va);
        rehearsal.write(b, vb);
        rehearsal.settle();
        return rehearsal.isTrue();
    };
    std::size_t fewest = 3;
    for (const std::string& a : keys)
        for (const std::string& b : keys)
            for (const KRValue& va : values)
                for (const KRValue& vb : values)
                    if ((a == b ? va == vb : fewest > 2) && isEnough(a, va, b, vb))
                        fewest = a == b ? 1 : std::min<std::size_t>(fewest, 2);
    return fewest;
}

/// In parts, each of so many lives: sanitizers take their time.
class RandomRemedies : public testing::TestWithParam<unsigned> {
protected:
    static constexpr unsigned kLives = 250;
};
INSTANTIATE_TEST_SUITE_P(Parts, RandomRemedies, testing::Range(0U, 4U));

TEST_P(RandomRemedies, AnyThatIsGivenHelpsAndNoneOfFewerKeysIsMissed)
{
    std::size_t answers = 0;
    for (unsigned seed = GetParam() * kLives; seed < (GetParam() + 1) * kLives; ++seed) {
        const RandomLife life(seed);
        const ConditionMoment moment = life.live()->moment();
        const bool isTrue = moment.condition.isTrue();
        const RemedyGoal goal = seed % 4 == 0 ? RemedyGoal::becomesTrue : RemedyGoal::isTrue;
        if (isTrue && goal == RemedyGoal::isTrue)
            continue;
        const Remedies remedies = findRemedies(moment, goal, nullptr);
        answers += remedies.found.size();
        for (const Remedy& remedy : remedies.found)
            EXPECT_TRUE(life.live()->isHelpedBy(remedy, goal))
                << seed << ": " << life.text << " by " << textOf(remedy);
        if (isTrue)
            continue;
        std::size_t fewest = 3;
        for (const Remedy& remedy : remedies.found)
            fewest = std::min(fewest, remedy.keys().size());
        if (fewest > 1) {
            EXPECT_LE(fewest, fewestKeysOf(moment)) << seed << ": " << life.text;
        }
    }
    EXPECT_GT(answers, 150U);
}

TEST(Remedies, AreFewAndSmall)
{
    KeyCatalogue catalogue;
    catalogue.addPublished(KeyDescription::integer("Level", "charge").between(1, 5), "battery");
    catalogue.addPublished(KeyDescription::text("Mood", "m").oneOf({"glad", "sad"}), "heart");
    const struct {
        const char* condition;
        std::vector<std::pair<std::string, int>> writes;
        const char* remedies;
        RemedyGoal goal = RemedyGoal::isTrue;
    } rows[] = {
        {"'A' == 1 && !'B'", {{"A", 0}, {"B", 1}}, "A=1 B=0"},
        {"'A' > 3 || 'B' > 1 && 'C'", {}, "A=4 | B=2 C=true"},
        {"'A' > 3 && 'A' < 5 && 'B' == 'A'", {}, "A=4 B=4"},
        {"'A' > 1.1 && 'A' < 1.2", {}, "A=1.15"},
        {"'A' && 'B' && 'C' && 'D'", {}, "A=true B=true C=true D=true"},
        {"'A' && 'B' && 'C' && 'D' && 'E'", {}, ""},
        {"'Level' > 5 || 'Mood' != \"glad\" && 'Mood' > \"a\"", {}, "Mood=\"sad\""},
        {"'A' < 0 && 'A' > 0", {}, ""},
        {"'A' for 5 s", {{"A", 1}}, "3 s"},
        {"'A' for 5 s && 'B' for 1 s", {}, "A=true B=true 5 s"},
        {"'A' for 5 s && age('B') < 2 s", {}, "A=true 5 s B=true"},
        {"!('A' for 1 s)", {{"A", 1}}, "A=0"},
        {"count('A', 1 min) >= 3", {{"A", 1}}, "A=0 A=1 A=0 A=1"},
        {"count('A', 5 s) < 1", {{"A", 1}}, "3 s"},
        {"'A' within 1 s of 'B'", {{"A", 1}}, "B=true A=0 A=1"},
        {"'A' within 9 s of 'B'", {{"A", 1}}, "B=true"},
        {"age('A') >= 5 s", {{"A", 1}}, "3 s"},
        {"age('A') < 1 s && 'A'", {{"A", 1}}, "A=1"},
        {"'A' >= 1 && !'B'", {{"A", 1}}, "A=0 A=1 | B=true B=false", RemedyGoal::becomesTrue},
        {"'A' for 1 s", {{"A", 1}}, "A=0 A=1 1 s", RemedyGoal::becomesTrue},
    };
    for (const auto& row : rows) {
        ConditionMoment moment;
        {
            LivedCondition lived(row.condition);
            for (const auto& [key, value] : row.writes)
                lived.write(key, value);
            lived.advance(2s);
            moment = lived.moment();
        }
        const Remedies remedies = findRemedies(moment, row.goal, &catalogue);
        std::string text;
        for (const Remedy& remedy : remedies.found)
            text += (text.empty() ? "" : " | ") + textOf(remedy);
        EXPECT_EQ(text, row.remedies) << row.condition;
        EXPECT_FALSE(remedies.isCut) << row.condition;
    }
}

TEST(Remedies, SayThatTheSearchWasGivenUp)
{
    ConditionMoment moment;
    std::string text = "'A' == 'B'";
    for (char key = 'C'; key <= 'Z'; ++key)
        text += std::string(" && ('") + key + "' > 1.5 && '" + key + "' < 'B')";
    moment = LivedCondition(text).moment();
    const Remedies remedies = findRemedies(moment, RemedyGoal::isTrue, nullptr);
    EXPECT_THAT(remedies.found, IsEmpty());
    EXPECT_TRUE(remedies.isCut);
}

}  // namespace
}  // namespace KR
