#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "explain/ConditionStage.h"
#include "platform/conditions/ConditionParser.h"
#include "platform/conditions/ConditionPart.h"

namespace KR {

/// A condition as it stood at a moment, with all that it takes to go on from there.
struct ConditionMoment {
    vo::TimePoint now{};
    ConditionPart condition;  ///< see ConditionChecker::inspect()
    /// When operands of `within` became true last, by their texts. Where one is not known, it has
    /// never become true, unless the `within` is true.
    std::map<std::string, vo::TimePoint> rises = {};
};

/// The keys that a condition reads, each with a part that tells of it: one of kind `key` if there
/// is one, and else an age. The parts are the condition's.
std::map<std::string, const ConditionPart*> keysIn(const ConditionPart& condition);

/// What would become of a condition, from a moment on, if keys were written and time passed: the
/// conditions' own network is brought to where it stood, and goes on from there.
///
/// What holds, counts and `within` remember is when their operands became true, and those may read
/// keys whose past is not known. So each operand gets a key of the rehearsal's own beside it, which
/// plays that past while another one keeps the operand itself out of it; then the operand takes
/// over, without a change of truth that anybody would notice.
///
/// Not thread-safe.
class ConditionRehearsal {
public:
    explicit ConditionRehearsal(const ConditionMoment& moment);

    /// Goes back to the moment that it began at.
    void restart();
    void write(const std::string& key, const KRValue& value) { stage_->write(key, value, now()); }
    void wait(vo::Duration duration) { stage_->advance(now() + duration); }
    /// What is due now comes about, which writes made now do not wait for.
    void settle() { stage_->advance(now()); }

    vo::TimePoint now() const { return stage_->now(); }
    bool isTrue() const { return stage_->isTrue(1); }
    std::optional<vo::TimePoint> nextDue() const { return stage_->nextDue(); }
    /// Part by part, as the condition is written.
    ConditionPart inspect();

private:
    /// What an operand was, before now.
    struct Past {
        std::string key;  ///< of the rehearsal's own
        bool isTrue = false;
        std::vector<vo::TimePoint> rises;  ///< when it became true, oldest first
    };

    void rebuild(const ConditionMoment& moment, Expression& expression, const ConditionPart& part);
    void follow(Expression& operand, const ConditionPart& part, std::vector<vo::TimePoint> rises);
    void loadKeys();
    void playPast();
    ConditionPart withoutOwnKeys(ConditionPart part, const Expression& expression) const;

    struct Held {
        KRValue value;
        std::optional<vo::TimePoint> written;
    };

    // Constant after construction.
    const vo::TimePoint start_;
    const Expression expression_;
    std::string prefix_ = "rehearsal";  ///< of the keys of its own
    std::string rebuilt_;               ///< the condition's text, with those
    std::vector<Past> pasts_;
    std::map<std::string, Held> keys_;

    std::unique_ptr<ConditionStage> stage_;
};

}  // namespace KR
