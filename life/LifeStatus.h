#pragma once

#include <boost/shared_ptr.hpp>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "life/ActivityRunner.h"
#include "life/Event.h"
#include "life/LifeHistory.h"
#include "platform/kr/KRBroker.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/Signal.h"

namespace KR {

class LifeDriver;

/// What is true of the robot's life: its state, whether it sleeps, which activity has the focus,
/// whether rules may switch it, and what was. It decides nothing; see FocusQueue.
///
/// Writes the memory keys "Nimbra/State", "Nimbra/Asleep" and "Nimbra/FocusedActivity" ("" for
/// none) at every change, and first when it is made.
///
/// Thread-safe. Its mutex is held while it writes memory, so that memory sees the changes in their
/// order; it comes before the locks of memory and clock.
class LifeStatus {
public:
    /// `driver`, which may be null, writes in its place.
    explicit LifeStatus(const boost::shared_ptr<KRBroker>& broker, LifeDriver* driver = nullptr);
    LifeStatus(const LifeStatus&) = delete;
    LifeStatus& operator=(const LifeStatus&) = delete;

    /// Told of every change, on the changing thread, with no lock held.
    vo::Signal<LifeChange> changed;

    std::string state() const;
    /// Whether there is such a state, and whether activities may run in it.
    static bool isState(const std::string& state);
    static bool mayRunActivities(const std::string& state);
    /// Moves to another state (of those that there are), and returns the change, which is to be
    /// told.
    StateChanged moveState(const std::string& state, const std::string& rule);

    bool isAsleep() const;
    void setAsleep(bool asleep, const std::string& rule = {});
    bool isAutonomousFocusBlocked() const;
    void setAutonomousFocusBlocked(bool blocked, const std::string& rule = {});

    struct Focus {
        FocusId id = 0;  ///< 0 for none
        std::string activity;
    };
    Focus focus() const;
    /// Gives the focus to an activity's stay, or to none, and returns the change, which is to be
    /// told.
    FocusChanged moveFocus(const Focus& focus, const std::string& reason, const std::string& rule);

    /// See LifeHistory.
    std::vector<std::string> focusHistory(int depth) const;
    std::vector<std::string> stateHistory(int depth) const;
    std::map<std::string, std::map<std::string, std::int64_t>> statistics() const;
    /// Whole seconds of the robot's life, as in memory's histories.
    std::int64_t lifeTime() const;

private:
    void write(const char* key, const KRValue& value) VO_REQUIRES(mutex_);

    // Constant after construction.
    const boost::shared_ptr<KRBroker> broker_;
    LifeDriver* const driver_;

    mutable vo::Mutex mutex_;
    std::string state_ VO_GUARDED_BY(mutex_) = "solitary";
    bool asleep_ VO_GUARDED_BY(mutex_) = false;
    bool autonomousFocusBlocked_ VO_GUARDED_BY(mutex_) = false;
    Focus focus_ VO_GUARDED_BY(mutex_);
    LifeHistory history_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
