#include "explain/RuleSource.h"

#include "launchpad/NimbraLaunchpad.h"

namespace KR {

namespace {

constexpr const char* kTrigger = "launchTrigger";

/// As NimbraLaunchpad guards it.
std::string guardedCondition(const vo::BehaviorInfo& behavior)
{
    const std::string state = " && 'Nimbra/State'";
    std::string text = "(" + behavior.conditions(kTrigger).front() + ")" + state +
                       "!=\"disabled\"" + state + "!=\"safeguard\"";
    if (behavior.nature() == "solitary")
        text += state + "==\"solitary\"";
    if (!behavior.hasPermission(vo::BehaviorInfo::k_permCanRunOnPod))
        text = "(" + text + ") && !'KRBattery/ConnectedToChargingStation'";
    if (!behavior.hasPermission(vo::BehaviorInfo::k_permCanRunInSleep))
        text = "(" + text + ") && !'Nimbra/Asleep'";
    return text;
}

}  // namespace

std::vector<RuleSource> rulesOfPackage(const vo::PackageInfo& package)
{
    std::vector<RuleSource> rules;
    for (const vo::BehaviorInfo& behavior : package.behaviors()) {
        if (!NimbraLaunchpad::isAutonomousActivity(package, behavior))
            continue;
        const std::string key = vo::behaviorKey(package, behavior);
        RuleSource source;
        source.package = package.uuid();
        source.rule.description = "Action swithFocus to behavior " + key;
        source.rule.origin = "Package";
        source.rule.items = {{ActionItemSwitchFocus, {{"Activity", key}}}};
        source.rule.condition = guardedCondition(behavior);
        source.rule.synchronicity = ExecuteAnyTimeConditionTrue;
        rules.push_back(std::move(source));
    }
    return rules;
}

}  // namespace KR
