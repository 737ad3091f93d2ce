#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>
#include <string>

#include "launchpad/AutonomousAction.h"
#include "life/FocusQueue.h"
#include "life/FrozenChains.h"
#include "life/LifeStatus.h"
#include "life/Requests.h"
#include "life/ServiceCalls.h"
#include "life/StepResult.h"
#include "platform/vo/Future.h"

namespace KR {

/// Does something, and turns what it throws into the result.
StepResult attempt(const std::function<StepResult()>& step);

/// What becomes of something that ends later: `toResult` is given the future when it has ended, and
/// may throw. The result itself never fails.
template <class T, class F>
vo::Future<StepResult> resultOf(const vo::Future<T>& future, F toResult)
{
    const vo::Promise<StepResult> promise;
    future.then([promise, toResult](const vo::Future<T>& ended) {
        promise.setValue(attempt([&] { return toResult(ended); }));
    });
    return promise.future();
}

class ApiWrapper;
/// Makes a call, right here, and tells what it returned.
vo::Future<StepResult> makeCall(const ApiWrapper& call);

/// Who brings about what a step changes, and how long the step may take: its parameter "Deadline",
/// whole seconds, 1 or more (std::runtime_error otherwise), or kDefaultDeadline.
Cause causeOf(const AutonomousActionItem& item, const std::string& rule);
/// What a step SwitchFocus wishes for; std::runtime_error when a parameter is missing.
FocusRequest focusRequestOf(const AutonomousActionItem& item, const Cause& cause);

/// Carries out single steps of actions, for real: all but SwitchFocus, which is to be prepared.
/// Thread-safe; what it is made of outlives it.
class ActionRunner {
public:
    ActionRunner(LifeStatus& status, FrozenChains& chains, FocusQueue& focus, ServiceCalls& calls,
                 Requests& requests, Turns& turns)
        : status_(status),
          chains_(chains),
          focus_(focus),
          calls_(calls),
          requests_(requests),
          turns_(turns)
    {
    }

    /// Begins one step, and waits for nothing that takes its time. What goes wrong is the result.
    vo::Future<StepResult> run(const AutonomousActionItem& item, const Cause& cause) const;

private:
    vo::Future<StepResult> begin(const AutonomousActionItem& item, const Cause& cause) const;
    void change(const AutonomousActionItem& item, const std::string& rule) const;
    vo::Future<StepResult> configure(const AutonomousActionItem& item, const Cause& cause) const;
    vo::Future<StepResult> changeLife(const ApiWrapper& call, const Cause& cause) const;
    vo::Future<StepResult> call(const AutonomousActionItem& item, const Cause& cause) const;

    LifeStatus& status_;
    FrozenChains& chains_;
    FocusQueue& focus_;
    ServiceCalls& calls_;
    Requests& requests_;
    Turns& turns_;
};

/// A step for people, on one line: "SwitchFocus companion/greet", `ApiCall KRLeds.fade("eyes", 1)`.
std::string describeStep(const AutonomousActionItem& item);

/// A call for people: `KRLeds.fade("eyes", 1)`.
std::string describeCall(const ApiWrapper& call);

}  // namespace KR
