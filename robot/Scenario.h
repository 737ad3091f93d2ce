#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/config/ApiWrapper.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"
#include "robot/ScenarioTime.h"

namespace KR {

/// Largest scenario file that is read, checked before parsing. A day written by hand is a few
/// kilobytes; a recorded one stays below this.
constexpr std::size_t kMaxScenarioBytes = std::size_t{2} * 1024 * 1024;

/// A scenario that cannot be used; what() is "FILE:LINE:COLUMN: problem", without the place where
/// there is none.
class ScenarioError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One thing that happens to the robot; most of them are calls of the service "KRWorld".
struct ScenarioStep {
    enum class Kind { say, raise, call };
    Kind kind;
    std::string text;                ///< what is said, or the key that is raised
    KRValue value;                   ///< of a raise
    std::optional<ApiWrapper> call;  ///< of a call
};

/// What happens at one time, in the order written. A pulse is two raises, of 0 and of 1.
struct ScenarioEntry {
    vo::TimePoint time;
    std::vector<ScenarioStep> steps;
};

/// A stretch of a robot's life, written down so that it can be played again. A plain value.
///
///     Scenario: A visitor
///     Start: 2026-11-21 06:00:00      # a wall-clock time, without a zone
///     End: "08:00"                    # optional, a date and time, or as in At
///     Timeline:
///       - At: "07:00:30"              # without a day: that of the entry before
///         Say: Somebody comes in and waves.
///         Enter: {Anna: [4, 1]}
///         Wave: {Anna: 3}
///         Raise: {Door/IsOpen: true}
///         Call: {Module: KRNimbra, Method: stopFocus, Args: []}
///
/// ScenarioSteps reads what an entry holds.
struct Scenario {
    std::string title;
    vo::TimePoint start;
    std::optional<vo::TimePoint> end;
    std::vector<ScenarioEntry> timeline;  ///< in ascending order of time

    /// The keys that it raises, in ascending order.
    std::vector<std::string> keys() const;
};

/// Reads a scenario file. ScenarioError when it is missing, unreadable, wrong, too large or beyond
/// the bounds of loadYamlFile(), which hold for its nesting and for what its aliases amount to.
Scenario loadScenario(const std::string& path);

}  // namespace KR
