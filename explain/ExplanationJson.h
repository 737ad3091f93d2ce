#pragma once

#include <nlohmann/json_fwd.hpp>

#include "explain/Explanation.h"
#include "platform/kr/KRValue.h"

namespace KR {

/// An explanation as docs/why.md has it: all that there is to tell.
nlohmann::ordered_json jsonOf(const Explanation& explanation);

/// A value as JSON has it; null for the invalid one, and for what is no number.
nlohmann::ordered_json jsonOfValue(const KRValue& value);

}  // namespace KR
