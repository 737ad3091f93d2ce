#pragma once

#include <vector>

#include "host/KeyCheck.h"

namespace KR {

/// The holds of a condition that are never reached, as what is to be held is not true for so long
/// at a stretch; and ages that are never so at the same time; each once. How long it can be true is
/// known of keys that step through their values, as the hour does, and of ages. It is reckoned with
/// time that goes on as usual: no plugin that rests, no clock that is set.
std::vector<KeyDoubt> durationDoubts(const Expression& condition, const KeyCatalogue& keys);

}  // namespace KR
