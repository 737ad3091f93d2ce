#include "robot/BodyMotion.h"

#include <algorithm>
#include <cmath>

namespace KR {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kGravity = 9806.65;     // mm/s²
constexpr double kPushSpeed = 500;       // mm/s
constexpr double kPushTime = 0.3;        // seconds
constexpr double kSwayHeight = 20;       // mm
constexpr double kSwayRotation = 300;    // mrad/s
constexpr double kSwayFrequency = 1.25;  // Hz
/// By then a push is felt at less than 1 mm/s².
constexpr vo::Duration kPushIsOver = std::chrono::milliseconds(2500);

double secondsSince(vo::Duration begin, vo::Duration now)
{
    return std::chrono::duration<double>(now - begin).count();
}

}  // namespace

void BodyMotion::lift(bool lifted, vo::Duration now)
{
    if (lifted && !lifted_)
        liftedSince_ = now;
    lifted_ = lifted;
}

void BodyMotion::push(Side from, vo::Duration now)
{
    pushed_ = true;
    pushedAt_ = now;
    pushX_ = from == Side::front ? -1 : from == Side::back ? 1 : 0;
    pushY_ = from == Side::left ? -1 : from == Side::right ? 1 : 0;
}

void BodyMotion::tip(double pitch, vo::Duration length, bool falls, vo::Duration now)
{
    fromPitch_ = pitchAt(now).angle * 180 / kPi;
    toPitch_ = pitch;
    falls_ = falls;
    tipsAt_ = now;
    tipLength_ = length;
}

BodyMotion::Pitch BodyMotion::pitchAt(vo::Duration now) const
{
    const double begin = fromPitch_ * kPi / 180;
    const double end = toPitch_ * kPi / 180;
    if (now >= tipsAt_ + tipLength_)
        return {end, 0};
    const double length = secondsSince(vo::Duration::zero(), tipLength_);
    const double part = secondsSince(tipsAt_, now) / length;
    if (falls_)
        return {begin + (end - begin) * part * part, (end - begin) * 2 * part / length};
    return {begin + (end - begin) * part, (end - begin) / length};
}

BodyReadings BodyMotion::at(vo::Duration now) const
{
    const Pitch pitch = pitchAt(now);
    BodyReadings felt;
    felt.acceleration = {0 - kGravity * std::sin(pitch.angle), 0, kGravity * std::cos(pitch.angle)};
    felt.rotation = {0, pitch.rate * 1000};
    if (pushed_ && now < pushedAt_ + kPushIsOver) {
        const double jolt =
            kPushSpeed / kPushTime * std::exp(-secondsSince(pushedAt_, now) / kPushTime);
        felt.acceleration[0] -= jolt * pushX_;
        felt.acceleration[1] -= jolt * pushY_;
    }
    if (lifted_) {
        const double omega = 2 * kPi * kSwayFrequency;
        const double phase = omega * secondsSince(liftedSince_, now);
        felt.acceleration[2] -= kSwayHeight * omega * omega * std::sin(phase);
        felt.rotation[0] = kSwayRotation * std::cos(phase);
    }
    const bool lies = toPitch_ != kUpright && now >= tipsAt_ + tipLength_ + kSettle;
    felt.feetOnGround = !lifted_ && !lies;
    return felt;
}

bool BodyMotion::isInMotion(vo::Duration now) const
{
    return lifted_ || (pushed_ && now < pushedAt_ + kPushIsOver) ||
           ((toPitch_ != fromPitch_ || toPitch_ != kUpright) &&
            now < tipsAt_ + tipLength_ + kSettle);
}

}  // namespace KR
