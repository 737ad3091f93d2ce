#include "life/LifeService.h"

#include <set>

#include "life/FocusQueue.h"
#include "life/FrozenChains.h"
#include "life/LifeStatus.h"
#include "life/Responder.h"
#include "life/Turns.h"

namespace KR {

LifeService::LifeService(const boost::shared_ptr<KRBroker>& broker, Turns& turns,
                         LifeStatus& status, FrozenChains& chains, FocusQueue& focus,
                         Responder& responder)
    : KRModule(broker, kName),
      changed(status.changed),
      turns_(turns),
      status_(status),
      chains_(chains),
      focus_(focus),
      responder_(responder)
{
    setModuleDescription("The robot's life: state, sleep, focus, frozen chains");
    bindService();
}

void LifeService::bindService()
{
    bindMethod("getState", &LifeService::getState, this, "The life state");
    bindMethod("setState", &LifeService::serviceSetState, this, "Changes the life state",
               {{"state", "disabled, safeguard, solitary or interactive"}});
    bindMethod("forceState", &LifeService::serviceForceState, this,
               "Changes the life state whatever stands against it",
               {{"state", "disabled, safeguard, solitary or interactive"}});
    bindMethod("isAsleep", &LifeService::isAsleep, this, "Whether the robot sleeps");
    bindMethod("setAsleep", &LifeService::setAsleep, this, "Sends it to sleep or wakes it",
               {{"asleep", "true to send it to sleep"}});
    bindMethod("switchFocus", &LifeService::serviceSwitchFocus, this, "Starts an activity",
               {{"activity", "its name"}});
    bindMethod("stopFocus", &LifeService::serviceStopFocus, this, "Ends the focused activity");
    bindMethod("stopAll", &LifeService::serviceStopAll, this,
               "Ends the focused activity, and forgets what waits for its turn");
    bindMethod("focusedActivity", &LifeService::focusedActivity, this,
               "The activity that has the focus, or an empty text");
    bindMethod("blockAutonomousFocus", &LifeService::blockAutonomousFocus, this,
               "Refuses switches of focus by rules from now on");
    bindMethod("unblockAutonomousFocus", &LifeService::unblockAutonomousFocus, this,
               "Ends the block of autonomous focus");
    bindMethod("isAutonomousFocusBlocked", &LifeService::isAutonomousFocusBlocked, this,
               "Whether switches of focus by rules are refused");
    bindMethod("freezeChain", &LifeService::serviceFreezeChain, this, "Holds a chain still",
               {{"chain", "its name"}});
    bindMethod("freezeChainFor", &LifeService::serviceFreezeChainFor, this,
               "Holds a chain still for a time", {{"chain", "its name"}, {"seconds", "1 or more"}});
    bindMethod("unfreezeChain", &LifeService::unfreezeChain, this, "Lets a chain move again",
               {{"chain", "its name"}});
    bindMethod("getFrozenChains", &LifeService::getFrozenChains, this, "The chains held still");
    bindMethod("getFocusHistory", &LifeService::getFocusHistory, this,
               "The last activities that had the focus, newest last", {{"depth", "how many"}});
    bindMethod("getStateHistory", &LifeService::getStateHistory, this,
               "The last life states, newest last", {{"depth", "how many"}});
    bindMethod("getAutonomousActivityStatistics", &LifeService::getAutonomousActivityStatistics,
               this, "Per activity, how often and for how long it had the focus");
    bindMethod("getLifeTime", &LifeService::getLifeTime, this, "Seconds of the robot's life");
}

bool LifeService::isChange(const std::string& method)
{
    static const std::set<std::string> kChanges{"setState",
                                                "forceState",
                                                "setAsleep",
                                                "switchFocus",
                                                "stopFocus",
                                                "stopAll",
                                                "blockAutonomousFocus",
                                                "unblockAutonomousFocus",
                                                "freezeChain",
                                                "freezeChainFor",
                                                "unfreezeChain"};
    return kChanges.count(method) != 0;
}

template <class T>
vo::Future<T> LifeService::ask(const char* method, KRValue::Array arguments,
                               std::function<vo::Future<T>()> change)
{
    const vo::Promise<T> promise;
    const vo::Future<void> turn = turns_.takeAndTell(
        LifeAsked{method, std::move(arguments)}, [promise, change = std::move(change)] {
            try {
                change().then([promise](const vo::Future<T>& ended) { promise.endAs(ended); });
            } catch (...) {
                promise.setError(std::current_exception());
            }
        });
    // Who asks when all is over is told so.
    turn.then([promise, method](const vo::Future<void>& ended) {
        if (!ended.hasValue())
            promise.setError(
                std::make_exception_ptr(LifeRefusal(kName, method, "the life service has ended")));
    });
    return promise.future();
}

vo::Future<void> LifeService::askNow(const char* method, KRValue::Array arguments,
                                     std::function<void()> change)
{
    return ask<void>(method, std::move(arguments), [change = std::move(change)] {
        const vo::Promise<void> promise;
        promise.endWith(change);
        return promise.future();
    });
}

std::string LifeService::getState() const
{
    return status_.state();
}

vo::Future<void> LifeService::setState(const std::string& state, bool force)
{
    return ask<void>("setState", {state, force},
                     [this, state, force] { return focus_.setState(state, force); });
}

bool LifeService::isAsleep() const
{
    return status_.isAsleep();
}

vo::Future<void> LifeService::setAsleep(bool asleep)
{
    return askNow("setAsleep", {asleep}, [this, asleep] { status_.setAsleep(asleep); });
}

vo::Future<std::optional<FocusId>> LifeService::switchFocus(const FocusRequest& request)
{
    return ask<std::optional<FocusId>>(
        "switchFocus", {request.activity, request.flags, request.reason, request.autonomous},
        [this, request] { return responder_.switchFocus(request); });
}

vo::Future<void> LifeService::serviceSwitchFocus(const std::string& activity)
{
    return switchFocus({activity}).map([](const std::optional<FocusId>&) {});
}

vo::Future<void> LifeService::stopFocus(const std::string& reason)
{
    return ask<void>("stopFocus", {reason}, [this, reason] { return focus_.stopFocus(reason); });
}

vo::Future<void> LifeService::stopAll(const std::string& reason)
{
    return ask<void>("stopAll", {reason}, [this, reason] { return focus_.stopAll(reason); });
}

std::string LifeService::focusedActivity() const
{
    return status_.focus().activity;
}

vo::Future<void> LifeService::blockAutonomousFocus()
{
    return askNow("blockAutonomousFocus", {}, [this] { status_.setAutonomousFocusBlocked(true); });
}

vo::Future<void> LifeService::unblockAutonomousFocus()
{
    return askNow("unblockAutonomousFocus", {},
                  [this] { status_.setAutonomousFocusBlocked(false); });
}

bool LifeService::isAutonomousFocusBlocked() const
{
    return status_.isAutonomousFocusBlocked();
}

vo::Future<void> LifeService::freezeChain(const std::string& chain,
                                          std::optional<std::int32_t> seconds)
{
    return askNow("freezeChain", {chain, seconds ? KRValue(*seconds) : KRValue()},
                  [this, chain, seconds] { chains_.freeze(chain, seconds); });
}

vo::Future<void> LifeService::unfreezeChain(const std::string& chain)
{
    return askNow("unfreezeChain", {chain}, [this, chain] { chains_.unfreeze(chain); });
}

std::vector<std::string> LifeService::getFrozenChains() const
{
    return chains_.frozen();
}

std::vector<std::string> LifeService::getFocusHistory(int depth) const
{
    return status_.focusHistory(depth);
}

std::vector<std::string> LifeService::getStateHistory(int depth) const
{
    return status_.stateHistory(depth);
}

std::map<std::string, std::map<std::string, std::int64_t>>
LifeService::getAutonomousActivityStatistics() const
{
    return status_.statistics();
}

std::int64_t LifeService::getLifeTime() const
{
    return status_.lifeTime();
}

}  // namespace KR
