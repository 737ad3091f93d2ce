#pragma once

#include <vector>

#include "explain/CandidateValues.h"
#include "explain/Remedies.h"
#include "platform/conditions/ConditionParser.h"
#include "platform/conditions/ConditionPart.h"

namespace KR {

/// What can be done next about a condition that is not as it should be: its parts are walked down
/// to those that stand in the way. A move need not be enough.
class RemedyMoves {
public:
    using Move = std::vector<Remedy::Step>;
    using Moves = std::vector<Move>;

    /// All outlive it. `condition` is what `expression` amounts to at `now`.
    RemedyMoves(const CandidateValues& values, vo::TimePoint now) : values_(values), now_(now) {}

    /// Towards the truth that is wanted, and that it does not have. None where nothing can be done.
    Moves towards(const Expression& expression, const ConditionPart& part, bool wanted) const;

private:
    Moves ofAll(const Expression& expression, const ConditionPart& part, bool wanted) const;
    Moves ofAny(const Expression& expression, const ConditionPart& part, bool wanted) const;
    Moves ofComparison(const Expression& expression, const ConditionPart& part, bool wanted) const;
    Moves ofCount(const Expression& expression, const ConditionPart& part, bool wanted) const;
    Moves ofAge(const ConditionPart& part) const;
    Moves rises(const Expression& operand, const ConditionPart& part) const;
    Moves waitFor(const ConditionPart& part) const;

    const CandidateValues& values_;
    const vo::TimePoint now_;
};

}  // namespace KR
