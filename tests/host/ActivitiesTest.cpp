#include <future>
#include <sys/stat.h>

#include "life/ActionRunner.h"
#include "robot/KRTextToSpeech.h"
#include "tests/host/HostTest.h"
#include "tests/support/Deadline.h"
#include "tests/support/Happenings.h"

namespace KR {
namespace {

/// A host with a package "p" of real programs, and another one to be installed. Programs live in
/// real time; all that is told of them arrives when the clock is run.
class ActivitiesTest : public HostTest {
protected:
    ActivitiesTest()
    {
        packages = folder.path() + "/packages";
        folder.write("packages/p/package.yaml", R"({ConfigurationVersion: 1, Uuid: p, Version: 1,
            Behaviors: [{Path: go, UserRequestable: true}, {Path: ends}, {Path: none}, {Path: plain},
                        {Path: alone, Nature: solitary}]})");
        writeProgram("packages/p/go", "exec tail -f /dev/null");
        writeProgram("packages/p/alone", "echo > up; exec tail -f /dev/null");
        writeProgram("packages/p/ends", "eval \"$(cat pipe)\"");
        folder.write("packages/p/plain/run", "no program");
        folder.write("new/package.yaml", R"({ConfigurationVersion: 1, Uuid: new, Version: 1,
            SupportedLanguages: [French], Behaviors: [{Path: go, UserRequestable: true,
            Permissions: [canRunOnPod], Conditions: {launchTrigger: "'B'"}}]})");
        writeProgram("new/go", "exec tail -f /dev/null");
        start(rule("wake", "A",
                   "Actions: [{Action: ApiCall, ActionParameters: {Module: KRNimbra, "
                   "Method: setAsleep, Args: [false]}}, {" +
                       focusOn("p/go") + "}]"));
    }

    const Deadline deadline;

    void install() { call("PackageManager", "install", folder.path() + "/new"); }
    template <class... Args>
    void call(const std::string& service, const std::string& method, const Args&... arguments)
    {
        vo::import(service).call(method, arguments...);
        clock->runPending();
    }
    /// Why a switch of focus does not come about: "refused: ..." or "failed: ...".
    std::string failureOf(const std::string& activity)
    {
        const StepResult result = attempt([&] {
            host->life().switchFocus({activity}).value();
            return StepResult();
        });
        return std::string(stepOutcomeName(result.outcome)) + ": " + result.reason;
    }
    std::vector<std::string> running()
    {
        return vo::import("KRBehaviorManager")
            .call<std::vector<std::string>>("getRunningBehaviors");
    }
    std::vector<std::string> kept(const std::string& activity)
    {
        using Kept = std::map<std::string, std::vector<std::string>>;
        return vo::import("ContextPermission").property<Kept>("permissions").at(activity);
    }
};

TEST_F(ActivitiesTest, WhatMayNotOrCannotRunIsRefusedInWordsAndLeavesTheFocusAlone)
{
    call("KRNimbra", "switchFocus", "p/go");
    install();
    call("KRNimbra", "setState", "interactive");
    call("KRNimbra", "setAsleep", true);
    call("KRBattery", "connectCharger", true);
    EXPECT_EQ(failureOf("action:mod"), "refused: there is no service 'action' that could run it");
    const auto action = std::make_shared<vo::ServiceObject>("action");
    vo::Application::current().session().registerService(action);
    const std::pair<const char*, const char*> rows[] = {
        {"nobody/go", "refused: no behaviour 'nobody/go' is installed"},
        {"p", "refused: no behaviour 'p' is installed"},
        {"new/go", "refused: language: it does not speak English; it may not run in sleep"},
        {"p/alone",
         "refused: nature: it needs the state solitary; it may not run on the charging station; it "
         "may not run in sleep"},
        {"action:mod", "refused: error: its permissions cannot be found out; the log says why"}};
    for (const auto& [activity, failure] : rows)
        EXPECT_EQ(failureOf(activity), failure);
    host->life().setAsleep(false);
    host->life().setState("solitary");
    call("KRBattery", "connectCharger", false);
    EXPECT_THAT(failureOf("p/none"), HasSubstr("failed: behaviour 'p/none' has no program"));
    EXPECT_THAT(failureOf("p/plain"), HasSubstr("is not executable"));
    EXPECT_EQ(host->life().focusedActivity(), "p/go");
    EXPECT_THAT(running(), ElementsAre("p/go"));
}

TEST_F(ActivitiesTest, StepMayRelyOnTheStepsBeforeIt)
{
    host->life().setAsleep(true);
    clock->runPending();
    told();
    raise("A", 1);
    EXPECT_THAT(told(), ElementsAre("hit wake", "done ApiCall", "focus p/go", "done SwitchFocus"));
    host->life().stopFocus();
    EXPECT_THAT(running(), IsEmpty());
}

/// Real time: the program ends when it is told to.
TEST_F(ActivitiesTest, ProgramThatEndsByItselfGivesTheFocusBack)
{
    const std::string pipe = packages + "/p/pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const auto end = [&](const std::string& how) {
        std::promise<void> ended;  // set after the host was told: its connection is the older one
        auto link =
            vo::import("KRBehaviorManager").object()->connect("onBehaviorEnded", [&](const auto&) {
                ended.set_value();
            });
        std::ofstream(pipe) << how;
        await("the news of it", ended);
        link.disconnect();
    };
    const std::pair<const char*, const char*> ends[] = {{"exit 0", "it has ended"},
                                                        {"exit 3", "it ended with exit code 3"},
                                                        {"kill -9 $$", "it was ended by signal 9"}};
    for (const auto& [how, reason] : ends) {
        call("KRNimbra", "switchFocus", "p/ends");
        end(how);
        EXPECT_EQ(host->life().focusedActivity(), "p/ends") << "the loop has not run yet";
        clock->runPending();
        EXPECT_EQ(host->life().focusedActivity(), "");
        EXPECT_EQ(events.back()["reason"], reason);
    }
    call("KRNimbra", "switchFocus", "p/go");
    call("KRBehaviorManager", "startBehavior", "p/ends");
    end("exit 0");
    clock->runPending();
    EXPECT_EQ(host->life().focusedActivity(), "p/go") << "that was another's end";
}

TEST_F(ActivitiesTest, PackagesTakeEffectAtTheVirtualInstantAndEndWhatRunsWhenTheyGo)
{
    const vo::Duration before = clock->uptime();
    install();
    EXPECT_THAT(host->launchpad().getAutonomousActivityNames(), ElementsAre("new/go"));
    EXPECT_THAT(kept("new/go"), ElementsAre("language"));
    vo::Application::current().session().unregisterService("KRTextToSpeech");
    const auto other = KRModule::createModule<KRTextToSpeech>(host->life().getParentBroker());
    call("KRTextToSpeech", "setLanguage", "French");
    EXPECT_THAT(kept("new/go"), IsEmpty());
    raise("B", 1);
    EXPECT_EQ(host->life().focusedActivity(), "new/go");
    call("KRNimbra", "setAsleep", true);
    EXPECT_THAT(kept("new/go"), ElementsAre("canRunInSleep"));
    EXPECT_THAT(running(), ElementsAre("new/go")) << "what runs is not ended by the context";
    bool asleepAgain = false;
    auto unfollow =
        vo::import("ContextPermission").object()->followProperty("permissions", [&](const auto&) {
            if (!std::exchange(asleepAgain, true)) {
                host->life().setAsleep(true);
                failureOf("p/none");
            }
        });
    call("KRNimbra", "setAsleep", false);
    unfollow.disconnect();
    EXPECT_THAT(kept("new/go"), ElementsAre("canRunInSleep")) << "changed during the refresh";
    call("KRNimbra", "setAsleep", false);

    // The news of the old package's removal come when the new one has the focus already.
    vo::import("PackageManager").call("upgrade", folder.path() + "/new");
    host->life().switchFocus({"new/go", FocusRequest::kRestart});
    clock->runPending();
    EXPECT_THAT(running(), ElementsAre("new/go"));
    told();
    call("PackageManager", "removePkg", "new");
    EXPECT_THAT(told(), ElementsAre("focus "));
    EXPECT_THAT(running(), IsEmpty());
    EXPECT_EQ(clock->uptime(), before);
    EXPECT_THROW(vo::import("ContextPermission").call("getPermissionsCache", "new/go"),
                 std::runtime_error);

    install();
    const std::string up = packages + "/p/up";
    ASSERT_EQ(::mkfifo(up.c_str(), 0600), 0);
    call("KRNimbra", "switchFocus", "p/alone");  // the last behaviour of its package
    std::ifstream(up).get();                     // its program needs its file no more
    call("PackageManager", "removePkg", "new");
    EXPECT_EQ(host->life().focusedActivity(), "p/alone") << "another's package";
    call("PackageManager", "removePkg", "p");
    EXPECT_EQ(host->life().focusedActivity(), "");
    EXPECT_EQ(events.back()["reason"], "its package was removed");
}

TEST_F(ActivitiesTest, DialogRunsItsTopicUntilEitherSideEndsItOrTheServiceIsGone)
{
    const auto topic = [&] { return host->memory().getData("KRDialog/Topic").toString(); };
    call("KRNimbra", "switchFocus", "dialog:weather");
    EXPECT_EQ(topic(), "weather");
    call("KRNimbra", "switchFocus", "dialog:rain");
    EXPECT_EQ(topic(), "rain");
    call("dialog", "end");
    EXPECT_EQ(host->life().focusedActivity(), "");
    EXPECT_THAT(failureOf("dialog:"), HasSubstr("failed: the topic has no name"));
    call("KRNimbra", "switchFocus", "dialog:news");
    call("KRNimbra", "switchFocus", "p/go");
    EXPECT_EQ(topic(), "");
    call("KRNimbra", "switchFocus", "dialog:news");
    EXPECT_THAT(running(), IsEmpty());
    vo::Session& session = vo::Application::current().session();
    session.unregisterService("dialog");
    call("KRNimbra", "stopFocus");
    EXPECT_EQ(host->life().focusedActivity(), "");
    EXPECT_THAT(failureOf("dialog:news"), HasSubstr("refused: there is no service 'dialog'"));

    // Another one, whose topics end within their start.
    vo::Signal<std::string> ended;
    const auto object = std::make_shared<vo::ServiceObject>("dialog");
    object->method("start", [&](const std::string& name) { ended(name); })
        .method("stop", [](const std::string&) {})
        .signal("onEnded", ended);
    session.registerService(object);
    call("KRNimbra", "switchFocus", "dialog:brief");
    EXPECT_EQ(host->life().focusedActivity(), "");
    session.unregisterService("dialog");
    EXPECT_THAT(log.lines(vo::LogLevel::error), IsEmpty());
}

TEST_F(ActivitiesTest, StartThatIsGivenUpIsUndoneWhenItEndsUnlessTheActivityIsWantedAgain)
{
    std::vector<vo::Promise<void>> starts;
    std::vector<std::string> calls;
    const auto object = std::make_shared<vo::ServiceObject>("dialog");
    vo::Session& session = vo::Application::current().session();
    session.unregisterService("dialog");
    object
        ->method("start",
                 [&](const std::string& name) {
                     calls.push_back("start " + name);
                     starts.emplace_back();
                     return starts.back().future();
                 })
        .method("stop", [&](const std::string& name) { calls.push_back("stop " + name); });
    session.registerService(object);
    LifeService& life = host->life();
    const auto abandoned = life.switchFocus({"dialog:a"});
    life.stopAll();
    EXPECT_TRUE(abandoned.hasError());
    const auto wanted = life.switchFocus({"dialog:b"});
    starts[0].setValue();
    clock->runPending();
    EXPECT_THAT(calls, ElementsAre("start a", "start b", "stop a"));
    life.stopAll();
    const auto again = life.switchFocus({"dialog:b"});
    starts[1].setValue();
    clock->runPending();
    EXPECT_TRUE(wanted.hasError() && again.isRunning());
    starts[2].setValue();
    clock->runPending();
    EXPECT_EQ(life.focusedActivity(), "dialog:b");
    life.stopFocus();
    EXPECT_THAT(calls, ElementsAre("start a", "start b", "stop a", "start b", "stop b"));

    const auto hanging = life.switchFocus({"dialog:c"});
    clock->advance(kDefaultDeadline);
    EXPECT_THAT(hanging.error(), HasSubstr("it has not ended within 30 s"));
    starts[3].setValue();
    clock->runPending();
    EXPECT_EQ(calls.back(), "stop c");
    life.switchFocus({"dialog:d"});
    host->stop();  // what never comes is not waited for
    EXPECT_TRUE(life.switchFocus({"dialog:e"}).hasError());
    session.unregisterService("dialog");
}

/// Real time and threads: the program ignores that it is asked to end, and is killed two seconds
/// later.
TEST(ActivitiesOnThreadsTest, RulesGoOnWhileAProgramDoesNotStopAndAServiceHangs)
{
    const TemporaryFolder folder;
    folder.write("packages/p/package.yaml",
                 "{ConfigurationVersion: 1, Uuid: p, Version: 1, "
                 "Behaviors: [{Path: stubborn}]}");
    const std::string run = folder.write("packages/p/stubborn/run",
                                         "#!/bin/sh\ntrap '' TERM\n"
                                         "while :; do read -r line < pipe; done\n");
    std::filesystem::permissions(run, std::filesystem::perms::owner_all);
    const std::string pipe = folder.path() + "/packages/p/pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    std::string rules = rule("slow", "Slow",
                             "Action: ApiCall, ActionParameters: {Module: Slow, "
                             "Method: m}") +
                        rule("stop", "Stop", "Action: StopAll") +
                        rule("go", "Go", focusOn("p/stubborn"));
    constexpr int kRules = 20;
    for (int i = 0; i < kRules; ++i)
        rules += rule("quick" + std::to_string(i), "Quick",
                      std::string("Action: ApiCall, ActionParameters: ") +
                          (i % 2 == 0 ? "{Module: KRAudioDevice, Method: getOutputVolume}"
                                      : "{Module: KRMemory, Method: getData, Args: [Quick]}"));
    const std::string config = folder.write(
        "a.cfg",
        "ConfigurationDescription: d\nConfigurationVersion: \"2.0\"\nAutonomousActions:\n" + rules);
    std::promise<void> release;
    Happenings told;
    {
        const auto clock = vo::makeRealClock();
        EventStream stream(clock);
        const vo::Connection connection = stream.happened.connect([&](const Event& event) {
            if (const auto* const step = std::get_if<StepEnded>(&event.what))
                told.add(step->rule.name + " " + stepOutcomeName(step->outcome));
        });
        Host host(clock, stream, {config, folder.path() + "/packages"});
        const auto slow = std::make_shared<vo::ServiceObject>("Slow");
        slow->method("m", [&, released = release.get_future().share()] {
            told.add("called");
            released.wait();
        });
        vo::Application::current().session().registerService(slow);
        host.ready().wait();
        host.start();
        host.memory().raiseEvent("Go", 1);
        told.wait("go done");
        std::ofstream(pipe) << "\n";  // opened when the program reads: it ignores the signal now
        told.take(1);
        host.memory().raiseEvent("Slow", 1);
        host.memory().raiseEvent("Stop", 1);
        host.memory().raiseEvent("Quick", 1);
        for (const std::string& end : told.take(kRules + 1))
            EXPECT_TRUE(end == "called" || end.rfind("quick", 0) == 0) << end;
        EXPECT_EQ(host.life().focusedActivity(), "p/stubborn");
        told.wait("stop done");
        EXPECT_EQ(host.life().focusedActivity(), "");
        release.set_value();
        told.wait("slow done");
    }
}

}  // namespace
}  // namespace KR
