#pragma once

namespace KR {

/// A place on the floor, in metres, as the robot sees it: x ahead of it, y to its left, the robot
/// at (0, 0).
struct Place {
    double x = 0;
    double y = 0;
};

/// sqrt(dx² + dy²), in metres.
double distanceBetween(Place a, Place b);

/// The direction from one place to another: atan2(dy, dx), in degrees from -180 to 180, 0 ahead and
/// 90 to the left. 0 for a place to itself.
double directionTo(Place from, Place to);

/// The angle between two directions, in degrees from 0 to 180.
double angleBetween(double direction, double other);

/// How large something looks: 2·atan(size / 2d), in radians, for a size and a distance d in metres,
/// both of one scale. Something at no distance fills half of the view, π.
double apparentSize(double size, double distance);

/// The engagement zones around the robot, three of them: within the angle, which lies evenly about
/// straight ahead, up to the first distance, zone 1, and up to the second one, zone 2; everywhere
/// else, zone 3. What lies on a border is inside.
struct EngagementLimits {
    double firstDistance = 1.5;   ///< metres
    double secondDistance = 2.5;  ///< metres
    double angle = 90;            ///< degrees, both sides together

    /// 1, 2 or 3; of a distance in metres and a direction in degrees.
    int zoneOf(double distance, double direction) const;
};

}  // namespace KR
