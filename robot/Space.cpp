#include "robot/Space.h"

#include <cmath>

namespace KR {

namespace {

constexpr double kPi = 3.14159265358979323846;

}  // namespace

double distanceBetween(Place a, Place b)
{
    return std::hypot(b.x - a.x, b.y - a.y);
}

double directionTo(Place from, Place to)
{
    if (from.x == to.x && from.y == to.y)
        return 0;  // whatever signs its zeros have
    return std::atan2(to.y - from.y, to.x - from.x) * 180 / kPi;
}

double angleBetween(double direction, double other)
{
    return std::abs(std::remainder(direction - other, 360.0));
}

double apparentSize(double size, double distance)
{
    return 2 * std::atan2(size / 2, distance);
}

int EngagementLimits::zoneOf(double distance, double direction) const
{
    if (std::abs(direction) > angle / 2)
        return 3;
    if (distance <= firstDistance)
        return 1;
    return distance <= secondDistance ? 2 : 3;
}

}  // namespace KR
