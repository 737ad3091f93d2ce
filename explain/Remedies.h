#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "explain/ConditionRehearsal.h"
#include "platform/kr/KRValue.h"
#include "platform/kr/KeyCatalogue.h"
#include "platform/vo/Clock.h"

namespace KR {

/// A way to make a condition true (or become true) from a moment on: these steps, one after the
/// other, while nothing else changes. A plain value.
struct Remedy {
    /// A write of a key; or, where the key is empty, the passing of time.
    struct Step {
        std::string key;
        KRValue value;
        vo::Duration wait{};
    };
    std::vector<Step> steps;

    /// The keys that are written.
    std::set<std::string> keys() const;
    /// How long it takes.
    vo::Duration wait() const;
};

/// What was found, the fewest keys first; of as many, the shortest wait, and then the fewest steps.
struct Remedies {
    static constexpr std::size_t kMost = 5;
    static constexpr std::size_t kMostKeys = 4;

    std::vector<Remedy> found;
    bool isCut = false;  ///< the search was given up before it had looked everywhere
};

/// What is wanted of a condition.
enum class RemedyGoal {
    isTrue,      ///< to be true
    becomesTrue  ///< to become true; one that is true has to be false in between
};

/// Ways to make a condition true: few, small and different ones. Each was tried on the conditions'
/// own network before it is given. Where a single write of one key or of two would do, nothing
/// larger is given in its stead.
///
/// What a condition means is not solved for. Its false parts say which writes and which waiting
/// would make a difference; what these lead to is tried, the least first. The work is bounded:
/// some 0.2 s of a processor at most. `catalogue` says which values keys can have; it may be null.
/// The same question has the same answer.
Remedies findRemedies(const ConditionMoment& moment, RemedyGoal goal,
                      const KeyCatalogue* catalogue);

}  // namespace KR
