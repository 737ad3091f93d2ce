#include "permission/ContextPermission.h"
#include "platform/packages/BehaviorsCache.h"
#include "tests/launchpad/LaunchpadTest.h"

namespace KR {
namespace {

using testing::PrintToString;

const Names kBoth{"canRunOnPod", "canRunInSleep"};
const Names kPermissionSets[] = {{}, {kBoth[0]}, {kBoth[1]}, kBoth};

struct GuardTest : LaunchpadTest {
    /// Installs a behaviour of every nature and set of permissions, launched at any time.
    void addPackage(const std::string& uuid, const Names& languages)
    {
        vo::PackageInfo package(uuid, "/nowhere");
        for (const std::string& language : languages)
            package.addSupportedLanguage(language);
        for (const char* nature : {"", "solitary", "interactive"}) {
            for (const Names& permissions : kPermissionSets) {
                vo::BehaviorInfo behavior(nature + PrintToString(permissions));
                behavior.setNature(nature);
                behavior.addCondition("launchTrigger", "true");
                for (const std::string& permission : permissions)
                    behavior.addPermission(permission);
                package.addBehavior(behavior);
            }
        }
        services.packages.push_back(package);
    }
};

TEST_F(GuardTest, permissionAndLaunchCondition_agreeWhateverTheContext)
{
    platform.addService("KRTextToSpeech", "locale", [] { return std::string("English"); });
    addPackage("any", {});
    addPackage("polyglot", {"French", "English"});
    addPackage("foreign", {"French"});
    BehaviorsCache behaviors;
    ContextPermission permission(platform.broker, &behaviors, nullptr);
    permission.connectSignals();
    launchpad.emplace(platform.broker, &permission, nullptr);
    ConditionChecker checker;
    checker.connect(platform.broker);
    std::map<std::string, unsigned> conditions;
    for (const std::string& activity : launchpad->getAutonomousActivityNames())
        conditions[activity] = checker.addCondition(
            launchpad->getAction("Action swithFocus to behavior " + activity).condition,
            ConditionChecker::ReportNever);
    ASSERT_EQ(conditions.size(), 36U);
    checker.run(0, false);

    const KRValue flags[] = {{}, false, true, 0, -1};  // what both take for a flag
    std::vector<KRValue::Array> contexts;
    for (const char* state : {"disabled", "safeguard", "solitary", "interactive", "dancing", ""})
        for (const KRValue& onPod : flags)
            for (const KRValue& asleep : flags)
                contexts.push_back({state, onPod, asleep});
    for (const KRValue::Array& context : contexts) {
        SCOPED_TRACE(PrintToString(KRValue(context)));
        platform.memory().raiseEvent("Nimbra/State", context[0]);
        platform.memory().raiseEvent("KRBattery/ConnectedToChargingStation", context[1]);
        platform.memory().raiseEvent("Nimbra/Asleep", context[2]);
        platform.runPending();
        for (const auto& [activity, id] : conditions) {
            const Names refused = permission.checkPermissionViolations(activity);
            const std::size_t foreign = activity.rfind("foreign/", 0) == 0;
            EXPECT_EQ(std::count(refused.begin(), refused.end(), "language"), foreign) << activity;
            EXPECT_EQ(refused.size() == foreign, checker.isConditionTrue(id)) << activity;
        }
    }
}

}  // namespace
}  // namespace KR
