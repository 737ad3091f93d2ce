#include <gmock/gmock.h>
#include <thread>

#include "host/LifeService.h"
#include "platform/kr/KRProxy.h"
#include "tests/support/Deadline.h"
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

    /// The changes, and how they came, in a few words each.
    std::vector<std::string> texts() const
    {
        static const char* const kNames[] = {"focus", "state", "asleep", "block", "chain", "all"};
        std::vector<std::string> result;
        for (const LifeEvent& event : events)
            result.push_back(kNames[static_cast<int>(event.kind)] +
                             (event.subject.empty() ? "" : " " + event.subject) +
                             (event.on ? " on" : "") +
                             (event.previous.empty() ? "" : " after " + event.previous) +
                             (event.lost ? " lost " + std::to_string(event.lost) : "") +
                             (event.reason.empty() ? "" : ": " + event.reason));
        return result;
    }
    /// What the runner was told to do since the last call.
    std::vector<std::string> calls() { return std::exchange(runner.calls, {}); }

    const Deadline deadline;
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
    const auto doTwice = [](const auto& deed) { deed(), deed(); };
    doTwice([&] { life->setState("interactive"); });
    doTwice([&] { life->setAsleep(false); });
    doTwice([&] { life->setAsleep(true); });
    doTwice([&] { life->blockAutonomousFocus(); });
    doTwice([&] { life->unblockAutonomousFocus(); });
    focus("p/a");
    focus("p/b");
    life->stopAll("why");
    life->stopAll("again");
    EXPECT_EQ(platform.memory().getData("Nimbra/State"), KRValue("interactive"));
    EXPECT_EQ(platform.memory().getData("Nimbra/Asleep"), KRValue(true));
    EXPECT_EQ(platform.memory().getData("Nimbra/FocusedActivity"), KRValue(""));
    EXPECT_THAT(texts(), ElementsAre("state interactive after solitary", "asleep on", "block on",
                                     "block", "focus p/a", "focus p/b after p/a lost 1",
                                     "focus after p/b lost 2: why", "all: why", "all: again"));
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

    events.clear();
    life->setState(row.to, true);
    EXPECT_EQ(life->getState(), row.to);
    std::vector<std::string> changes;
    if (row.refusal && row.hasFocus)
        changes.push_back("focus after p/a lost 1: it may not run in '" + std::string(row.to) +
                          "'");
    if (row.refusal)
        changes.push_back("state " + std::string(row.to) + " after " + row.from);
    EXPECT_EQ(texts(), changes) << "the focus ends before the state does";
    EXPECT_EQ(life->focusedActivity(), row.hasFocus && !row.refusal ? "p/a" : "");
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
    life->blockAutonomousFocus();
    life->unblockAutonomousFocus();
    EXPECT_TRUE(focus("p/a")) << "a block is not counted";
    life->setState("safeguard", true);
    EXPECT_THAT(refusalOf([&] { focus("p/a"); }), HasSubstr("'safeguard'"));
    EXPECT_THROW(focus(""), KRError);
    life->setState("interactive");
    EXPECT_TRUE(focus("p/a"));
}

TEST_F(LifeServiceTest, ActivityWithTheFocusIsStartedAnewOnlyWhenAsked)
{
    EXPECT_EQ(focus("p/a"), FocusId{1});
    EXPECT_EQ(focus("p/a"), std::nullopt);
    EXPECT_EQ(focus("p/a", FocusRequest::kRestart), FocusId{2});
    EXPECT_EQ(events.back().lost, 1U);
    EXPECT_THROW(focus("p/a", 2), KRError);
    EXPECT_THROW(focus("p/a", 3), KRError);
}

TEST_F(LifeServiceTest, PreparationComesBeforeTheStartAndMayPreventIt)
{
    std::vector<std::string> prepared;
    life->setPreparation([&](const std::string& activity) {
        prepared.push_back(activity + " over " + life->focusedActivity());
        if (activity == "p/b")
            life->setState("safeguard", true);
    });
    life->setRunner(&runner);
    runner.refused = "p/refused";
    focus("p/a");
    focus("p/a");
    EXPECT_EQ(refusalOf([&] { focus("p/refused"); }), "no");
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
    const FocusId anew = *focus("p/a", FocusRequest::kRestart);
    EXPECT_THAT(calls(), ElementsAre("stop", "start p/a", "stop", "start p/a"));
    life->activityEnded(anew - 1, "late news");
    EXPECT_THAT(calls(), IsEmpty());
    life->activityEnded(anew, "by itself");
    EXPECT_THAT(calls(), ElementsAre("stop")) << "always";
    focus("p/a");
    life->exit();
    life->exit();
    EXPECT_EQ(refusalOf([&] { focus("p/b"); }), "the life service has ended");
    EXPECT_THAT(calls(), ElementsAre("start p/a", "stop"));
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
    life->setRunner(&runner);
    const std::function<void()> ends[] = {[&] { life->stopAll(); },
                                          [&] { life->setState("disabled", true); },
                                          [&] { life->activityEnded(3, "it has ended"); }};
    for (const auto& end : ends) {
        std::thread other;
        std::promise<void> trying;
        runner.onStart = [&] {
            EXPECT_THROW(life->stopFocus(), KRError);
            EXPECT_THROW(focus("p/b"), KRError);
            life->setState("interactive", true);  // stands in nobody's way
            other = std::thread([&] {
                trying.set_value();
                end();
            });
            await("the other thread", trying);
            letOthersRun();
        };
        focus("p/a");
        other.join();
        EXPECT_EQ(life->focusedActivity(), "");
        EXPECT_THAT(calls(), ElementsAre("start p/a", "stop"));
        life->setState("solitary", true);
    }

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
    EXPECT_THAT(life->getStateHistory(1), ElementsAre("interactive"));
    EXPECT_THROW(life->getStateHistory(0), KRError);
    EXPECT_THROW(life->getFocusHistory(-1), KRError);
    EXPECT_THAT(life->getAutonomousActivityStatistics(),
                ElementsAre(Pair("p/a", ElementsAre(Pair("focusCount", 2), Pair("focusTime", 3))),
                            Pair("p/b", ElementsAre(Pair("focusCount", 1), Pair("focusTime", 0)))));
    EXPECT_EQ(life->getLifeTime(), 3);
    constexpr int kMore = 200;
    for (int i = 0; i < kMore; ++i) {
        focus("p/" + std::to_string(i));
        life->setState(i % 2 == 0 ? "solitary" : "interactive");
    }
    const std::vector<std::string> kept = life->getFocusHistory(1000);
    EXPECT_EQ(kept.size(), LifeService::kMaxHistory);
    EXPECT_EQ(kept.front(), "p/" + std::to_string(kMore - LifeService::kMaxHistory));
    EXPECT_EQ(kept.back(), "p/199");
    EXPECT_EQ(life->getStateHistory(1000).size(), LifeService::kMaxHistory);
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
    life->freezeChain("Legs", 1);
    life->freezeChain("Legs");  // without end
    life->freezeChain("Legs", 1);
    life->freezeChain("Arms", 9);
    life->freezeChain("Arms", 1);
    platform.advance(seconds(8));
    EXPECT_THAT(life->getFrozenChains(), ElementsAre("Arms", "Legs"));
    platform.advance(seconds(2));
    life->unfreezeChain("Legs");
    life->unfreezeChain("Legs");
    EXPECT_THAT(texts(),
                ElementsAre("chain Legs on", "chain Legs: its time is over", "chain Legs on",
                            "chain Arms on", "chain Arms: its time is over", "chain Legs"));

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
    for (const bool on : {true, false}) {
        proxy->call("setAsleep", on);
        EXPECT_EQ(proxy->call<bool>("isAsleep"), on);
        proxy->call(on ? "blockAutonomousFocus" : "unblockAutonomousFocus");
        EXPECT_EQ(proxy->call<bool>("isAutonomousFocusBlocked"), on);
    }
    proxy->call("switchFocus", "p/a");
    EXPECT_EQ(proxy->call<std::string>("focusedActivity"), "p/a");
    proxy->call("stopFocus");
    EXPECT_EQ(events.back().kind, LifeEvent::Kind::focus);
    proxy->call("stopAll");
    EXPECT_EQ(events.back().kind, LifeEvent::Kind::everythingStopped);
    proxy->call("freezeChain", "Arms");
    proxy->call("freezeChain", "Legs");
    proxy->call("freezeChainFor", "Head", 1);
    proxy->call("unfreezeChain", "Arms");
    using Texts = std::vector<std::string>;
    EXPECT_EQ(proxy->call<Texts>("getFrozenChains"), (Texts{"Head", "Legs"}));
    EXPECT_EQ(proxy->call<Texts>("getFocusHistory", 2), (Texts{"p/a", ""}));
    EXPECT_EQ(proxy->call<Texts>("getStateHistory", 2), (Texts{"disabled", "solitary"}));
    platform.advance(seconds(1));
    EXPECT_EQ(proxy->call<Texts>("getFrozenChains"), Texts{"Legs"});
    EXPECT_EQ(proxy->call<int>("getLifeTime"), 1);
    proxy->call("freezeChainFor", "Head", 1);
    using Statistics = std::map<std::string, std::map<std::string, int>>;
    EXPECT_EQ(proxy->call<Statistics>("getAutonomousActivityStatistics")["p/a"]["focusCount"], 1);
    // Gone while a freeze is pending: its end must not reach the service any more.
    life.reset();
    platform.advance(seconds(2));
}

}  // namespace
}  // namespace KR
