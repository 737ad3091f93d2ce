#include "life/LifeStatus.h"

#include <utility>

#include "life/LifeDriver.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/KeyCatalogue.h"
#include "platform/kr/SharedKeys.h"

namespace KR {

namespace {

constexpr const char* kWriter = "KRNimbra";

/// The life states, and whether activities may run in them.
const std::map<std::string, bool> kStates{
    {"disabled", false}, {"safeguard", false}, {"solitary", true}, {"interactive", true}};

}  // namespace

LifeStatus::LifeStatus(const boost::shared_ptr<KRBroker>& broker, LifeDriver* driver)
    : broker_(broker), driver_(driver)
{
    std::vector<KRValue> states;
    states.reserve(kStates.size());
    for (const auto& [state, mayRunActivities] : kStates)
        states.emplace_back(state);
    KRMemory& memory = broker_->memory();
    for (const KeyDescription& key :
         {KeyDescription::text(keys::kState, "life state").oneOf(states),
          KeyDescription::boolean(keys::kAsleep, "the robot sleeps"),
          KeyDescription::text(keys::kFocusedActivity, "activity in focus; \"\" for none")}) {
        memory.declareEvent(key.key, kWriter);
        broker_->keys().addPublished(key, kWriter);
    }
    const vo::Lock lock(mutex_);
    history_.addState(state_);
    write(keys::kState, state_);
    write(keys::kAsleep, asleep_);
    write(keys::kFocusedActivity, "");
}

void LifeStatus::write(const char* key, const KRValue& value)
{
    if (driver_)
        driver_->write(key, value);
    else
        broker_->memory().raiseEvent(key, value);
}

std::string LifeStatus::state() const
{
    const vo::Lock lock(mutex_);
    return state_;
}

bool LifeStatus::isState(const std::string& state)
{
    return kStates.count(state) > 0;
}

bool LifeStatus::mayRunActivities(const std::string& state)
{
    return kStates.at(state);
}

StateChanged LifeStatus::moveState(const std::string& state, const std::string& rule)
{
    const vo::Lock lock(mutex_);
    StateChanged event{state, std::exchange(state_, state), rule};
    history_.addState(state);
    write(keys::kState, state);
    return event;
}

bool LifeStatus::isAsleep() const
{
    const vo::Lock lock(mutex_);
    return asleep_;
}

void LifeStatus::setAsleep(bool asleep, const std::string& rule)
{
    {
        const vo::Lock lock(mutex_);
        if (asleep == asleep_)
            return;
        asleep_ = asleep;
        write(keys::kAsleep, asleep);
    }
    changed(SleepChanged{asleep, rule});
}

bool LifeStatus::isAutonomousFocusBlocked() const
{
    const vo::Lock lock(mutex_);
    return autonomousFocusBlocked_;
}

void LifeStatus::setAutonomousFocusBlocked(bool blocked, const std::string& rule)
{
    {
        const vo::Lock lock(mutex_);
        if (blocked == autonomousFocusBlocked_)
            return;
        autonomousFocusBlocked_ = blocked;
    }
    changed(FocusBlockChanged{blocked, rule});
}

LifeStatus::Focus LifeStatus::focus() const
{
    const vo::Lock lock(mutex_);
    return focus_;
}

FocusChanged LifeStatus::moveFocus(const Focus& focus, const std::string& reason,
                                   const std::string& rule)
{
    const vo::Lock lock(mutex_);
    FocusChanged event{focus.activity, focus_.activity, reason, focus_.id, rule};
    focus_ = focus;
    history_.addFocus(focus.activity, broker_->clock()->uptime());
    write(keys::kFocusedActivity, focus.activity);
    return event;
}

std::vector<std::string> LifeStatus::focusHistory(int depth) const
{
    const vo::Lock lock(mutex_);
    return history_.focuses(depth);
}

std::vector<std::string> LifeStatus::stateHistory(int depth) const
{
    const vo::Lock lock(mutex_);
    return history_.states(depth);
}

std::map<std::string, std::map<std::string, std::int64_t>> LifeStatus::statistics() const
{
    const vo::Lock lock(mutex_);
    return history_.statistics(broker_->clock()->uptime());
}

std::int64_t LifeStatus::lifeTime() const
{
    return broker_->memory().lifeTime();
}

}  // namespace KR
