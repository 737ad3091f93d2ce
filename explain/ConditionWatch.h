#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "explain/ConditionRehearsal.h"
#include "explain/ConditionStage.h"
#include "platform/conditions/ConditionPart.h"

namespace KR {

/// Follows one condition and all its parts through the writes of its keys, as the checker did:
/// since when each part has its truth, and what made the whole true last.
///
///     made --begin()--> following --end()--> not following --begin()--> ...
///
/// Not thread-safe.
class ConditionWatch {
public:
    /// Throws ConditionSyntaxError.
    explicit ConditionWatch(const std::string& condition);

    bool reads(std::string_view key) const { return keys_.count(key) > 0; }
    /// In ascending order of time. While it does not follow, only the value is taken.
    void write(const std::string& key, const KRValue& value, vo::TimePoint time,
               const std::string& writer = {});
    /// What a key holds from an earlier time on.
    void load(const std::string& key, const KRValue& value, vo::TimePoint written);
    /// Until that time holds and counts go on with what they remembered before a restart.
    void resume(const std::map<std::string, TimedHistory>& histories, vo::TimePoint until)
    {
        stage_.resume(histories, until);
    }
    void begin(vo::TimePoint time);
    void end(vo::TimePoint time);
    bool isFollowing() const { return isFollowing_; }
    /// What is due by then comes about.
    void advance(vo::TimePoint time);

    bool isTrue() const { return stage_.isTrue(1); }
    ConditionPart inspect() { return stage_.inspect(1); }
    ConditionMoment moment(vo::TimePoint now);
    /// Since when a part, by its text in one way of writing, has its truth: since it began to be
    /// followed at the earliest. Nothing for no part.
    std::optional<vo::TimePoint> since(const std::string& part) const;

    /// The whole condition's becoming true or false.
    struct Turn {
        vo::TimePoint at;
        /// The key whose write brought it about; "" for time, or the beginning.
        std::string key;
        KRValue before;
        KRValue after;
        std::string writer = {};
        bool isBeginning = false;
    };
    const std::optional<Turn>& rise() const { return rise_; }
    const std::optional<Turn>& fall() const { return fall_; }
    /// How often it became true, the beginning included.
    std::size_t rises() const { return rises_; }

private:
    struct Part {
        std::string text;
        bool isRisen = false;  ///< it became true while it was followed
        std::optional<vo::TimePoint> changed;
        vo::TimePoint risen;
    };

    void addParts(const Expression& expression);
    void note(const std::vector<std::pair<vo::TimePoint, ConditionStage::Change>>& changes,
              const Turn& cause);

    ConditionStage stage_;
    std::vector<Part> parts_;  ///< by id; the first is none
    std::map<std::string, unsigned> ids_;
    std::map<std::string, KRValue, std::less<>> keys_;
    bool isFollowing_ = false;
    vo::TimePoint begun_;
    std::optional<Turn> rise_;
    std::optional<Turn> fall_;
    std::size_t rises_ = 0;
};

}  // namespace KR
