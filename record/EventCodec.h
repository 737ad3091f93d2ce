#pragma once

#include <cstddef>
#include <string>

#include "life/Event.h"

namespace simdjson::dom {
class object;
}  // namespace simdjson::dom

namespace KR {

// An event as JSON, in which nothing of it is lost; docs/recording.md has the form. Thread-safe.

/// Arrays in values may be nested as deep as this.
constexpr std::size_t kMaxRecordedDepth = 500;

/// One object, on one line that has no end. std::length_error for a value that is nested too deep.
std::string encodeEvent(const Event& event);

/// std::runtime_error for what encodeEvent() does not write, which says what is wrong; fields that
/// are not known are passed over.
Event decodeEvent(const simdjson::dom::object& json);
Event decodeEvent(const std::string& json);

}  // namespace KR
