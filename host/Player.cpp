#include "host/Player.h"

#include <algorithm>

#include "life/ActionRunner.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/Executor.h"

namespace KR {

namespace {

/// Longer than the period in which the launchpad proposes what stays true.
constexpr vo::Duration kAfterLastEntry = std::chrono::seconds(10);
/// Virtual time between two looks at whether to stop.
constexpr vo::Duration kSlice = std::chrono::minutes(1);

}  // namespace

Player::Player(Host& host, vo::VirtualClock& clock, EventStream& events, const StopRequest& stop,
               std::optional<double> speed)
    : host_(host), clock_(clock), events_(events), stop_(stop), speed_(speed)
{
    if (!speed_)
        return;
    realClock_ = vo::makeRealClock();
    timer_ = realClock_->makeExecutor("Player", vo::Clock::Threading::shared);
    realStart_ = realClock_->uptime();
    virtualStart_ = clock_.now();
}

Player::~Player()
{
    if (timer_)
        timer_->close();
}

vo::TimePoint Player::endOf(const Scenario& scenario)
{
    if (scenario.end)
        return *scenario.end;
    const bool isEmpty = scenario.timeline.empty();
    return (isEmpty ? scenario.start : scenario.timeline.back().time) + kAfterLastEntry;
}

bool Player::play(const Scenario& scenario, vo::TimePoint end)
{
    clock_.runPending();
    for (const ScenarioEntry& entry : scenario.timeline) {
        if (entry.time > end)
            break;
        if (!advanceTo(entry.time))
            return false;
        for (const ScenarioStep& step : entry.steps)
            perform(step);
        clock_.runPending();
    }
    return advanceTo(end);
}

bool Player::advanceTo(vo::TimePoint time)
{
    while (!stop_.isRequested() && clock_.now() < time) {
        const vo::Duration task = clock_.untilNextTask().value_or(kSlice);
        const vo::Duration limit = std::min<vo::Duration>(time - clock_.now(), kSlice);
        const vo::Duration step = speed_ ? std::min(task, limit) : limit;
        if (!keepPace(clock_.now() + step))
            return false;
        clock_.advance(step);
    }
    return !stop_.isRequested();
}

/// Waits until it is real time for a virtual time.
bool Player::keepPace(vo::TimePoint time)
{
    if (!speed_)
        return true;
    const double microseconds = static_cast<double>((time - virtualStart_).count()) / *speed_;
    const vo::Duration due = realStart_ + vo::Duration(static_cast<std::int64_t>(microseconds));
    const vo::Duration rest = due - realClock_->uptime();
    return rest <= vo::Duration::zero() || stop_.waitFor(*timer_, rest);
}

void Player::perform(const ScenarioStep& step)
{
    switch (step.kind) {
        case ScenarioStep::Kind::raise:
            host_.memory().raiseEvent(step.text, step.value, host_.memory().writer("scenario"));
            break;
        case ScenarioStep::Kind::call: {
            makeCall(*step.call)
                .then([&events = events_,
                       text = describeCall(*step.call)](const vo::Future<StepResult>& ended) {
                    const StepResult result = ended.value();
                    events.publish(CallMade{text, result.outcome, result.reason});
                });
            break;
        }
        case ScenarioStep::Kind::say:
            events_.publish(RemarkMade{step.text});
            break;
    }
}

}  // namespace KR
