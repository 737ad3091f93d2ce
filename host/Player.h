#pragma once

#include <memory>
#include <optional>

#include "host/Host.h"
#include "host/StopRequest.h"
#include "life/EventStream.h"
#include "platform/vo/VirtualClock.h"
#include "robot/Scenario.h"

namespace KR {

/// Plays a scenario to a host on virtual time, as fast as possible or at a pace. Used by one
/// thread, which is the one that everything in the host runs on.
class Player {
public:
    /// All outlive the player. `speed` is virtual seconds in a second, above 0; nothing for as
    /// fast as possible.
    Player(Host& host, vo::VirtualClock& clock, EventStream& events, const StopRequest& stop,
           std::optional<double> speed);
    ~Player();
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    /// Plays the entries up to `end`, and virtual time up to it. False when a stop was requested
    /// before that. A call that fails is published, and the play goes on.
    bool play(const Scenario& scenario, vo::TimePoint end);

    /// When a scenario ends that does not say so: late enough for what its last entry causes.
    static vo::TimePoint endOf(const Scenario& scenario);

private:
    bool advanceTo(vo::TimePoint time);
    bool keepPace(vo::TimePoint time);
    void perform(const ScenarioStep& step);

    Host& host_;
    vo::VirtualClock& clock_;
    EventStream& events_;
    const StopRequest& stop_;

    // For a pace only.
    const std::optional<double> speed_;
    std::shared_ptr<vo::Clock> realClock_;
    std::shared_ptr<vo::Executor> timer_;
    vo::Duration realStart_{};
    vo::TimePoint virtualStart_;
};

}  // namespace KR
