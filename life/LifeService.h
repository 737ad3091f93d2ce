#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "life/ActivityRunner.h"
#include "life/Event.h"
#include "platform/kr/KRError.h"
#include "platform/kr/KRModule.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Executor.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/Signal.h"

namespace KR {

/// Something that the life service does not do because its own rules forbid it, in contrast to
/// something that went wrong.
class LifeRefusal : public KRError {
public:
    using KRError::KRError;
};

/// A wish to give an activity the focus.
struct FocusRequest {
    /// Flag: an activity that has the focus already is ended and started anew. Without it, such a
    /// request changes nothing.
    static constexpr std::int32_t kRestart = 0x1;

    std::string activity;
    std::int32_t flags = 0;
    std::string reason;
    bool autonomous = false;  ///< a rule's, which a block of autonomous focus refuses
};

/// The service "KRNimbra", which owns the robot's life: its state, whether it sleeps, which
/// activity has the focus, and which chains are held still.
///
///     disabled      a person has switched autonomous life off; no activity may run
///     safeguard     the robot takes care of itself first; no activity may run
///     solitary      nobody is near (the first state)
///     interactive   somebody is
///
/// Every state can follow every other, but without force a change is refused
///  - out of "disabled": what a person switched off, a rule does not switch on;
///  - to a state in which the activity that has the focus may not run. With force, it is stopped.
///
/// An activity runs while it has the focus: it is started before it gets the focus, and one that
/// loses it is stopped before. One that ends by itself leaves the focus to none.
///
/// Writes the memory keys "Nimbra/State", "Nimbra/Asleep" and "Nimbra/FocusedActivity" ("" for
/// none) at every change, and first in init().
///
/// Thread-safe. Of the threads that change what runs, one at a time has its turn, for as long as a
/// stop and a start take; the others wait, but who comes from inside of a start or stop is in
/// error. No lock is held meanwhile. Its mutex is held while it writes memory, so that memory sees
/// the changes in their order; it comes before the locks of memory and clock. Errors are KRError,
/// refusals LifeRefusal.
class LifeService : public KRModule {
public:
    static constexpr const char* kName = "KRNimbra";
    /// Entries that each history keeps; callers ask for the last few.
    static constexpr std::size_t kMaxHistory = 100;

    /// `chains` are the parts of the robot that can be held still.
    explicit LifeService(const boost::shared_ptr<KRBroker>& broker,
                         std::set<std::string> chains = {});
    ~LifeService() override;

    void init() override;
    /// Also stops what runs, without further ado. No activity is started any more.
    void exit() override;

    /// Told of every change, on the changing thread.
    vo::Signal<LifeChange> changed;

    /// What is to be done before an activity starts; called on the thread that asks for it. Set it
    /// before the life service is used.
    void setPreparation(std::function<void(const std::string& activity)> preparation);

    /// What runs the activities; without it, they are names only. Set it before the life service is
    /// used, and to null before it goes.
    void setRunner(ActivityRunner* runner) { runner_ = runner; }
    /// The runner's news that an activity has ended, or has to, in the stay of that name. Nothing
    /// happens when the stay is over already.
    void activityEnded(FocusId stay, const std::string& reason);

    std::string getState() const;
    void setState(const std::string& state, bool force = false);
    bool isAsleep() const;
    void setAsleep(bool asleep);

    /// Gives an activity the focus, in place of the one that has it. Returns what names its stay;
    /// nothing when it has the focus already. Whether it may and can start is checked before and
    /// after the preparation, and nothing has changed when it is not so. When its start fails
    /// nevertheless, no activity has the focus.
    std::optional<FocusId> switchFocus(const FocusRequest& request);
    /// Ends the activity that has the focus, if any.
    void stopFocus(const std::string& reason = {});
    /// The same, and has whatever waits for its turn forgotten.
    void stopAll(const std::string& reason = {});
    /// "" for none.
    std::string focusedActivity() const;

    /// Whether rules may switch the focus. A block is not counted: one unblock ends it.
    void blockAutonomousFocus();
    void unblockAutonomousFocus();
    bool isAutonomousFocusBlocked() const;

    /// Holds a chain still, for so many seconds (1 or more) or until it is unfrozen. A chain that
    /// is frozen for longer already stays so.
    void freezeChain(const std::string& chain, std::optional<std::int32_t> seconds = {});
    /// Does nothing for a chain that is not frozen.
    void unfreezeChain(const std::string& chain);
    /// In ascending order.
    std::vector<std::string> getFrozenChains() const;

    /// The last `depth` (1 or more) activities that had the focus, newest last; "" stands for the
    /// times when none had.
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
    struct Focus {
        FocusId id;
        std::string activity;
        vo::Duration since;  ///< uptime
    };
    struct Statistics {
        std::int64_t focusCount = 0;
        vo::Duration focusTime{};
    };
    struct Freeze {
        std::uint64_t id;
        std::optional<vo::Duration> until;  ///< uptime; nothing for a freeze without end
        vo::Executor::TaskId timer = 0;
    };

    /// The right to change what runs.
    class Turn;
    /// What a switch of focus came to.
    struct Switch {
        std::optional<FocusChanged> event;
        std::exception_ptr failure;
        FocusId stay = 0;
    };

    void beginTurn(const char* method);
    void endTurn();
    bool mayStart(const FocusRequest& request) const;
    bool admit(const FocusRequest& request) const VO_REQUIRES(mutex_);
    Switch replaceFocus(const FocusRequest& request);
    std::optional<FocusChanged> endFocus(const std::string& reason);
    void stopRunning();
    FocusId focusId() const;
    StateChanged moveState(const std::string& state) VO_REQUIRES(mutex_);
    FocusChanged moveFocus(const std::string& activity, FocusId stay, const std::string& reason)
        VO_REQUIRES(mutex_);
    void thaw(const std::string& chain, std::uint64_t id);
    void setAutonomousFocusBlocked(bool blocked);
    void checkChain(const std::string& chain, const char* method) const;
    void bindService();
    void serviceSwitchFocus(const std::string& activity) { switchFocus({activity, 0, {}, false}); }
    void serviceSetState(const std::string& state) { setState(state, false); }
    void serviceForceState(const std::string& state) { setState(state, true); }
    void serviceStopFocus() { stopFocus(); }
    void serviceStopAll() { stopAll(); }
    void serviceFreezeChain(const std::string& chain) { freezeChain(chain); }
    void serviceFreezeChainFor(const std::string& chain, int seconds)
    {
        freezeChain(chain, seconds);
    }

    // Constant after construction, preparation and runner after set-up.
    const std::set<std::string> chains_;
    const std::shared_ptr<vo::Clock> clock_;
    std::function<void(const std::string&)> preparation_;
    ActivityRunner* runner_ = nullptr;
    // Synchronised by themselves.
    const std::shared_ptr<vo::Executor> timer_;
    std::condition_variable_any turnEnded_;

    mutable vo::Mutex mutex_;
    std::thread::id turn_ VO_GUARDED_BY(mutex_);  ///< whose turn it is; nobody's by default
    bool exited_ VO_GUARDED_BY(mutex_) = false;
    std::string state_ VO_GUARDED_BY(mutex_) = "solitary";
    bool asleep_ VO_GUARDED_BY(mutex_) = false;
    bool autonomousFocusBlocked_ VO_GUARDED_BY(mutex_) = false;
    FocusId lastFocus_ VO_GUARDED_BY(mutex_) = 0;
    std::optional<Focus> focus_ VO_GUARDED_BY(mutex_);
    std::deque<std::string> focusHistory_ VO_GUARDED_BY(mutex_);
    std::deque<std::string> stateHistory_ VO_GUARDED_BY(mutex_);
    std::map<std::string, Statistics> statistics_ VO_GUARDED_BY(mutex_);
    std::uint64_t lastFreeze_ VO_GUARDED_BY(mutex_) = 0;
    std::map<std::string, Freeze> frozen_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
