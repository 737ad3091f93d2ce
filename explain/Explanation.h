#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "explain/Remedies.h"
#include "explain/RuleSource.h"
#include "explain/TruthTree.h"
#include "platform/vo/Clock.h"

namespace KR {

/// One of the things that a rule has to pass, in the order in which it comes to them.
struct Gate {
    /// "exists", "loaded", "registered", "monitored", "condition", "edge", "proposed", "order",
    /// "skip", "wait", "focus", "permission", "step" or "deadline".
    std::string name;
    std::optional<bool>
        passed;  ///< nothing: it was not asked, as one before was not passed; or is under way
    std::optional<vo::TimePoint> at;
    std::string text;

    // Evidence.
    std::optional<TruthNode> tree;     ///< of "condition"
    std::vector<std::string> because;  ///< rules that stand in the way, or who brought it about
    std::vector<std::string> reasons;  ///< as they were given
    std::string step;                  ///< the step that it is about
    std::string outcome;               ///< of the step
};

/// A time at which a rule was proposed, and what came of it.
struct ExplainedHit {
    vo::TimePoint at;
    std::string before;  ///< the activity that it came before; "" for none
    std::string
        outcome;  ///< "done", "refused", "failed", "skipped", "waits", "dropped" or "goes on"
    std::string text;
    std::vector<std::string> steps;  ///< with their outcomes
};

/// What would let the rule act.
struct ExplainedRemedy {
    Remedy remedy;
    bool checked = false;  ///< it was tried: with it, the rule is proposed
    /// What else has to be done, or what it is, for people.
    std::string text;
    std::vector<std::string> standing;  ///< what stands in the way after it
};

/// Why a rule acted, or did not, at a time: complete, the same whether it did or not. A plain
/// value.
struct Explanation {
    std::string rule;
    std::optional<RuleSource> source;  ///< nothing where there is no such rule
    std::string didYouMean;  ///< a rule that was meant, and its place; where there is no such rule
    std::string condition;
    std::string manner;  ///< when it is proposed
    vo::TimePoint asked;
    std::optional<vo::TimePoint> loaded;
    bool acted = false;
    std::string verdict;  ///< the same in a few words
    std::vector<Gate> gates;
    std::vector<ExplainedHit> hits;  ///< around that time, oldest first
    std::vector<ExplainedRemedy> remedies;
    bool isSearchCut = false;        ///< there may be more remedies
    std::vector<std::string> notes;  ///< what limits the answer
};

}  // namespace KR
