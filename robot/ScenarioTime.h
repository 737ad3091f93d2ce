#pragma once

#include <optional>
#include <string>

#include "platform/vo/Clock.h"

namespace KR {

/// Longest time that a scenario may take, in days.
constexpr int kMaxScenarioDays = 366;

/// A time as people write it: "HH:MM", "HH:MM:SS" or "HH:MM:SS.mmm", and before it, where it is
/// another day, the day's number and a blank ("2 07:30"; day 1 is the first). "24:00" is the end
/// of a day.
struct DayTime {
    std::optional<int> day;  ///< from 1 to kMaxScenarioDays
    vo::Duration time{};     ///< since that day's midnight

    /// Since the midnight of day 1.
    vo::Duration sinceFirstMidnight(int defaultDay) const;
};
/// Nothing for a text that is no such time.
std::optional<DayTime> parseDayTime(const std::string& text);

/// The last midnight, in UTC.
vo::TimePoint midnightOf(vo::TimePoint time);

/// "2026-11-21 06:00[:00]", or with a T between date and time. Nothing for a text that is no such
/// time, or one before the epoch.
std::optional<vo::TimePoint> parseDateTime(const std::string& text);

}  // namespace KR
