#pragma once

#include <string>

#include "platform/vo/Clock.h"
#include "platform/vo/Printable.h"

namespace KR {

using vo::printable;

/// Cells that a text in UTF-8 takes in a terminal, with every character one wide.
std::size_t displayWidth(const std::string& text);

/// "2026-11-21T06:00:00.000000Z".
std::string isoTime(vo::TimePoint time);
/// "06:00:00", and with milliseconds, "06:00:00.250", where there are any.
std::string clockTime(vo::TimePoint time);
/// "Saturday, 21 November 2026".
std::string dayTitle(vo::TimePoint time);
/// "1 d 02 h 03 min", "2 h 03 min", "3 min 04 s", "4.250 s".
std::string lengthText(vo::Duration length);

}  // namespace KR
