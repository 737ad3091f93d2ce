#include <future>

#include "permission/ContextPermission.h"
#include "platform/packages/BehaviorsCache.h"
#include "platform/vo/Executor.h"
#include "plugins/NimbraLaunchpadPluginBehavior.h"
#include "tests/launchpad/LaunchpadTest.h"

namespace KR {
namespace {

TEST_F(LaunchpadTest, firstLaunchTrigger_becomesAGuardedSwitchOfFocus)
{
    const std::string core =
        R"(('K') && 'Nimbra/State'!="disabled" && 'Nimbra/State'!="safeguard")";
    const std::tuple<const char*, Names, std::string> rows[] = {
        {"interactive", {"canRunOnPod", "canRunInSleep"}, core},
        {"solitary",
         {},
         R"(((('K') && 'Nimbra/State'!="disabled" && 'Nimbra/State'!="safeguard" && )"
         R"('Nimbra/State'=="solitary") && !'KRBattery/ConnectedToChargingStation') && )"
         R"(!'Nimbra/Asleep')"}};
    for (const auto& [nature, permissions, condition] : rows) {
        vo::BehaviorInfo behavior("b");
        behavior.setNature(nature);
        for (const std::string& permission : permissions)
            behavior.addPermission(permission);
        behavior.addCondition("launchTrigger", "'K'");
        const auto installed = launchedPackage("p", behavior);  // adds a second trigger
        change(services.installed, installed);

        const std::string description = "Action swithFocus to behavior p/b";
        AutonomousAction made = launchpad->getAction(description);
        EXPECT_TRUE(access.checker().hasCondition(std::exchange(made.conditionId, 0)));
        const AutonomousActionItem item{1, {{"Activity", "p/b"}}};
        EXPECT_EQ(vo::toValue(made),
                  vo::toValue(AutonomousAction{
                      description, "Package", {item}, condition, 0, 1, {}, {}, {}}));
        change(services.removed, installed);
        EXPECT_TRUE(access.actions().empty() && access.conditions().empty());
    }
}

TEST_F(LaunchpadTest, behaviourAddedTwice_leavesItsOlderActionBehind)
{
    change(services.installed, launchedPackage("p"));
    change(services.installed, launchedPackage("p"));
    EXPECT_THAT(access.actions(), ElementsAre(testing::Key(2), testing::Key(3)));
    EXPECT_THAT(launchpad->getAutonomousActivityNames(), ElementsAre("p/b"));
    change(services.removed, launchedPackage("p"));
    EXPECT_TRUE(launchpad->getAutonomousActivityNames().empty());
    change(services.removed, launchedPackage("p"));
    EXPECT_THAT(access.actions(), ElementsAre(testing::Key(2)));
    EXPECT_EQ(logged().back(),
              "warning _removeBehaviorAction: Tried to remove a non mapped "
              "behavior action for: p/b");
    access.scan();
    EXPECT_THAT(logged(), ElementsAre("info _initPackageData: Deleted all actions from packages."));
    EXPECT_TRUE(access.actions().empty());
}

TEST_F(LaunchpadTest, failuresInAPackageChange_areLoggedAndTheRestIsDone)
{
    vo::PackageInfo package = pluginPackage("p", {"one", "two"});
    vo::BehaviorInfo reflex("reflex");
    reflex.addTag("English", "no DialogReflex/");
    reflex.addTag("French", "DialogReflex/salut");
    reflex.addCondition("launchTrigger", "'K'");
    package.addBehavior(reflex);
    package.addBehavior(vo::BehaviorInfo("three"));
    services.failing = {"_declarePathForTagsPermanently p/[robot]/[posture]"};
    responder.onCall = [] { throw std::runtime_error("no hands"); };
    access.plugins().clear();
    logged();
    const std::string broken =
        "error _onPackageChanged: Can't process package change for package: p: broken";
    const std::string noHands = "error _onPackageChanged: Cant process added plugins: no hands";
    change(services.installed, package);
    EXPECT_THAT(logged(), ElementsAre(broken, noHands));
    EXPECT_THAT(access.plugins(), ElementsAre(testing::Key("p/one"), testing::Key("p/two")));
    EXPECT_THAT(launchpad->getAutonomousActivityNames(), ElementsAre("p/reflex"));

    for (const char* behavior : {"one", "two"})
        folder.write(std::string(behavior) + "/nimbraLaunchpadPlugin.xml", "<");
    change(services.installed, package);
    const std::string cannot = "error _addBehaviorPlugin: Could not load Launchpad Plugin: p/";
    const std::string why = " NimbraLaunchpadPlugin::_loadInfo: parse error";
    EXPECT_THAT(logged(), ElementsAre(cannot + "one" + why, cannot + "two" + why, broken, noHands));
    EXPECT_EQ(responder.pluginChanges, 2);
    access.actions().erase(3);
    change(services.removed, package);
    EXPECT_TRUE(access.plugins().empty());
    EXPECT_THAT(launchpad->getAutonomousActivityNames(), IsEmpty());
    EXPECT_THAT(logged(), ElementsAre(HasSubstr("with invalid action id: 3, or empty condition.")));
    EXPECT_EQ(services.calls.size(), 2U) << "of the reflexes, and none for a removal";
}

TEST_F(LaunchpadTest, startUp_readsWhatIsInstalled)
{
    folder.write("tessel/autonomy.cfg",
                 "{ConfigurationDescription: d, ConfigurationVersion: 2, DialogFocusPolicy: "
                 "no_focus, AutonomousActions: []}");
    vo::BehaviorInfo behavior("b");
    behavior.setUserRequestable(true);
    for (const char* tag : {"Dialog", "DialogReflex/hi", "DialogReflex/bye"})
        behavior.addTag("English", tag);
    const auto dialog = launchedPackage("run_dialog", behavior);
    vo::PackageInfo mixed = pluginPackage("p", {"a", "c"});
    for (const char* launched : {"b", "d"})
        mixed.addBehavior(launchedPackage("p", vo::BehaviorInfo(launched)).behaviors().front());
    services.packages = {{"none", ""},
                         dialog,
                         launchedPackage("run_dialog_dev"),
                         launchedPackage(".lastUploadedKinetorBehavior"),
                         mixed};
    const Names deprecated{"launchpadplugintouchtablet", "default_launchpad_plugins",
                           "standbyreactions", "sleepreactions"};
    for (const std::string& uuid : {deprecated[3], deprecated[2], deprecated[0]})
        services.packages.emplace_back(uuid, "");
    services.failing = {"hasPackage " + deprecated[1], "removePkg " + deprecated[2]};
    BehaviorsCache cache;
    ContextPermission permission(platform.broker, &cache, nullptr);
    logged();
    launchpad.emplace(platform.broker, &permission, &responder);

    EXPECT_THAT(launchpad->getAutonomousActivityNames(), ElementsAre("p/b", "p/d"));
    for (const char* plugin : {"p/a", "p/c"})
        EXPECT_EQ(NimbraLaunchpadTestAccess{*launchpad}.plugins().count(plugin), 1U);
    EXPECT_THAT(services.calls,
                ElementsAre("removePkg " + deprecated[0], "removePkg " + deprecated[2],
                            "removePkg " + deprecated[3],
                            "_declarePathForTagsPermanently run_dialog/[robot]/[posture]"));
    Names lines = logged();
    const std::string place = " _removeDeprecatedPackage: ";
    const std::string ignored =
        "warning _initPackageData: Ignoring conditions for run_dialog*, life configuration now "
        "controls collaborative dialog and when to enter interactive state";
    lines.resize(7);
    EXPECT_THAT(
        lines,
        ElementsAre(
            HasSubstr("Using"), "info" + place + "Removed deprecated package " + deprecated[0],
            "error" + place + "Can't remove deprecated package: " + deprecated[1] + ": broken",
            "error" + place + "Can't remove deprecated package: " + deprecated[2] + ": broken",
            "info" + place + "Removed deprecated package " + deprecated[3], ignored, ignored));
    EXPECT_NO_THROW(permission.getPermissionsCache("run_dialog/b"));
    change(services.removed, dialog);
    EXPECT_THROW(permission.getPermissionsCache("run_dialog/b"), std::runtime_error);
    change(services.installed, dialog);
    EXPECT_THAT(launchpad->getAutonomousActivityNames(), ElementsAre("p/b", "p/d", "run_dialog/b"));

    launchpad.reset();  // it follows neither signal any more
    change(services.removed, dialog);
    EXPECT_NO_THROW(permission.getPermissionsCache("run_dialog/b"));
    permission.onBehaviorsRemoved(dialog, dialog.behaviors());
    change(services.installed, dialog);
    EXPECT_THROW(permission.getPermissionsCache("run_dialog/b"), std::runtime_error);

    // The reflexes cannot be declared any more, now that signals are connected.
    services.objects[1]->close();
    const auto construct = [&] { NimbraLaunchpad(platform.broker, nullptr, &responder); };
    EXPECT_THROW(construct(), std::runtime_error);
    change(services.installed, dialog);  // does not reach what was not constructed
    platform.application.session().unregisterService("PackageManager");
    EXPECT_THAT(construct, testing::ThrowsMessage<std::runtime_error>("This object is null"));
}

TEST_F(LaunchpadTest, packageChangesDuringConstruction_leaveWhatTheySayOnce)
{
    const auto b = launchedPackage("p");
    const auto c = launchedPackage("p", vo::BehaviorInfo("c"));  // replaces it
    const auto q = launchedPackage("q");
    const auto in = [&](const vo::PackageInfo& package) { services.installed(package); };
    const auto out = [&](const vo::PackageInfo& package) { services.removed(package); };
    const std::tuple<std::function<void()>, std::vector<vo::PackageInfo>, Names> rows[] = {
        {[&] { in(b), in(q); }, {b, q}, {"p/b", "q/b"}},
        {[&] { in(b), in(q); }, {}, {"p/b", "q/b"}},
        {[&] { out(b), out(q); }, {b, q}, {}},
        {[&] { out(b), out(q); }, {}, {}},
        {[&] { in(b), out(b), in(q); }, {b}, {"q/b"}},
        {[&] { out(b), in(b); }, {b, q}, {"p/b", "q/b"}},
        {[&] { out(b), in(c); }, {b}, {"p/c"}},
        {[&] { out(b), in(c); }, {c}, {"p/c"}},
        {[&] { in(b), out(b), in(c); }, {c}, {"p/c"}},
        {[&] { in(c); }, {b}, {"p/c"}},
    };
    for (const auto& [changes, listed, activities] : rows) {
        SCOPED_TRACE(&changes - &std::get<0>(rows[0]));
        services.onPackages = changes;
        services.packages = listed;
        launchpad.emplace(platform.broker, nullptr, &responder);
        NimbraLaunchpadTestAccess its{*launchpad};
        logged();
        platform.runPending();
        EXPECT_EQ(launchpad->getAutonomousActivityNames(), activities);
        EXPECT_EQ(its.actions().size(), activities.size());
        EXPECT_EQ(its.conditions().size(), activities.size());
        EXPECT_THAT(logged(), IsEmpty());
        change(services.installed, c);
        EXPECT_EQ(its.actions().size(), activities.size() + 1) << "later ones count as they come";
    }
}

/// Of another thread, which has this long for it.
constexpr std::chrono::seconds kLimit{20};

TEST_F(LaunchpadThreads, packageRemovedWhileItIsRead_leavesNothing)
{
    FakeServices services(application.session());
    services.packages = {launchedPackage("p")};
    const auto awaitSignals = [&] {
        std::promise<void> reached;
        application.signalExecutor().post([&] { reached.set_value(); });
        reached.get_future().wait();
    };
    services.onPackages = [&] {
        services.removed(services.packages.front());
        awaitSignals();
    };
    NimbraLaunchpad launchpad(broker, nullptr, &responder);
    awaitSignals();
    EXPECT_THAT(launchpad.getAutonomousActivityNames(), IsEmpty());
    EXPECT_TRUE(NimbraLaunchpadTestAccess{launchpad}.actions().empty());
    EXPECT_THAT(log.lines(vo::LogLevel::warning), IsEmpty());
}

TEST_F(LaunchpadThreads, launchpadThatWaitsForAService_canBeDestroyed)
{
    FakeServices services(application.session());
    application.session().unregisterService(NimbraLaunchpadPluginBehavior::kBehaviorManager);
    folder.write("b/nimbraLaunchpadPlugin.xml", "<nimbraLaunchpadPlugin/>");
    vo::PackageInfo package("p", folder.path());
    package.addBehavior(vo::BehaviorInfo("b"));
    auto launchpad = std::make_unique<NimbraLaunchpad>(broker, nullptr, &responder);
    std::promise<void> begun;
    application.signalExecutor().post([&] { begun.set_value(); });
    services.installed(package);
    begun.get_future().wait();
    auto gone = std::async(std::launch::async, [&] { launchpad.reset(); });
    EXPECT_EQ(gone.wait_for(kLimit), std::future_status::ready);
    application.session().registerService(  // for one that still waits
        std::make_shared<vo::ServiceObject>(NimbraLaunchpadPluginBehavior::kBehaviorManager));
}

}  // namespace
}  // namespace KR
