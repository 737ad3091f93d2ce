#pragma once

#include <array>

#include "platform/vo/Clock.h"

namespace KR {

/// What the inertial unit and the feet feel at one moment.
struct BodyReadings {
    /// Ahead, to the left, and up, as the body stands; mm/s². A body at rest feels gravity's
    /// reaction, so 9806.65 along what is up.
    std::array<double, 3> acceleration{};
    /// About the axis ahead and the one to the left, mrad/s.
    std::array<double, 2> rotation{};
    bool feetOnGround = true;
};

/// How the body as a whole is moved: tipped over, pushed, lifted. A model without clock or
/// services; times are uptimes of one clock. Used by one thread at a time.
///
/// The body leans by the pitch θ: 0° upright, 90° on its belly, -90° on its back. At rest it feels
/// f = g · (-sin θ, 0, cos θ), g = 9806.65 mm/s². On top of that come
///
///  - tipping from θ0 to θ1 within T: θ = θ0 + (θ1 - θ0) · (t/T)^n, n = 2 for a fall (an even
///  angular
///    acceleration) and 1 for a movement of its own; rotation about the left is dθ/dt. What its
///    centre does on the way is left out.
///  - a push: the body gets the speed v0 and loses it as v0 · exp(-t/τ), so that it feels
///    -(v0/τ) · exp(-t/τ) in the direction of the push; v0 = 500 mm/s, τ = 0.3 s.
///  - hands that hold it up and sway: up and down by A · sin(2πft), which is felt as
///    -A · (2πf)² · sin(2πft), and about the axis ahead at B · cos(2πft); A = 20 mm, B = 300
///    mrad/s, f = 1.25 Hz.
///
/// The feet touch the ground unless it is held up or lies. A body that tips over stands on the
/// edges of its feet until it has lain still for kSettle.
class BodyMotion {
public:
    enum class Side { front, back, left, right };

    static constexpr double kUpright = 0;
    static constexpr double kOnBelly = 90;
    static constexpr double kOnBack = -90;
    static constexpr vo::Duration kSettle = std::chrono::milliseconds(500);

    void lift(bool lifted, vo::Duration now);
    bool isLifted() const { return lifted_; }
    /// By somebody who stands on that side.
    void push(Side from, vo::Duration now);
    /// To another pitch, in degrees, within so long (above 0), falling or by itself.
    void tip(double pitch, vo::Duration length, bool falls, vo::Duration now);

    BodyReadings at(vo::Duration now) const;
    /// Whether what is felt changes with time.
    bool isInMotion(vo::Duration now) const;

private:
    struct Pitch {
        double angle;  ///< radians
        double rate;   ///< radians a second
    };
    Pitch pitchAt(vo::Duration now) const;

    bool lifted_ = false;
    vo::Duration liftedSince_{};
    bool pushed_ = false;
    vo::Duration pushedAt_{};
    double pushX_ = 0;  ///< the direction of the push, of length 1
    double pushY_ = 0;
    double fromPitch_ = kUpright;  ///< degrees
    double toPitch_ = kUpright;
    bool falls_ = false;
    vo::Duration tipsAt_{};
    vo::Duration tipLength_{1};
};

}  // namespace KR
