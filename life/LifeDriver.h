#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <string>

#include "launchpad/AutonomousAction.h"
#include "life/Event.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Future.h"
#include "platform/vo/Signal.h"
#include "platform/vo/Value.h"

namespace KR {

class CheckerScript;
class NimbraLaunchpad;

/// Drives a life in place of a robot and its clock, so that it can be lived again: decides when the
/// turns of life/ come, answers its requests, and stands between it and memory.
///
/// All of it is called by the thread that the life is lived on.
class LifeDriver {
public:
    virtual ~LifeDriver() = default;

    /// A turn that wants to come, after that time at the earliest. It is run once, or never, and
    /// inside of this call only if somebody outside asks for it.
    virtual void hold(const Happening& begin, vo::Duration delay, std::function<void()> turn) = 0;
    /// A timer's turn that is not wanted any more.
    virtual void drop(const TimerFired& begin) = 0;

    /// The answer to a request.
    virtual vo::Future<vo::Value> answer(std::uint64_t number, const std::string& text) = 0;

    /// See NimbraLaunchpad::getActionSuggestions.
    virtual std::list<AutonomousAction> suggestions(const NimbraLaunchpad& launchpad, int mask) = 0;

    /// What the life service writes to memory.
    virtual void write(const std::string& key, const KRValue& value) = 0;

    /// What has the condition checker move; null to leave that to the clock.
    virtual CheckerScript* checker() = 0;

    /// To be told by the driver: an activity has ended by itself; see ActivityRunner.
    vo::Signal<FocusId, std::string> activityEnded;
};

}  // namespace KR
