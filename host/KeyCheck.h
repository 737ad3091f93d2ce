#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/conditions/ConditionParser.h"
#include "platform/kr/KeyCatalogue.h"

namespace KR {

/// Something in a condition that its author can hardly mean.
struct KeyDoubt {
    std::string key;
    std::string text;
};

/// What a condition reads that nobody publishes, and what it compares with that its key can never
/// hold; each once. `keys` is all that is known, its entries with the names of the publishers.
std::vector<KeyDoubt> keyDoubts(const Expression& condition, const KeyCatalogue& keys);

}  // namespace KR
