#pragma once

#include <deque>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "explain/LifeState.h"
#include "platform/kr/KeyCatalogue.h"

namespace KR {

/// Tells what became of an activity: which rules start it, and how that went. Takes the events of a
/// life in their order, as Explainer does. Not thread-safe.
class ActivityExplainer {
public:
    ActivityExplainer(std::string activity, RuleReader reader)
        : activity_(std::move(activity)), life_(std::move(reader))
    {
    }
    void take(const Event& event) { life_.take(event); }
    /// As docs/why.md has it; null where nothing is known of it.
    nlohmann::ordered_json answer(vo::TimePoint at, std::optional<vo::TimePoint> from) const;
    /// Of those that rules start or packages bring.
    std::vector<std::string> activities() const;

private:
    const std::string activity_;
    LifeState life_;
};

/// Tells what a key held, who wrote it, and which rules read it. Not thread-safe.
class KeyExplainer {
public:
    /// Changes that are kept.
    static constexpr std::size_t kMostChanges = 32;

    /// `catalogue` may be null, and outlives this.
    KeyExplainer(std::string key, RuleReader reader, const KeyCatalogue* catalogue)
        : key_(std::move(key)), catalogue_(catalogue), life_(std::move(reader))
    {
    }
    void take(const Event& event);
    /// As docs/why.md has it; null where nobody knows the key.
    nlohmann::ordered_json answer(vo::TimePoint at, std::optional<vo::TimePoint> from) const;
    /// Those that are known.
    std::vector<std::string> keys() const;

private:
    struct Change {
        vo::TimePoint at;
        KRValue value;
        std::string writer;
    };

    const std::string key_;
    const KeyCatalogue* const catalogue_;
    LifeState life_;
    std::deque<Change> changes_;
};

/// Who publishes a key, and whether that runs: "; published by X, which runs". "" where nobody
/// does.
std::string publishersText(const std::string& key, const LifeState& life,
                           const KeyCatalogue* catalogue);

/// The answers for people, made from their JSON alone.
std::string activityText(const nlohmann::ordered_json& answer, std::size_t width);
std::string keyText(const nlohmann::ordered_json& answer, std::size_t width);

}  // namespace KR
