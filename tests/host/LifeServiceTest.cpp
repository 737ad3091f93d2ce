#include <gmock/gmock.h>
#include <thread>

#include "host/LifeService.h"
#include "platform/kr/KRProxy.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

/// Runs nothing; notes what it is told to do.
class FakeRunner : public ActivityRunner {
public:
    void check(const std::string& activity) override
    {
        if (activity == refused)
            throw LifeRefusal("FakeRunner", "check", "no");
    }
    void start(const std::string& activity, FocusId) override
    {
        calls.push_back("start " + activity);
        if (onStart)
            onStart();
        if (activity == broken)
            throw KRError("FakeRunner", "start", "broken");
    }
    void stop() override
    {
        calls.emplace_back("stop");
        if (!broken.empty())
            throw KRError("FakeRunner", "stop", "broken");
    }

    std::string refused;  ///< the activity that may not run
    std::string broken;   ///< the one that does not start; a stop fails, too, if there is one
    std::function<void()> onStart;
    std::vector<std::string> calls;  ///< guarded by the life service's turns
};

class LifeServiceTest : public testing::Test {
protected:
    LifeServiceTest()
    {
        life->changed.connect([this](const LifeEvent& event) {
            const vo::Lock lock(mutex);
            events.push_back(event);
        });
    }

    std::optional<FocusId> focus(const std::string& activity, std::int32_t flags = 0)
    {
        return life->switchFocus({activity, flags, {}, true});
    }
    /// The text of the refusal; empty when it was not refused.
    static std::string refusalOf(const std::function<void()>& deed)
    {
        try {
            deed();
        } catch (const LifeRefusal& e) {
            return e.getDescription();
        }
        return {};
    }

    /// What the runner was told to do since the last call.
    std::vector<std::string> calls() { return std::exchange(runner.calls, {}); }

    VirtualPlatform platform;
    FakeRunner runner;
    boost::shared_ptr<LifeService> life = KRModule::createModule<LifeService>(platform.broker);
    vo::Mutex mutex;  ///< guards events where there are several threads
    std::vector<LifeEvent> events;
};

TEST_F(LifeServiceTest, BeginsSolitaryAwakeAndWithoutFocus)
{
    EXPECT_EQ(platform.memory().getData("Nimbra/State"), KRValue("solitary"));
    EXPECT_EQ(platform.memory().getData("Nimbra/Asleep"), KRValue(false));
    EXPECT_EQ(platform.memory().getData("Nimbra/FocusedActivity"), KRValue(""));
}

TEST_F(LifeServiceTest, ChangesAreWrittenToMemoryAndTold)
{
    life->setState("interactive");
    life->setState("interactive");
    life->setAsleep(true);
    focus("p/a");
    focus("p/b");
    EXPECT_EQ(platform.memory().getData("Nimbra/State"), KRValue("interactive"));
    EXPECT_EQ(platform.memory().getData("Nimbra/Asleep"), KRValue(true));
    EXPECT_EQ(platform.memory().getData("Nimbra/FocusedActivity"), KRValue("p/b"));
    ASSERT_EQ(events.size(), 4U) << "setting the same state again is no change";
    EXPECT_EQ(events[0].previous, "solitary");
    EXPECT_EQ(events[3].previous, "p/a");
    EXPECT_EQ(events[3].lost, 1U);
}

struct StateRow {
    const char* from;
    const char* to;
    bool hasFocus;
    const char* refusal;  ///< part of the text; null when it is not refused
};

class StateChange : public LifeServiceTest, public testing::WithParamInterface<StateRow> {};

TEST_P(StateChange, WithoutForceIsRefusedWhereItWouldOverruleSomebody)
{
    const StateRow& row = GetParam();
    life->setState(row.from);
    if (row.hasFocus)
        focus("p/a");
    const std::string refusal = refusalOf([&] { life->setState(row.to); });
    EXPECT_EQ(refusal.empty(), row.refusal == nullptr) << refusal;
    EXPECT_THAT(refusal, HasSubstr(row.refusal ? row.refusal : ""));
    EXPECT_EQ(life->getState(), row.refusal ? row.from : row.to) << refusal;

    life->setState(row.to, true);
    EXPECT_EQ(life->getState(), row.to);
    if (row.refusal) {
        EXPECT_EQ(life->focusedActivity(), "");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, StateChange,
    testing::Values(StateRow{"solitary", "interactive", true, nullptr},
                    StateRow{"solitary", "safeguard", false, nullptr},
                    StateRow{"solitary", "safeguard", true, "'p/a' has the focus"},
                    StateRow{"interactive", "disabled", true, "'p/a' has the focus"},
                    StateRow{"safeguard", "solitary", false, nullptr},
                    StateRow{"disabled", "solitary", false, "needs force"},
                    StateRow{"disabled", "safeguard", false, "needs force"}));

TEST_F(LifeServiceTest, UnknownStateIsAnErrorAndChangesNothing)
{
    EXPECT_THROW(life->setState("Solitary", true), KRError);
    EXPECT_THROW(life->setState("", true), KRError);
    EXPECT_EQ(life->getState(), "solitary");
}

TEST_F(LifeServiceTest, FocusIsRefusedWhereNoActivityMayRunAndToRulesWhileBlocked)
{
    life->blockAutonomousFocus();
    EXPECT_THAT(refusalOf([&] { focus("p/a"); }), HasSubstr("autonomous focus is blocked"));
    EXPECT_TRUE(life->switchFocus({"p/person", 0, {}, false})) << "a person may";
    life->unblockAutonomousFocus();
    EXPECT_TRUE(focus("p/a"));
    life->setState("safeguard", true);
    EXPECT_THAT(refusalOf([&] { focus("p/a"); }), HasSubstr("'safeguard'"));
    EXPECT_THROW(focus(""), KRError);
}

TEST_F(LifeServiceTest, ActivityWithTheFocusIsStartedAnewOnlyWhenAsked)
{
    EXPECT_EQ(focus("p/a"), FocusId{1});
    EXPECT_EQ(focus("p/a"), std::nullopt);
    EXPECT_EQ(focus("p/a", FocusRequest::kRestart), FocusId{2});
    EXPECT_EQ(events.back().lost, 1U);
    EXPECT_THROW(focus("p/a", 2), KRError);
}

TEST_F(LifeServiceTest, PreparationComesBeforeTheStartAndMayPreventIt)
{
    std::vector<std::string> prepared;
    life->setPreparation([&](const std::string& activity) {
        prepared.push_back(activity + " over " + life->focusedActivity());
        if (activity == "p/b")
            life->setState("safeguard", true);
    });
    focus("p/a");
    focus("p/a");
    EXPECT_THAT(refusalOf([&] { focus("p/b"); }), HasSubstr("'safeguard'"));
    EXPECT_THAT(prepared, ElementsAre("p/a over ", "p/b over p/a"));
    EXPECT_EQ(life->focusedActivity(), "");
}

TEST_F(LifeServiceTest, ActivityRunsWhileItHasTheFocus)
{
    life->setRunner(&runner);
    focus("p/a");
    focus("p/b");
    focus("p/b");
    life->stopFocus();
    life->stopFocus();
    EXPECT_THAT(calls(), ElementsAre("start p/a", "stop", "start p/b", "stop"));
    focus("p/a");
    refusalOf([&] { life->setState("safeguard"); });
    EXPECT_THAT(calls(), ElementsAre("start p/a"));
    life->setState("safeguard", true);
    life->setState("solitary");
    focus("p/a");
    life->exit();
    EXPECT_THAT(calls(), ElementsAre("stop", "start p/a", "stop"));
}

TEST_F(LifeServiceTest, ActivityThatMayNotRunLeavesTheFocusAloneAndOneThatFailsTakesItAway)
{
    life->setRunner(&runner);
    runner.refused = "p/refused";
    runner.broken = "p/broken";
    EXPECT_THROW(focus("p/broken"), KRError);
    EXPECT_THAT(events, IsEmpty());
    focus("p/a");
    EXPECT_EQ(refusalOf([&] { focus("p/refused"); }), "no");
    EXPECT_EQ(life->focusedActivity(), "p/a");
    EXPECT_THROW(focus("p/broken"), KRError);
    EXPECT_EQ(life->focusedActivity(), "");
    EXPECT_THAT(events.back().reason, HasSubstr("'p/broken' was to follow"));
    EXPECT_THAT(life->getFocusHistory(9), ElementsAre("p/a", ""));
    EXPECT_TRUE(focus("p/a")) << "a start or stop that failed stands in nobody's way";
}

TEST_F(LifeServiceTest, EndOfAnEarlierStayEndsNoLaterOne)
{
    const FocusId first = *focus("p/a");
    const FocusId second = *focus("p/a", FocusRequest::kRestart);
    life->activityEnded(first, "late news");
    EXPECT_EQ(life->focusedActivity(), "p/a");
    life->activityEnded(second, "it has ended");
    life->activityEnded(second, "it has ended");
    EXPECT_EQ(life->focusedActivity(), "");
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events.back().lost, second);
    EXPECT_EQ(events.back().reason, "it has ended");
}

/// Real threads, as only they can come in between.
TEST_F(LifeServiceTest, ThreadsTakeTurnsAndWhoIsInsideOfAStartCannot)
{
    std::thread stopper;
    life->setRunner(&runner);
    runner.onStart = [&] {
        EXPECT_THROW(life->stopFocus(), KRError);
        if (!stopper.joinable())
            stopper = std::thread([&] { life->stopAll(); });
    };
    focus("p/a");
    stopper.join();
    EXPECT_EQ(life->focusedActivity(), "");
    EXPECT_THAT(calls(), ElementsAre("start p/a", "stop"));

    constexpr int kSwitches = 500;
    runner.onStart = nullptr;
    const auto switchOften = [&](const std::string& activity) {
        for (int i = 0; i < kSwitches; ++i)
            life->switchFocus({activity, FocusRequest::kRestart, {}, false});
    };
    std::thread other(switchOften, "p/b");
    switchOften("p/a");
    other.join();
    life->stopAll();
    const std::vector<std::string> all = calls();
    ASSERT_EQ(all.size(), 4U * kSwitches);
    for (std::size_t i = 1; i < all.size(); i += 2)
        ASSERT_EQ(all[i], "stop") << "no two run at once";
}

TEST_F(LifeServiceTest, HistoriesAndStatisticsTellWhatWas)
{
    EXPECT_THAT(life->getFocusHistory(2), IsEmpty());
    focus("p/a");
    platform.advance(milliseconds(1600));
    life->stopFocus();
    focus("p/b");
    focus("p/a");
    platform.advance(milliseconds(1500));
    life->setState("interactive");
    EXPECT_THAT(life->getFocusHistory(3), ElementsAre("", "p/b", "p/a"));
    EXPECT_THAT(life->getStateHistory(9), ElementsAre("solitary", "interactive"));
    EXPECT_THROW(life->getStateHistory(0), KRError);
    const auto statistics = life->getAutonomousActivityStatistics();
    EXPECT_THAT(statistics.at("p/a"), ElementsAre(Pair("focusCount", 2), Pair("focusTime", 3)));
    EXPECT_EQ(life->getLifeTime(), 3);
    for (int i = 0; i < 200; ++i)
        focus("p/" + std::to_string(i));
    EXPECT_EQ(life->getFocusHistory(1000).size(), LifeService::kMaxHistory);
}

TEST_F(LifeServiceTest, TimedFreezeEndsByItselfAndNeverShortensALongerOne)
{
    life->freezeChain("Legs", 3);
    platform.advance(seconds(2));
    life->freezeChain("Legs", 2);  // to the 4th second
    platform.advance(milliseconds(1999));
    EXPECT_THAT(life->getFrozenChains(), ElementsAre("Legs"));
    platform.advance(milliseconds(1));
    EXPECT_THAT(life->getFrozenChains(), IsEmpty());
    EXPECT_EQ(events.size(), 2U) << "one freeze, one end";

    life->freezeChain("Legs");
    life->freezeChain("Legs", 1);
    platform.advance(seconds(10));
    EXPECT_THAT(life->getFrozenChains(), ElementsAre("Legs"));
    life->unfreezeChain("Legs");
    life->unfreezeChain("Legs");
    EXPECT_EQ(events.size(), 4U);

    // The end of a freeze that was lifted must not end the next one.
    life->freezeChain("Head", 1);
    life->unfreezeChain("Head");
    life->freezeChain("Head", 5);
    platform.advance(seconds(2));
    EXPECT_THAT(life->getFrozenChains(), ElementsAre("Head"));
}

TEST_F(LifeServiceTest, FreezeOfAnUnknownChainOrForNoTimeIsAnError)
{
    EXPECT_THROW(life->freezeChain("Tail"), KRError);
    EXPECT_THROW(life->unfreezeChain(""), KRError);
    EXPECT_THROW(life->freezeChain("Head", 0), KRError);
    EXPECT_THROW(life->freezeChain("Head", -3), KRError);
}

TEST_F(LifeServiceTest, IsReachedAsAService)
{
    const auto proxy = platform.broker->getProxy("KRNimbra");
    proxy->call("setState", "disabled");
    EXPECT_THROW(proxy->call("setState", "solitary"), KRError);
    proxy->call("forceState", "solitary");
    proxy->call("switchFocus", "p/a");
    proxy->call("freezeChainFor", "Head", 1);
    EXPECT_EQ(proxy->call<std::string>("focusedActivity"), "p/a");
    EXPECT_EQ(proxy->call<std::vector<std::string>>("getFocusHistory", 2),
              std::vector<std::string>{"p/a"});
    using Statistics = std::map<std::string, std::map<std::string, int>>;
    EXPECT_EQ(proxy->call<Statistics>("getAutonomousActivityStatistics")["p/a"]["focusCount"], 1);
    // Gone while a freeze is pending: its end must not reach the service any more.
    life.reset();
    platform.advance(seconds(2));
}

}  // namespace
}  // namespace KR
