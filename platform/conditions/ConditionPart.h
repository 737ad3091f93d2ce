#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"

namespace KR {

/// A condition, or a part of one, as it stood at a moment: what it says, what came of it, and why.
/// A plain value.
struct ConditionPart {
    enum class Kind {
        literal,
        key,
        duration,
        age,
        count,
        negation,
        hold,
        within,
        all,
        any,
        comparison
    };

    Kind kind = Kind::literal;
    std::string text;  ///< in one way of writing
    /// What it amounts to: the value of a key or literal, which is invalid for an unknown key, and
    /// otherwise its truth. An age is in seconds, and invalid for a key that was never written; of
    /// a duration and a count it is invalid.
    KRValue value;
    std::vector<ConditionPart> parts;  ///< its operands

    // Of a key, and of an age.
    std::string key;
    std::optional<vo::TimePoint> written;  ///< when it was written last; nothing for never

    // Of a part that speaks of time; of a count and an age they are those of the comparison.
    /// Since when its operand is true, of a hold; when it became true, of a count. Oldest first,
    /// and no more than matter.
    std::vector<vo::TimePoint> instants;
    /// When its truth changes if nothing else does.
    std::optional<vo::TimePoint> due;

    bool isTrue() const { return value.isTrue(); }
};

}  // namespace KR
