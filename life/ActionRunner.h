#pragma once

#include <functional>
#include <string>

#include "launchpad/AutonomousAction.h"
#include "life/LifeService.h"
#include "life/StepResult.h"

namespace KR {

/// Does something, and turns what it throws into the result.
StepResult attempt(const std::function<StepResult()>& deed);

class ApiWrapper;
/// Makes a call, and tells what it returned.
StepResult callResult(const ApiWrapper& call);

/// Carries out single steps of actions, for real. Thread-safe; the life service outlives it.
class ActionRunner {
public:
    explicit ActionRunner(LifeService& life) : life_(life) {}

    /// Carries out one step, which may take as long as what it calls. Throws nothing: what goes
    /// wrong is the result.
    StepResult run(const AutonomousActionItem& item) const;

private:
    StepResult carryOut(const AutonomousActionItem& item) const;

    LifeService& life_;
};

/// A step for people, on one line: "SwitchFocus companion/greet", `ApiCall KRLeds.fade("eyes", 1)`.
std::string describeStep(const AutonomousActionItem& item);

/// A call for people: `KRLeds.fade("eyes", 1)`.
std::string describeCall(const ApiWrapper& call);

}  // namespace KR
