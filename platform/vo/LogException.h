#pragma once

#include <string>

namespace vo {

/// Logs, as an error, the exception that is being handled. Only to be called in a catch block; for
/// the places where an exception of a callback ends. Never throws.
void logCurrentException(const char* category, const std::string& label) noexcept;

}  // namespace vo
