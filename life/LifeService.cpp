#include "life/LifeService.h"

#include <algorithm>
#include <utility>

#include "platform/kr/KRMemory.h"
#include "platform/kr/KeyCatalogue.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger logger("Nimbra.Life");

constexpr const char* kStateKey = "Nimbra/State";
constexpr const char* kAsleepKey = "Nimbra/Asleep";
constexpr const char* kFocusKey = "Nimbra/FocusedActivity";
constexpr const char* kDisabled = "disabled";

/// The life states, and whether activities may run in them.
const std::map<std::string, bool> kStates{
    {kDisabled, false}, {"safeguard", false}, {"solitary", true}, {"interactive", true}};

void remember(std::deque<std::string>& history, const std::string& entry)
{
    history.push_back(entry);
    if (history.size() > LifeService::kMaxHistory)
        history.pop_front();
}

std::vector<std::string> lastOf(const std::deque<std::string>& history, int depth,
                                const char* method)
{
    if (depth < 1)
        throw KRError(LifeService::kName, method, "the depth must be 1 or more");
    const auto count = std::min(history.size(), static_cast<std::size_t>(depth));
    return {history.end() - static_cast<std::ptrdiff_t>(count), history.end()};
}

}  // namespace

class LifeService::Turn {
public:
    Turn(LifeService& life, const char* method) : Turn(life, method, true) {}
    /// With `isNeeded` false there is nothing to wait for and to end.
    Turn(LifeService& life, const char* method, bool isNeeded) : life_(isNeeded ? &life : nullptr)
    {
        if (life_)
            life_->beginTurn(method);
    }
    ~Turn() { end(); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    void end()
    {
        if (LifeService* const life = std::exchange(life_, nullptr))
            life->endTurn();
    }

private:
    LifeService* life_;
};

LifeService::LifeService(const boost::shared_ptr<KRBroker>& broker, std::set<std::string> chains)
    : KRModule(broker, kName),
      chains_(std::move(chains)),
      clock_(broker->clock()),
      timer_(clock_->makeExecutor(kName, vo::Clock::Threading::shared)),
      stateHistory_{state_}
{
    setModuleDescription("The robot's life: state, sleep, focus, frozen chains");
    std::vector<KRValue> states;
    states.reserve(kStates.size());
    for (const auto& [state, mayRunActivities] : kStates)
        states.emplace_back(state);
    for (const KeyDescription& key :
         {KeyDescription::text(kStateKey, "life state").oneOf(states),
          KeyDescription::boolean(kAsleepKey, "the robot sleeps"),
          KeyDescription::text(kFocusKey, "activity in focus; \"\" for none")}) {
        broker->memory().declareEvent(key.key, kName);
        broker->keys().addPublished(key, kName);
    }
    bindService();
}

LifeService::~LifeService()
{
    timer_->close();
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

void LifeService::init()
{
    const vo::Lock lock(mutex_);
    KRMemory& memory = getParentBroker()->memory();
    memory.raiseEvent(kStateKey, state_);
    memory.raiseEvent(kAsleepKey, asleep_);
    memory.raiseEvent(kFocusKey, "");
}

void LifeService::exit()
{
    timer_->close();
    KRModule::exit();
    const Turn turn(*this, "exit");
    {
        const vo::Lock lock(mutex_);
        if (std::exchange(exited_, true) || !focus_)
            return;
    }
    stopRunning();
}

void LifeService::beginTurn(const char* method)
{
    const auto self = std::this_thread::get_id();
    const vo::Lock lock(mutex_);
    if (turn_ == self)
        throw KRError(kName, method, "the focus is just being changed");
    while (turn_ != std::thread::id())
        turnEnded_.wait(mutex_);
    turn_ = self;
}

void LifeService::endTurn()
{
    const vo::Lock lock(mutex_);
    turn_ = std::thread::id();
    turnEnded_.notify_one();
}

void LifeService::setPreparation(std::function<void(const std::string&)> preparation)
{
    preparation_ = std::move(preparation);
}

std::string LifeService::getState() const
{
    const vo::Lock lock(mutex_);
    return state_;
}

void LifeService::setState(const std::string& state, bool force)
{
    const auto known = kStates.find(state);
    if (known == kStates.end())
        throw KRError(kName, "setState",
                      "there is no state '" + state +
                          "' (disabled, safeguard, solitary and interactive are)");
    const bool mayRun = known->second;
    // A state in which activities may run stands in the way of no start and stop.
    Turn turn(*this, "setState", !mayRun);
    std::optional<FocusChanged> ended;
    std::optional<StateChanged> event;
    {
        const vo::Lock lock(mutex_);
        if (state == state_)
            return;
        if (!force && state_ == kDisabled)
            throw LifeRefusal(kName, "setState", "leaving 'disabled' needs force");
        if (mayRun || !focus_) {
            event = moveState(state);
        } else if (!force) {
            throw LifeRefusal(
                kName, "setState",
                "'" + focus_->activity + "' has the focus and may not run in '" + state + "'");
        }
    }
    if (!event) {
        ended = endFocus("it may not run in '" + state + "'");
        const vo::Lock lock(mutex_);
        event = moveState(state);
    }
    turn.end();
    if (ended)
        changed(*ended);
    changed(*event);
}

StateChanged LifeService::moveState(const std::string& state)
{
    StateChanged event{state, std::exchange(state_, state)};
    remember(stateHistory_, state);
    getParentBroker()->memory().raiseEvent(kStateKey, state);
    return event;
}

bool LifeService::isAsleep() const
{
    const vo::Lock lock(mutex_);
    return asleep_;
}

void LifeService::setAsleep(bool asleep)
{
    {
        const vo::Lock lock(mutex_);
        if (asleep == asleep_)
            return;
        asleep_ = asleep;
        getParentBroker()->memory().raiseEvent(kAsleepKey, asleep);
    }
    changed(SleepChanged{asleep});
}

/// Whether the activity is to be started: false when it has the focus already.
bool LifeService::admit(const FocusRequest& request) const
{
    constexpr const char* kMethod = "switchFocus";
    if (request.activity.empty())
        throw KRError(kName, kMethod, "the activity has no name");
    if ((request.flags & ~FocusRequest::kRestart) != 0)
        throw KRError(kName, kMethod, "unknown flags " + std::to_string(request.flags));
    if (exited_)
        throw LifeRefusal(kName, kMethod, "the life service has ended");
    if (request.autonomous && autonomousFocusBlocked_)
        throw LifeRefusal(kName, kMethod, "autonomous focus is blocked");
    if (!kStates.at(state_))
        throw LifeRefusal(kName, kMethod, "no activity may run in the state '" + state_ + "'");
    const bool restart = (request.flags & FocusRequest::kRestart) != 0;
    return restart || !focus_ || focus_->activity != request.activity;
}

bool LifeService::mayStart(const FocusRequest& request) const
{
    {
        const vo::Lock lock(mutex_);
        if (!admit(request))
            return false;
    }
    if (runner_)
        runner_->check(request.activity);
    return true;
}

std::optional<FocusId> LifeService::switchFocus(const FocusRequest& request)
{
    if (!mayStart(request))
        return std::nullopt;
    if (preparation_)
        preparation_(request.activity);
    Switch result;
    {
        const Turn turn(*this, "switchFocus");
        if (!mayStart(request))
            return std::nullopt;
        result = replaceFocus(request);
    }
    if (result.event)
        changed(*result.event);
    if (result.failure)
        std::rethrow_exception(result.failure);
    return result.stay;
}

/// In a turn.
LifeService::Switch LifeService::replaceFocus(const FocusRequest& request)
{
    Switch result;
    if (focusId() != 0)
        stopRunning();
    {
        const vo::Lock lock(mutex_);
        result.stay = ++lastFocus_;
    }
    try {
        if (runner_)
            runner_->start(request.activity, result.stay);
    } catch (...) {
        result.failure = std::current_exception();
    }
    const vo::Lock lock(mutex_);
    if (!result.failure)
        result.event = moveFocus(request.activity, result.stay, request.reason);
    else if (focus_)
        result.event = moveFocus("", 0, "'" + request.activity + "' was to follow, but failed");
    return result;
}

FocusChanged LifeService::moveFocus(const std::string& activity, FocusId stay,
                                    const std::string& reason)
{
    FocusChanged event{activity, {}, reason};
    const vo::Duration now = clock_->uptime();
    if (focus_) {
        event.previous = focus_->activity;
        event.lost = focus_->id;
        statistics_[focus_->activity].focusTime += now - focus_->since;
        focus_.reset();
    }
    if (!activity.empty()) {
        focus_ = Focus{stay, activity, now};
        ++statistics_[activity].focusCount;
    }
    remember(focusHistory_, activity);
    getParentBroker()->memory().raiseEvent(kFocusKey, activity);
    return event;
}

/// In a turn. Nothing when no activity has the focus.
std::optional<FocusChanged> LifeService::endFocus(const std::string& reason)
{
    if (focusId() == 0)
        return std::nullopt;
    stopRunning();
    const vo::Lock lock(mutex_);
    return moveFocus("", 0, reason);
}

/// Whatever goes wrong, the activity has had its time.
void LifeService::stopRunning()
{
    try {
        if (runner_)
            runner_->stop();
    } catch (const std::exception& e) {
        logger.error("stopRunning", e.what());
    } catch (...) {
        logger.error("stopRunning", "unknown error");
    }
}

FocusId LifeService::focusId() const
{
    const vo::Lock lock(mutex_);
    return focus_ ? focus_->id : 0;
}

void LifeService::activityEnded(FocusId stay, const std::string& reason)
{
    std::optional<FocusChanged> event;
    {
        const Turn turn(*this, "activityEnded");
        if (focusId() == stay)
            event = endFocus(reason);
    }
    if (event)
        changed(*event);
}

void LifeService::stopFocus(const std::string& reason)
{
    std::optional<FocusChanged> event;
    {
        const Turn turn(*this, "stopFocus");
        event = endFocus(reason);
    }
    if (event)
        changed(*event);
}

void LifeService::stopAll(const std::string& reason)
{
    stopFocus(reason);
    changed(EverythingStopped{reason});
}

std::string LifeService::focusedActivity() const
{
    const vo::Lock lock(mutex_);
    return focus_ ? focus_->activity : std::string();
}

void LifeService::blockAutonomousFocus()
{
    setAutonomousFocusBlocked(true);
}

void LifeService::unblockAutonomousFocus()
{
    setAutonomousFocusBlocked(false);
}

void LifeService::setAutonomousFocusBlocked(bool blocked)
{
    {
        const vo::Lock lock(mutex_);
        if (blocked == autonomousFocusBlocked_)
            return;
        autonomousFocusBlocked_ = blocked;
    }
    changed(FocusBlockChanged{blocked});
}

bool LifeService::isAutonomousFocusBlocked() const
{
    const vo::Lock lock(mutex_);
    return autonomousFocusBlocked_;
}

void LifeService::checkChain(const std::string& chain, const char* method) const
{
    if (chains_.count(chain) == 0)
        throw KRError(kName, method, "there is no chain '" + chain + "'");
}

void LifeService::freezeChain(const std::string& chain, std::optional<std::int32_t> seconds)
{
    checkChain(chain, "freezeChain");
    if (seconds && *seconds < 1)
        throw KRError(kName, "freezeChain", "the duration must be 1 second or more");
    const vo::Duration length = std::chrono::seconds(seconds.value_or(0));
    {
        const vo::Lock lock(mutex_);
        const vo::Duration until = clock_->uptime() + length;
        const auto found = frozen_.find(chain);
        const bool isFrozen = found != frozen_.end();
        if (isFrozen && (!found->second.until || (seconds && until <= *found->second.until)))
            return;
        if (isFrozen)
            timer_->cancel(found->second.timer);
        Freeze freeze{++lastFreeze_, {}};
        if (seconds) {
            freeze.until = until;
            freeze.timer = timer_->post([this, chain, id = freeze.id] { thaw(chain, id); }, length);
        }
        frozen_.insert_or_assign(chain, freeze);
        if (isFrozen)
            return;
    }
    changed(ChainChanged{chain, true, {}});
}

/// The end of a freeze's time, which may have been replaced meanwhile.
void LifeService::thaw(const std::string& chain, std::uint64_t id)
{
    {
        const vo::Lock lock(mutex_);
        const auto found = frozen_.find(chain);
        if (found == frozen_.end() || found->second.id != id)
            return;
        frozen_.erase(found);
    }
    changed(ChainChanged{chain, false, "its time is over"});
}

void LifeService::unfreezeChain(const std::string& chain)
{
    checkChain(chain, "unfreezeChain");
    {
        const vo::Lock lock(mutex_);
        const auto found = frozen_.find(chain);
        if (found == frozen_.end())
            return;
        timer_->cancel(found->second.timer);
        frozen_.erase(found);
    }
    changed(ChainChanged{chain, false, {}});
}

std::vector<std::string> LifeService::getFrozenChains() const
{
    const vo::Lock lock(mutex_);
    std::vector<std::string> chains;
    chains.reserve(frozen_.size());
    for (const auto& chain : frozen_)
        chains.push_back(chain.first);
    return chains;
}

std::vector<std::string> LifeService::getFocusHistory(int depth) const
{
    const vo::Lock lock(mutex_);
    return lastOf(focusHistory_, depth, "getFocusHistory");
}

std::vector<std::string> LifeService::getStateHistory(int depth) const
{
    const vo::Lock lock(mutex_);
    return lastOf(stateHistory_, depth, "getStateHistory");
}

std::map<std::string, std::map<std::string, std::int64_t>>
LifeService::getAutonomousActivityStatistics() const
{
    using std::chrono::duration_cast;
    const vo::Lock lock(mutex_);
    std::map<std::string, std::map<std::string, std::int64_t>> result;
    for (const auto& [activity, statistics] : statistics_) {
        vo::Duration time = statistics.focusTime;
        if (focus_ && focus_->activity == activity)
            time += clock_->uptime() - focus_->since;
        result[activity] = {{"focusCount", statistics.focusCount},
                            {"focusTime", duration_cast<std::chrono::seconds>(time).count()}};
    }
    return result;
}

std::int64_t LifeService::getLifeTime() const
{
    return getParentBroker()->memory().lifeTime();
}

}  // namespace KR
