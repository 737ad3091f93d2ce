#include <future>

#include "permission/ContextPermission.h"
#include "platform/packages/BehaviorsCache.h"
#include "platform/vo/Executor.h"
#include "tests/launchpad/LaunchpadTest.h"
#include "tests/support/Happenings.h"

namespace KR {
namespace {

TEST_F(LaunchpadTest, firstLaunchTrigger_becomesAGuardedSwitchOfFocus)
{
    const std::string description = "Action swithFocus to behavior p/b";
    const std::string state =
        R"(('K') && 'Nimbra/State'!="disabled" && 'Nimbra/State'!="safeguard")";
    const std::string solitary = state + R"( && 'Nimbra/State'=="solitary")";
    const std::string offPod = ") && !'KRBattery/ConnectedToChargingStation'";
    const std::string awake = ") && !'Nimbra/Asleep'";
    const std::tuple<std::string, Names, std::string> rows[] = {
        {"solitary", {}, "((" + solitary + offPod + awake},
        {"interactive", {"canRunOnPod"}, "(" + state + awake},
        {"", {"canRunInSleep"}, "(" + state + offPod},
        {"solitary", {"canRunOnPod", "canRunInSleep"}, solitary}};
    unsigned id = 0;
    for (const auto& [nature, permissions, condition] : rows) {
        vo::BehaviorInfo behavior("b");
        behavior.setNature(nature);
        behavior.addCondition("launchTrigger", "'K'");
        for (const std::string& permission : permissions)
            behavior.addPermission(permission);
        const auto installed = launchedPackage("p", behavior);  // adds a second trigger
        change(services.installed, installed);
        const std::vector<AutonomousActionItem> items = {{1, {{"Activity", "p/b"}}}};
        const AutonomousAction expected{description, "Package", items, condition, ++id,
                                        1,           {},        {},    {}};
        EXPECT_EQ(vo::toValue(launchpad->getAction(description)), vo::toValue(expected));
        EXPECT_TRUE(access.checker().hasCondition(id));
        change(services.removed, installed);
        EXPECT_TRUE(access.actions().empty() && access.conditions().empty());
        EXPECT_FALSE(access.checker().hasCondition(id));
    }
}

TEST_F(LaunchpadTest, failuresInAPackageChange_areLoggedAndTheRestIsDone)
{
    vo::BehaviorInfo reflex("reflex");
    reflex.addTag("English", "hello");
    reflex.addTag("French", "DialogReflex/salut");
    vo::PackageInfo package = pluginPackage("p", {"one", "two"});
    package.addBehavior(launchedPackage("p", reflex).behaviors().front());
    services.failing = {"_declarePathForTagsPermanently p/[robot]/[posture]"};
    responder.onCall = [] { throw std::runtime_error("no hands"); };
    access.plugins().clear();
    logged();
    change(services.installed, package);
    EXPECT_THAT(access.plugins(), ElementsAre(testing::Key("p/one"), testing::Key("p/two")));
    EXPECT_THAT(launchpad->getAutonomousActivityNames(), ElementsAre("p/reflex"));
    folder.write("two/nimbraLaunchpadPlugin.xml", "<");
    change(services.installed, package);
    EXPECT_EQ(responder.pluginChanges, 2);
    access.actions().erase(3);
    change(services.removed, package);
    EXPECT_TRUE(access.plugins().empty() && launchpad->getAutonomousActivityNames().empty());
    EXPECT_EQ(services.calls.size(), 2U) << "none of them for the removal";
    EXPECT_EQ(logged(),
              R"(error _onPackageChanged: Can't process package change for package: p: broken
error _onPackageChanged: Cant process added plugins: no hands
error _addBehaviorPlugin: Could not load Launchpad Plugin: p/two NimbraLaunchpadPlugin::_loadInfo: parse error
error _onPackageChanged: Can't process package change for package: p: broken
error _onPackageChanged: Cant process added plugins: no hands
warning _unregisterActionCondition: _unregisterActionCondition called with invalid action id: 3, or empty condition.  Will remove action id
)");
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
    for (const char* launched : {"b", "d"}) {
        vo::BehaviorInfo activity(launched);
        activity.addTag("English", "no DialogReflex/");
        mixed.addBehavior(launchedPackage("p", activity).behaviors().front());
    }
    services.packages = {{"none", ""},
                         dialog,
                         launchedPackage("run_dialog_dev"),
                         launchedPackage(".lastUploadedKinetorBehavior"),
                         mixed};
    for (const char* deprecated :
         {"sleepreactions", "standbyreactions", "launchpadplugintouchtablet"})
        services.packages.emplace_back(deprecated, "");
    services.failing = {"hasPackage default_launchpad_plugins", "removePkg standbyreactions"};
    BehaviorsCache cache;
    ContextPermission permission(platform.broker, &cache, nullptr);
    logged();
    comeUp(&permission);

    EXPECT_THAT(launchpad->getAutonomousActivityNames(), ElementsAre("p/b", "p/d"));
    for (const char* plugin : {"p/a", "p/c"})
        EXPECT_EQ(NimbraLaunchpadTestAccess{*launchpad}.plugins().count(plugin), 1U);
    EXPECT_EQ(services.calls.back(), "_declarePathForTagsPermanently run_dialog/[robot]/[posture]");
    EXPECT_EQ(services.calls.size(), 4U) << "with three removals";
    EXPECT_THAT(
        logged(),
        HasSubstr(
            R"(info _removeDeprecatedPackage: Removed deprecated package launchpadplugintouchtablet
error _removeDeprecatedPackage: Can't remove deprecated package: default_launchpad_plugins: broken
error _removeDeprecatedPackage: Can't remove deprecated package: standbyreactions: broken
info _removeDeprecatedPackage: Removed deprecated package sleepreactions
warning _initPackageData: Ignoring conditions for run_dialog*, life configuration now controls collaborative dialog and when to enter interactive state
warning _initPackageData: Ignoring conditions for run_dialog*, life configuration now controls collaborative dialog and when to enter interactive state
error )"));
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
    // The changes, what is read, and what there is in the end, with the highest id of an action.
    const std::tuple<std::function<void()>, std::vector<vo::PackageInfo>, Names, unsigned> rows[] =
        {
            {[&] { in(b), in(q); }, {b, q}, {"p/b", "q/b"}, 3},
            {[&] { out(b), out(q); }, {b, q}, {}, 0},
            {[&] { in(b), out(b), in(q); }, {b}, {"q/b"}, 3},
            {[&] { out(b), in(b); }, {b, q}, {"p/b", "q/b"}, 4},
            {[&] { out(b), in(c); }, {b}, {"p/c"}, 3},
            {[&] { in(b), out(b), in(c); }, {c}, {"p/c"}, 4},
            {[&] { in(c); }, {b}, {"p/c"}, 3},
        };
    for (const auto& [changes, listed, activities, id] : rows) {
        SCOPED_TRACE(&changes - &std::get<0>(rows[0]));
        services.onPackages = changes;
        services.packages = listed;
        comeUp();
        NimbraLaunchpadTestAccess its{*launchpad};
        logged();
        platform.runPending();
        EXPECT_EQ(launchpad->getAutonomousActivityNames(), activities);
        EXPECT_EQ(its.actions().size(), activities.size());
        EXPECT_EQ(its.conditions().size(), activities.size());
        EXPECT_EQ(its.actions().empty() ? 0 : its.actions().rbegin()->first, id);
        EXPECT_EQ(logged(), "");
        change(services.installed, c);
        EXPECT_EQ(its.actions().size(), activities.size() + 1) << "later ones count as they come";
    }
}

TEST_F(LaunchpadThreads, launchpadThatWaitsForAService_canBeDestroyed)
{
    FakeServices services(application.session());
    application.session().unregisterService("KRBehaviorManager");
    folder.write("b/nimbraLaunchpadPlugin.xml", "<nimbraLaunchpadPlugin/>");
    vo::PackageInfo package("p", folder.path());
    vo::BehaviorInfo malformed("a");  // the log tells that it was reached
    malformed.addCondition("launchTrigger", "'K' ==");
    package.addBehavior(malformed);
    package.addBehavior(vo::BehaviorInfo("b"));
    auto launchpad = std::make_unique<NimbraLaunchpad>(broker, nullptr, &responder);
    Happenings labels;
    const vo::LogListener listener([&](const vo::LogRecord& record) { labels.add(record.label); });
    services.installed(package);
    labels.wait("_registerActionCondition");
    auto gone = std::async(std::launch::async, [&] { launchpad.reset(); });
    EXPECT_EQ(gone.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    application.session().registerService(  // for one that still waits
        std::make_shared<vo::ServiceObject>("KRBehaviorManager"));
}

}  // namespace
}  // namespace KR
