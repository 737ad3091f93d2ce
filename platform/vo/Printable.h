#pragma once

#include <cstddef>
#include <string>

namespace vo {

/// A text from outside, fit for a terminal and for one line: bytes that are no UTF-8, and
/// characters that steer a terminal, turn the direction of writing or cannot be seen, stand as
/// "\n", "\t" or
/// "\x1b". What joins letters and emoji is part of their spelling, and stays.
std::string printable(const std::string& text);

/// A text of at most `maxBytes`; of a longer one the beginning, cut between two characters, and how
/// much was left out: "begin... (123 bytes left out)".
std::string shortened(const std::string& text, std::size_t maxBytes);

}  // namespace vo
