#include "permission/ContextPermission.h"
#include "platform/packages/BehaviorsCache.h"
#include "tests/launchpad/LaunchpadTest.h"

namespace KR {
namespace {

using vo::LogLevel;

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
    EXPECT_THAT(platform.log.lines(LogLevel::warning),
                ElementsAre(HasSubstr("Tried to remove a non mapped behavior action for: p/b")));
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
    services.packages = {{"none", ""},
                         dialog,
                         launchedPackage(".lastUploadedKinetorBehavior"),
                         launchedPackage("p"),
                         {"sleepreactions", ""},
                         {"launchpadplugintouchtablet", ""}};
    BehaviorsCache cache;
    ContextPermission permission(platform.broker, &cache, nullptr);
    launchpad.emplace(platform.broker, &permission, &responder);

    EXPECT_THAT(launchpad->getAutonomousActivityNames(), ElementsAre("p/b"));
    const std::string declared = "_declarePathForTagsPermanently run_dialog/[robot]/[posture]";
    EXPECT_THAT(services.calls, ElementsAre("removePkg launchpadplugintouchtablet",
                                            "removePkg sleepreactions", declared));
    EXPECT_THAT(platform.log.lines(LogLevel::warning),
                Contains(HasSubstr("Ignoring conditions for run_dialog*, life configur")));
    EXPECT_NO_THROW(permission.getPermissionsCache("run_dialog/b"));
    change(services.removed, dialog);
    EXPECT_THROW(permission.getPermissionsCache("run_dialog/b"), std::runtime_error);
    change(services.installed, dialog);
    EXPECT_THAT(launchpad->getAutonomousActivityNames(), ElementsAre("p/b", "run_dialog/b"));

    // The reflexes cannot be declared any more, now that signals are connected.
    services.objects[1]->close();
    const auto construct = [&] { NimbraLaunchpad(platform.broker, nullptr, &responder); };
    EXPECT_THROW(construct(), std::runtime_error);
    change(services.installed, dialog);  // does not reach what was not constructed
    platform.application.session().unregisterService("PackageManager");
    EXPECT_THAT(construct, testing::ThrowsMessage<std::runtime_error>("This object is null"));
    EXPECT_THAT(platform.log.lines(LogLevel::error),
                Contains(HasSubstr("Can't remove deprecated package: ")).Times(4));
}

}  // namespace
}  // namespace KR
