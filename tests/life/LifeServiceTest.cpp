#include <algorithm>
#include <future>
#include <sstream>
#include <thread>

#include "platform/kr/KRProxy.h"
#include "tests/life/LifeParts.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

/// What a runner that cannot or may not do something reacts with.
template <class Error>
auto failing(const std::vector<std::string>& calls)
{
    return [calls](const std::string& call) {
        if (std::count(calls.begin(), calls.end(), call) > 0)
            throw Error("FakeRunner", call, "no");
    };
}

class LifeServiceTest : public testing::Test {
protected:
    LifeServiceTest()
    {
        connection = life->changed.connect([this](const LifeChange& event) {
            const vo::Lock lock(mutex);
            events.push_back(event);
        });
    }

    std::optional<FocusId> focus(const std::string& activity, std::int32_t flags = 0)
    {
        return life->switchFocus({activity, flags, {}, true}).value();
    }
    /// The changes, and how they came, in a few words each.
    std::vector<std::string> texts() const
    {
        std::vector<std::string> result;
        const auto part = [](const char* word, const std::string& text) {
            return text.empty() ? text : word + text;
        };
        for (const LifeChange& event : events)
            result.push_back(std::visit(
                Cases{[&](const FocusChanged& e) {
                          return part("focus ", e.activity.empty() ? "-" : e.activity) +
                                 part(" after ", e.previous) +
                                 (e.lost ? " lost " + std::to_string(e.lost) : "") +
                                 part(": ", e.reason);
                      },
                      [&](const StateChanged& e) {
                          return "state " + e.state + part(" after ", e.previous);
                      },
                      [](const SleepChanged& e) {
                          return std::string("asleep") + (e.asleep ? " on" : "");
                      },
                      [](const FocusBlockChanged& e) {
                          return std::string("block") + (e.blocked ? " on" : "");
                      },
                      [&](const ChainChanged& e) {
                          return "chain " + e.chain + (e.frozen ? " on" : "") +
                                 part(": ", e.reason);
                      },
                      [&](const EverythingStopped& e) { return "all" + part(": ", e.reason); }},
                event));
        return result;
    }
    /// What the runner was told to do since the last call.
    std::vector<std::string> calls() { return std::exchange(runner.calls, {}); }

    const Deadline deadline;
    VirtualPlatform platform;
    LifeParts parts{platform.broker};
    FakeRunner& runner = parts.runner;
    FocusQueue& queue = parts.focus;
    boost::shared_ptr<LifeService>& life = parts.life;
    boost::shared_ptr<KRProxy> service = platform.broker->getProxy("KRNimbra");
    vo::Mutex mutex;  ///< guards events where there are several threads
    std::vector<LifeChange> events;
    vo::Connection connection;
};

TEST_F(LifeServiceTest, ChangesAreWrittenToMemoryAndTold)
{
    const auto expectInMemory = [&](const char* state, bool asleep, const char* focused) {
        EXPECT_EQ(platform.memory().getData("Nimbra/State"), KRValue(state));
        EXPECT_EQ(platform.memory().getData("Nimbra/Asleep"), KRValue(asleep));
        EXPECT_EQ(platform.memory().getData("Nimbra/FocusedActivity"), KRValue(focused));
    };
    expectInMemory("solitary", false, "");
    const auto doTwice = [&](const auto&... call) {
        service->call(call...), service->call(call...);
    };
    doTwice("setState", "interactive");
    doTwice("setAsleep", false);
    doTwice("setAsleep", true);
    doTwice("blockAutonomousFocus");
    EXPECT_TRUE(service->call<bool>("isAutonomousFocusBlocked"));
    doTwice("unblockAutonomousFocus");
    doTwice("switchFocus", "p/a");
    service->call("switchFocus", "p/b");
    expectInMemory("interactive", true, "p/b");
    EXPECT_EQ(service->call<std::string>("focusedActivity"), "p/b");
    doTwice("stopFocus");
    doTwice("stopAll");
    expectInMemory("interactive", true, "");
    EXPECT_TRUE(service->call<bool>("isAsleep"));
    EXPECT_THAT(texts(), ElementsAre("state interactive after solitary", "asleep on", "block on",
                                     "block", "focus p/a", "focus p/b after p/a lost 1",
                                     "focus - after p/b lost 2", "all", "all"));
}

TEST_F(LifeServiceTest, ChangeOfStateIsRefusedWhereItWouldOverruleSomebodyUnlessForced)
{
    const struct {
        const char* from;
        const char* to;
        bool hasFocus;
        const char* refusal;  ///< part of the text; "none" when it is not refused
    } rows[] = {{"solitary", "interactive", true, "none"},
                {"solitary", "safeguard", false, "none"},
                {"solitary", "safeguard", true, "'p/a' has the focus"},
                {"interactive", "disabled", true, "'p/a' has the focus"},
                {"safeguard", "solitary", false, "none"},
                {"disabled", "solitary", false, "needs force"},
                {"disabled", "safeguard", false, "needs force"}};
    for (const auto& [from, to, hasFocus, refusal] : rows) {
        SCOPED_TRACE(std::string(from) + " to " + to);
        life->stopFocus();
        life->setState(from, true);
        const FocusId stay = hasFocus ? *focus("p/a") : 0;
        const std::string error = errorOf([&, to = to] { service->call("setState", to); });
        EXPECT_THAT(error, HasSubstr(refusal));
        EXPECT_EQ(life->getState(), error == "none" ? to : from);

        events.clear();
        service->call("forceState", to);
        EXPECT_EQ(life->getState(), to);
        EXPECT_EQ(life->focusedActivity(), hasFocus && error == "none" ? "p/a" : "");
        std::vector<std::string> changes;
        if (error != "none" && hasFocus)
            changes.push_back("focus - after p/a lost " + std::to_string(stay) +
                              ": it may not run in '" + to + "'");
        if (error != "none")
            changes.push_back(std::string("state ") + to + " after " + from);
        EXPECT_EQ(texts(), changes) << "the focus ends before the state does";
    }
    for (const char* unknown : {"Disabled", ""})
        EXPECT_THROW(life->setState(unknown, true).value(), KRError);
    EXPECT_EQ(life->getState(), "safeguard");
}

TEST_F(LifeServiceTest, FocusIsRefusedWhereNoActivityMayRunAndToRulesWhileBlocked)
{
    life->blockAutonomousFocus();
    EXPECT_THAT(errorOf([&] { focus("p/a"); }), HasSubstr("autonomous focus is blocked"));
    EXPECT_TRUE(life->switchFocus({"p/person"}).value()) << "a person may";
    life->blockAutonomousFocus();
    life->unblockAutonomousFocus();
    EXPECT_EQ(focus("p/a"), FocusId{2}) << "a block is not counted";
    EXPECT_EQ(focus("p/a"), std::nullopt);
    EXPECT_EQ(focus("p/a", FocusRequest::kRestart), FocusId{3});
    EXPECT_EQ(std::get<FocusChanged>(events.back()).lost, 2U);
    EXPECT_THROW(focus("p/a", 2), KRError);
    EXPECT_THROW(focus("p/a", 3), KRError);
    EXPECT_THROW(focus(""), KRError);
}

TEST_F(LifeServiceTest, ActivityRunsWhileItHasTheFocus)
{
    focus("p/a");
    focus("p/b");
    focus("p/b");
    life->stopFocus();
    life->stopFocus();
    EXPECT_THAT(calls(), ElementsAre("start p/a", "stop", "start p/b", "stop"));
    focus("p/a");
    EXPECT_THROW(life->setState("safeguard").value(), LifeRefusal);
    EXPECT_THAT(calls(), ElementsAre("start p/a"));
    life->setState("safeguard", true);
    life->setState("solitary");
    focus("p/a");
    const FocusId anew = *focus("p/a", FocusRequest::kRestart);
    EXPECT_THAT(calls(), ElementsAre("stop", "start p/a", "stop", "start p/a"));
    events.clear();
    for (const FocusId stay : {anew - 1, anew, anew})  // news of an earlier stay end no later one
        runner.ended(stay, "by itself");
    EXPECT_THAT(calls(), ElementsAre("stop")) << "always";
    EXPECT_THAT(texts(), ElementsAre("focus - after p/a lost 5: by itself"));
    focus("p/a");
    queue.exit();
    queue.exit();
    EXPECT_THAT(errorOf([&] { focus("p/b"); }), HasSubstr("the life service has ended"));
    EXPECT_THAT(calls(), ElementsAre("start p/a", "stop"));
}

TEST_F(LifeServiceTest, ActivityThatMayNotRunLeavesTheFocusAloneAndOneThatFailsTakesItAway)
{
    runner.react = failing<KRError>({"start p/broken"});
    EXPECT_THROW(focus("p/broken"), KRError);
    EXPECT_THAT(events, IsEmpty());
    for (const std::string broken : {"p/broken", "p/a"}) {
        runner.react = failing<LifeRefusal>({"check p/refused"});
        EXPECT_TRUE(focus("p/a")) << "a start or stop that failed stands in nobody's way";
        EXPECT_THROW(focus("p/refused"), LifeRefusal);
        EXPECT_EQ(life->focusedActivity(), "p/a");
        runner.react = failing<KRError>({"start " + broken, "stop"});
        EXPECT_THROW(focus(broken, FocusRequest::kRestart), KRError);
        EXPECT_EQ(life->focusedActivity(), "");
        EXPECT_THAT(std::get<FocusChanged>(events.back()).reason,
                    HasSubstr("'" + broken + "' was to follow"));
    }
    EXPECT_THAT(life->getFocusHistory(9), ElementsAre("p/a", "", "p/a", ""));
}

TEST_F(LifeServiceTest, StopsAndForcedStatesCancelSwitchesAndAreDoneThemselvesHoweverLate)
{
    const struct {
        const char* description;
        const char* hangs;  ///< call of the runner that takes its time
        const char* asked;  ///< in this order, while p/old has the focus
        const char* then;  ///< what happens before the call that hangs ends: 31 seconds, or nothing
        std::vector<std::string> ended;  ///< in this order, with "-" for what failed
        std::vector<std::string> calls;
        const char* focused;
    } rows[] = {
        {"a start is given up",
         "start p/a",
         "a all",
         "",
         {"-a", "all"},
         {"stop", "start p/a", "stop"},
         ""},
        {"a switch while it is checked changes nothing",
         "check p/a",
         "a interactive b",
         "",
         {"-a", "interactive", "b"},
         {"stop", "start p/b"},
         "p/b"},
        {"a stop goes on, and what waits for it is cancelled",
         "stop",
         "a b stop c",
         "",
         {"-a", "-b", "stop", "c"},
         {"stop", "start p/c"},
         "p/c"},
        {"a state that is not forced is cancelled by one that is",
         "stop",
         "a solitary safeguard interactive",
         "",
         {"-a", "-solitary", "safeguard", "interactive"},
         {"stop"},
         ""},
        {"what waits expires, but for stops",
         "stop",
         "a stop b",
         "31 s",
         {"-a", "-stop", "-b"},
         {"stop"},
         ""},
        {"a start that hangs expires, and what waits goes on",
         "start p/a",
         "a b",
         "31 s",
         {"-a", "b"},
         {"stop", "start p/a", "stop", "start p/b"},
         "p/b"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.description);
        runner.later.clear();
        life->setState("solitary", true);
        life->switchFocus({"p/old", FocusRequest::kRestart});
        calls();
        std::vector<std::string> ended;
        runner.later.emplace(row.hangs, vo::Promise<void>());
        const auto hanging = runner.later.at(row.hangs);
        std::istringstream words(row.asked);
        for (std::string word; words >> word;) {
            const bool forced = word == "safeguard" || word == "interactive";
            const vo::Future<void> change = word == "all"    ? life->stopAll()
                                            : word == "stop" ? life->stopFocus()
                                            : forced || word.size() == 8
                                                ? life->setState(word, forced)
                                                : life->switchFocus({"p/" + word}).map([](auto) {});
            change.then([&, word](const auto& end) {
                ended.push_back((end.hasValue() ? "" : "-") + word);
            });
        }
        if (*row.then)
            platform.advance(FocusRequest().cause.deadline + seconds(1));
        runner.later.clear();
        hanging.setValue();
        EXPECT_EQ(ended, row.ended);
        EXPECT_EQ(calls(), row.calls);
        EXPECT_EQ(life->focusedActivity(), row.focused);
    }
}

/// Real threads, as only they can come in between.
TEST_F(LifeServiceTest, ThreadsChangesComeOneAfterTheOther)
{
    constexpr int kSwitches = 500;
    const auto switchOften = [&](const std::string& activity) {
        for (int i = 0; i < kSwitches; ++i)
            life->switchFocus({activity, FocusRequest::kRestart});
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
    const auto history = [&](const std::string& of, int depth) {
        return service->call<std::vector<std::string>>("get" + of + "History", depth);
    };
    EXPECT_THAT(history("Focus", 2), IsEmpty());
    focus("p/a");
    platform.advance(milliseconds(1600));
    life->stopFocus();
    focus("p/b");
    focus("p/a");
    platform.advance(milliseconds(1500));
    life->setState("interactive");
    EXPECT_THAT(history("Focus", 3), ElementsAre("", "p/b", "p/a"));
    EXPECT_THAT(history("State", 9), ElementsAre("solitary", "interactive"));
    EXPECT_THROW(life->getStateHistory(0), KRError);
    EXPECT_THROW(life->getFocusHistory(-1), KRError);
    using Statistics = std::map<std::string, std::map<std::string, int>>;
    EXPECT_THAT(service->call<Statistics>("getAutonomousActivityStatistics"),
                ElementsAre(Pair("p/a", ElementsAre(Pair("focusCount", 2), Pair("focusTime", 3))),
                            Pair("p/b", ElementsAre(Pair("focusCount", 1), Pair("focusTime", 0)))));
    EXPECT_EQ(service->call<int>("getLifeTime"), 3);
    for (std::size_t i = 0; i < LifeHistory::kMaxEntries + 7; ++i) {
        focus("p/" + std::to_string(i));
        life->setState(i % 2 == 0 ? "solitary" : "interactive");
    }
    EXPECT_EQ(history("Focus", 1000).size(), LifeHistory::kMaxEntries);
    EXPECT_EQ(history("Focus", 1000).front(), "p/7");
    EXPECT_EQ(history("State", 1000).size(), LifeHistory::kMaxEntries);
}

TEST_F(LifeServiceTest, TimedFreezeEndsByItselfAndNeverShortensALongerOne)
{
    service->call("freezeChainFor", "Legs", 3);
    platform.advance(seconds(2));
    life->freezeChain("Legs", 2);  // to the 4th second
    platform.advance(milliseconds(1999));
    EXPECT_THAT(life->getFrozenChains(), ElementsAre("Legs"));
    platform.advance(milliseconds(1));
    EXPECT_THAT(life->getFrozenChains(), IsEmpty());
    life->freezeChain("Legs", 1);
    service->call("freezeChain", "Legs");  // without end
    life->freezeChain("Legs", 1);
    life->freezeChain("Arms", 9);
    life->freezeChain("Arms", 1);
    platform.advance(seconds(8));
    EXPECT_THAT(service->call<std::vector<std::string>>("getFrozenChains"),
                ElementsAre("Arms", "Legs"));
    platform.advance(seconds(2));
    for (int i = 0; i < 2; ++i)
        service->call("unfreezeChain", "Legs");
    EXPECT_THAT(texts(),
                ElementsAre("chain Legs on", "chain Legs: its time is over", "chain Legs on",
                            "chain Arms on", "chain Arms: its time is over", "chain Legs"));
    EXPECT_THROW(life->freezeChain("Tail").value(), KRError);
    EXPECT_THROW(life->unfreezeChain("").value(), KRError);
    EXPECT_THROW(life->freezeChain("Head", 0).value(), KRError);

    // The end of a freeze that was lifted must not end the next one.
    life->freezeChain("Head", 1);
    life->unfreezeChain("Head");
    life->freezeChain("Head", 5);
    platform.advance(seconds(2));
    EXPECT_THAT(life->getFrozenChains(), ElementsAre("Head"));
    life.reset();
    parts.chains.reset();  // nor reach them when they are gone
    platform.advance(seconds(9));
}

TEST(LifeServiceOnThreadsTest, ChangesWaitForTheirTurnAndWhoAsksWhenAllIsOverIsTold)
{
    vo::Application application(vo::makeRealClock());
    const auto broker = KRBroker::create(application);
    LifeParts parts(broker);
    LifeService& life = *parts.life;
    std::promise<void> release;
    application.eventLoop().async([&] { release.get_future().wait(); });
    const auto asleep = life.setAsleep(true);
    const auto frozen = life.freezeChain("Tail");
    EXPECT_TRUE(asleep.isRunning() && frozen.isRunning() && !life.isAsleep());
    release.set_value();
    asleep.value();
    EXPECT_TRUE(life.isAsleep());
    EXPECT_THAT(frozen.error(), HasSubstr("there is no chain 'Tail'"));
    application.eventLoop().close();
    EXPECT_THAT(life.setAsleep(false).error(), HasSubstr("the life service has ended"));
    EXPECT_THAT(life.switchFocus({"p/a"}).error(), HasSubstr("the life service has ended"));
    EXPECT_TRUE(life.isAsleep());
}

}  // namespace
}  // namespace KR
