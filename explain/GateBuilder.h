#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "explain/ConditionWatch.h"
#include "explain/Explanation.h"
#include "explain/LifeState.h"

namespace KR {

/// What a condition was when it became true, or when its rule was proposed.
struct HitTree {
    vo::TimePoint at;
    TruthNode tree;
    std::optional<ConditionWatch::Turn> rise;
};

/// Something that stands in a rule's way at present, and what would take it away; "" where only
/// time does.
struct Standing {
    std::string gate;
    std::string text;
    std::string remedy;
};

/// What is known of a rule at a time.
struct RuleFacts {
    const std::string& name;
    const LifeState& life;
    const ConditionWatch* watch;  ///< null where the condition cannot be followed
    const std::optional<TruthNode>& now;
    const std::optional<HitTree>& rise;
    const std::deque<HitTree>& hitTrees;
    const std::string& syntaxError;
    vo::TimePoint at;
    std::optional<vo::TimePoint> from;
};

/// Goes through the gates of a rule, in their order. For one answer.
class GateBuilder {
public:
    /// What the facts refer to outlives it.
    explicit GateBuilder(const RuleFacts& facts) : facts_(facts) {}

    /// Everything but the remedies.
    Explanation build();
    /// What stands in the way at present; after build().
    std::vector<Standing> standing() const;
    /// Whether it goes on by itself: it waits, or carries its steps out; after build().
    bool isUnderWay() const { return hit_ && !hit_->isOver; }

private:
    Gate& add(const char* name, std::optional<bool> passed, const std::string& text,
              std::optional<vo::TimePoint> at = std::nullopt);
    std::string when(vo::TimePoint time) const;
    const RuleHit* relevantHit() const;
    const HitTree* treeOf(const RuleHit& hit) const;

    void addKnown();
    void addLoaded();
    void addCondition();
    void addEdge();
    void addVerdicts();
    void addOrder();
    void addSkip();
    void addWait();
    void addSteps();
    void addHits();
    std::string activeText(const std::vector<std::string>& rules) const;
    std::string focusText() const;
    std::string blockText(const HeldFact& block) const;
    std::string stepsText() const;

    const RuleFacts facts_;
    const RuleSource* source_ = nullptr;
    const RuleState* state_ = nullptr;
    const RuleHit* hit_ = nullptr;  ///< that the answer is about; null for none
    bool isOpen_ = true;            ///< no gate so far was not passed
    Explanation explanation_;
};

/// When a rule is proposed, for people.
std::string mannerOf(const AutonomousAction& rule);

}  // namespace KR
