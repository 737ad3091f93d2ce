#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace KR {

/// An explanation for people, made from its JSON alone, in lines of at most so many cells where
/// words allow it. Fit for a terminal.
std::string explanationText(const nlohmann::ordered_json& explanation, std::size_t width);

/// "12:41:27.400", or with its date before it where that is not the date of `asked`; both as JSON
/// has them.
std::string timeText(const std::string& time, const std::string& asked);

/// The steps of a remedy, as JSON has them: "'A' = 1, then 5 s".
std::string changesText(const nlohmann::ordered_json& changes);

}  // namespace KR
