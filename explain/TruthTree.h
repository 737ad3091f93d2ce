#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/conditions/ConditionPart.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"

namespace KR {

/// A part of a condition at a moment, as it is told: what it says and where, whether it was true
/// and since when; of a key what it held, who wrote it, and why it was not known. A plain value.
struct TruthNode {
    std::string kind;      ///< "all", "any", "not", "for", "within", "count", "age", "comparison",
                           ///< "key", "literal"
    std::string text;      ///< as it is written
    std::size_t from = 0;  ///< its place in the condition
    std::size_t to = 0;    ///< behind it
    bool truth = false;
    std::optional<vo::TimePoint> since;   ///< it has this truth; of a key, it has this value
    std::optional<vo::TimePoint> due;     ///< when its truth changes if nothing is written
    std::vector<vo::TimePoint> instants;  ///< see ConditionPart

    // Of a key, and of an age.
    std::string key;
    KRValue value;
    bool isKnown = false;
    std::optional<vo::TimePoint> written;
    std::string writer;
    std::string why;  ///< it is not known

    std::vector<TruthNode> children;  ///< literals aside
};

/// What is known of a key, besides its value.
struct KeyFacts {
    std::optional<vo::TimePoint> since;
    std::string writer;
    std::string why;  ///< it is not known
};

/// What a tree is made with: since when a part, by its text in one way of writing, has its truth;
/// and what is known of a key.
struct TreeFacts {
    std::function<std::optional<vo::TimePoint>(const std::string& part)> since;
    std::function<KeyFacts(const std::string& key, bool isKnown)> key;
};

/// The tree of a condition; `condition` is its text, and `part` what it amounted to.
TruthNode makeTruthTree(const std::string& condition, const ConditionPart& part,
                        const TreeFacts& facts);

}  // namespace KR
