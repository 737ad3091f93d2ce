#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/vo/Clock.h"
#include "robot/Space.h"

namespace KR {

/// Rounded to the microsecond.
vo::Duration fromSeconds(double seconds);

/// Where somebody's eyes go: where they walk, to the robot, or to a place.
struct Gaze {
    enum class Target { ahead, robot, place };
    Target target = Target::ahead;
    Place place = {};
};

/// A person as they are at one moment.
struct Person {
    std::string name;
    double distance = 0;   ///< from the robot, metres
    double direction = 0;  ///< from the robot, degrees, 90 to its left
    bool looksAtRobot = false;
    bool walks = false;
    bool waves = false;
};

/// Something that moves, as it is at one moment; people who walk or wave do.
struct Movement {
    double distance = 0;   ///< from the robot, metres
    double direction = 0;  ///< from the robot, degrees, 90 to its left
    double width = 0;      ///< metres
    double height = 0;     ///< metres
};

/// Who and what is around the robot: a model without clock or services. People stand or walk, in
/// straight lines at an even speed, so that where they are is exact at any time:
///
///     p(t) = a + (b - a) · v · (t - t0) / |b - a|     on the way from a, left at t0, to b
///
/// They face where they walk; who stands faces where they last walked, and who has just come in the
/// robot. They look at the robot when it is at most kGazeTolerance off the direction of their gaze.
///
/// Times are uptimes of one clock, and never go back from call to call. What makes no sense is
/// refused with KRError (module kService), and changes nothing. Used by one thread at a time.
class World {
public:
    static constexpr const char* kService = "KRWorld";
    static constexpr double kGazeTolerance = 20;  ///< degrees
    /// The hall is large; nothing farther off, in metres along an axis, would ever be perceived.
    static constexpr double kMaxCoordinate = 100;
    /// Metres a second; nobody runs faster.
    static constexpr double kMaxSpeed = 12;
    static constexpr double kMaxSeconds = 86400;
    static constexpr std::size_t kMaxPersons = 100;     ///< and as many things that move
    static constexpr std::size_t kMaxWaypoints = 1000;  ///< of one walk

    /// Somebody of a new name appears at a place, and stands there.
    void enter(const std::string& name, Place place, vo::Duration now);
    /// Walks from where they are through these places, and stops at the last; in metres a second.
    void walk(const std::string& name, const std::vector<Place>& through, double speed,
              vo::Duration now);
    void look(const std::string& name, Gaze gaze);
    /// Waves for so many seconds from now on.
    void wave(const std::string& name, double seconds, vo::Duration now);
    void leave(const std::string& name);
    /// Something of a size, in metres both ways, moves at a place for so many seconds.
    void move(Place place, double seconds, double size, vo::Duration now);

    /// In the order in which they came.
    std::vector<Person> persons(vo::Duration now) const;
    /// Those of people first.
    std::vector<Movement> movements(vo::Duration now) const;
    /// Whether somebody walks or waves, or something moves.
    bool isInMotion(vo::Duration now) const;

    /// Each raises KRError, naming `method`, for a value that the model does not take. NaN is none
    /// that it takes.
    static void checkName(const std::string& name, const char* method);
    static void checkPlace(Place place, const char* method);
    static void checkWalk(const std::vector<Place>& through, double speed, const char* method);
    static void checkSeconds(double seconds, const char* method);
    static void checkSize(double size, const char* method);

private:
    struct Step {
        Place to;
        vo::Duration end;
    };
    struct Somebody {
        std::string name;
        Place from;  ///< where the walk began
        vo::Duration begin{};
        std::vector<Step> walk;
        double facing = 0;  ///< degrees, before the walk
        Gaze gaze;
        vo::Duration wavesUntil{};
    };
    struct Something {
        Place place;
        double size;
        vo::Duration until;
    };
    /// Where somebody is, and which way they face.
    struct Stand {
        Place place;
        double facing;
        bool walks;
    };

    static Stand standOf(const Somebody& somebody, vo::Duration now);
    Somebody& find(const std::string& name, const char* method);

    std::vector<Somebody> people_;
    std::vector<Something> things_;
};

}  // namespace KR
