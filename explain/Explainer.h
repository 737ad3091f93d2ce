#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "explain/ConditionWatch.h"
#include "explain/Explanation.h"
#include "explain/GateBuilder.h"
#include "explain/LifeState.h"
#include "platform/kr/KeyCatalogue.h"

namespace KR {

/// Answers why a rule acted, or did not. It takes the events of a life in their order up to the
/// time that is asked about, live or from a recording, and can answer at any time. Memory does not
/// grow with the length of the life.
///
/// Not thread-safe.
class Explainer {
public:
    /// `catalogue` says what keys mean and who publishes them; it may be null, and outlives this.
    Explainer(std::string rule, RuleReader reader, const KeyCatalogue* catalogue);

    void take(const Event& event);

    /// Whether the writes of a key can matter to an answer; where they cannot, they need not come.
    /// Of a rule that may still be brought by a package, or be replaced, all may.
    bool needs(std::string_view key) const;

    /// As of the latest event, or a later time. Hits from `from` on are told, or where it is not
    /// given the latest ones.
    Explanation answer(vo::TimePoint at, std::optional<vo::TimePoint> from = std::nullopt);

    /// The condition part by part; nothing where there is none that parses.
    std::optional<TruthNode> treeAt(vo::TimePoint at);

    const LifeState& life() const { return life_; }

private:
    void follow(vo::TimePoint time);
    void onRise(vo::TimePoint time);
    TruthNode treeNow();
    void addRemedies(Explanation& explanation, const std::vector<Standing>& standing,
                     bool isUnderWay);
    KeyFacts factsOf(const std::string& key, bool isKnown) const;

    const std::string rule_;
    const KeyCatalogue* const catalogue_;
    LifeState life_;
    std::string condition_;  ///< that is watched
    std::string syntaxError_;
    std::unique_ptr<ConditionWatch> watch_;
    std::size_t risesSeen_ = 0;
    std::optional<HitTree> rise_;   ///< when it became true last
    std::deque<HitTree> hitTrees_;  ///< the latest ones, oldest first
    bool isChecked_ = false;        ///< conditions are followed
    bool isConfigured_ = false;     ///< the rule stands in the configuration
};

}  // namespace KR
