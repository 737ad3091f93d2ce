#pragma once

#include <cstddef>

#include "platform/kr/KRValue.h"

namespace YAML {
class Node;
}

namespace KR {

/// Values that the arrays of one conversion may hold, nested ones included: far beyond any real
/// use, and a bound on what aliases of aliases can expand to.
constexpr std::size_t kMaxYamlValues = 10'000;
/// Deepest nesting of arrays; an array of scalars is 1 deep.
constexpr std::size_t kMaxYamlDepth = 32;

/// A YAML value as the platform knows it, by YAML 1.2's core schema: an unquoted scalar becomes
/// bool, int, float or text, null ("", "~", "null") becomes the invalid value, a quoted or block
/// scalar is always text; a sequence becomes an array.
///
/// Throws YamlError for a number that does not fit in 64 bits, a mapping, a tag, a node that is not
/// there, and more than the limits above. Thread-safe as long as nobody changes the document.
KRValue yamlToKRValue(const YAML::Node& node);

}  // namespace KR
