#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "life/ActivityRunner.h"
#include "life/Event.h"
#include "life/FocusRequest.h"
#include "platform/kr/KRModule.h"
#include "platform/vo/Future.h"
#include "platform/vo/Signal.h"

namespace KR {

class FocusQueue;
class FrozenChains;
class LifeStatus;
class Responder;
class Turns;

/// The service "KRNimbra", by which programs and people ask for the robot's life and change it: its
/// state, whether it sleeps, which activity has the focus, and which chains are held still.
///
///     disabled      a person has switched autonomous life off; no activity may run
///     safeguard     the robot takes care of itself first; no activity may run
///     solitary      nobody is near (the first state)
///     interactive   somebody is
///
/// Changes come one after the other, on the event loop, and those of focus and state can take
/// seconds (see FocusQueue): the methods return a future, which has the errors too. On the event
/// loop, and under a clock without threads, it has ended already, unless a service takes its time
/// by a future of its own. Elsewhere nothing has changed yet when the call returns; who ignores the
/// future does not hear of errors. Waiting for one blocks until the loop is free, so a plugin whose
/// stop waits for its own task must not wait for one there. Who is told of a change, or that a
/// future has ended, and wants a change of its own, posts that to the event loop: it is another
/// turn.
///
/// Thread-safe; what it is made of outlives it. Errors are KRError, refusals LifeRefusal.
class LifeService : public KRModule {
public:
    static constexpr const char* kName = "KRNimbra";
    /// Whether one of the service's methods changes something.
    static bool isChange(const std::string& method);

    LifeService(const boost::shared_ptr<KRBroker>& broker, Turns& turns, LifeStatus& status,
                FrozenChains& chains, FocusQueue& focus, Responder& responder);

    /// Told of every change, on the changing thread.
    vo::Signal<LifeChange>& changed;

    std::string getState() const;
    /// Without force a change is refused out of "disabled", and to a state in which the activity
    /// that has the focus may not run. With force, that one is stopped, and the changes that wait
    /// or are in progress are cancelled.
    vo::Future<void> setState(const std::string& state, bool force = false);
    bool isAsleep() const;
    vo::Future<void> setAsleep(bool asleep);

    /// Gives an activity the focus, in place of the one that has it. Gives what names its stay;
    /// nothing when it has the focus already. Whether it may and can start is checked before and
    /// after what rules do before it, and nothing has changed when it is not so. When its start
    /// fails nevertheless, no activity has the focus.
    vo::Future<std::optional<FocusId>> switchFocus(const FocusRequest& request);
    /// Ends the activity that has the focus, if any, and cancels the switches of focus that wait or
    /// are in progress.
    vo::Future<void> stopFocus(const std::string& reason = {});
    /// The same, and has whatever waits for its turn forgotten.
    vo::Future<void> stopAll(const std::string& reason = {});
    /// "" for none.
    std::string focusedActivity() const;

    /// Whether rules may switch the focus. A block is not counted: one unblock ends it.
    vo::Future<void> blockAutonomousFocus();
    vo::Future<void> unblockAutonomousFocus();
    bool isAutonomousFocusBlocked() const;

    /// Holds a chain still, for so many seconds (1 or more) or until it is unfrozen. A chain that
    /// is frozen for longer already stays so.
    vo::Future<void> freezeChain(const std::string& chain,
                                 std::optional<std::int32_t> seconds = {});
    /// Does nothing for a chain that is not frozen.
    vo::Future<void> unfreezeChain(const std::string& chain);
    /// In ascending order.
    std::vector<std::string> getFrozenChains() const;

    /// The last `depth` (1 or more) activities that had the focus, newest last; "" stands for the
    /// times when none had. Some hundred are kept.
    std::vector<std::string> getFocusHistory(int depth) const;
    /// The last `depth` states, the present one last.
    std::vector<std::string> getStateHistory(int depth) const;
    /// Per activity that ever had the focus: "focusCount", how often, and "focusTime", for how
    /// many whole seconds in all.
    std::map<std::string, std::map<std::string, std::int64_t>> getAutonomousActivityStatistics()
        const;
    /// Whole seconds of the robot's life, as in memory's histories.
    std::int64_t getLifeTime() const;

private:
    void bindService();
    vo::Future<void> serviceSwitchFocus(const std::string& activity);
    vo::Future<void> serviceSetState(const std::string& state) { return setState(state, false); }
    vo::Future<void> serviceForceState(const std::string& state) { return setState(state, true); }
    vo::Future<void> serviceStopFocus() { return stopFocus(); }
    vo::Future<void> serviceStopAll() { return stopAll(); }
    vo::Future<void> serviceFreezeChain(const std::string& chain) { return freezeChain(chain); }
    vo::Future<void> serviceFreezeChainFor(const std::string& chain, int seconds)
    {
        return freezeChain(chain, seconds);
    }
    /// What `change` does and returns, as a turn.
    template <class T>
    vo::Future<T> ask(const char* method, KRValue::Array arguments,
                      std::function<vo::Future<T>()> change);
    vo::Future<void> askNow(const char* method, KRValue::Array arguments,
                            std::function<void()> change);

    // Constant after construction.
    Turns& turns_;
    LifeStatus& status_;
    FrozenChains& chains_;
    FocusQueue& focus_;
    Responder& responder_;
};

}  // namespace KR
