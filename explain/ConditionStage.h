#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/conditions/ConditionCompiler.h"
#include "platform/conditions/ConditionNetwork.h"
#include "platform/conditions/ConditionPart.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"

namespace KR {

/// Conditions that are played through on a time line of their own: the network of truths that the
/// checker has, without the checker's memory, clock and thread. So it can stand beside a robot that
/// lives in the same process.
///
///     add(), load() --begin()--> write(), advance(), ... --end()--> as before begin()
///
/// Moments are those of the checker: a write is one, what is due at one instant is one, and a write
/// at that very instant comes before it. Times are given in ascending order. Not thread-safe.
class ConditionStage {
public:
    /// A condition whose truth has changed, and to what.
    using Change = std::pair<unsigned, bool>;

    ConditionStage() : compiler_(network_) {}
    ConditionStage(const ConditionStage&) = delete;
    ConditionStage& operator=(const ConditionStage&) = delete;

    /// Adds a condition, before begin(); ids count from 1. Throws ConditionSyntaxError.
    unsigned add(const std::string& text);
    /// What a key holds to begin with; one that no condition reads is ignored.
    void load(const std::string& key, const KRValue& value, std::optional<vo::TimePoint> written);
    /// Until that time holds and counts go on with what they remembered, by the text of the part;
    /// see ConditionNetwork::resume(). Uptimes are times since the Unix epoch.
    void resume(std::map<std::string, TimedHistory> histories, vo::TimePoint until);
    /// Follows the conditions from here on. What is true now has not become true now.
    void begin(vo::TimePoint now);
    /// No time goes on from here on, and nothing is followed.
    void end() { network_.end(); }

    /// A write, after what was due before it. Returns what that all changed, in its order.
    std::vector<std::pair<vo::TimePoint, Change>> write(const std::string& key,
                                                        const KRValue& value, vo::TimePoint time);
    /// What is due up to that instant, and at it, comes about. Returns what that changed.
    std::vector<std::pair<vo::TimePoint, Change>> advance(vo::TimePoint time);

    vo::TimePoint now() const { return now_; }
    bool isTrue(unsigned id) const { return network_.isTrue(compiler_.rootOf(id)); }
    /// When something may change if nothing is written.
    std::optional<vo::TimePoint> nextDue() const;
    /// As ConditionChecker::inspect() tells of one that was added.
    ConditionPart inspect(unsigned id);

private:
    using Changes = std::vector<std::pair<vo::TimePoint, Change>>;
    void elapse(vo::Duration limit, Changes& changes);
    void note(const std::vector<unsigned>& changed, vo::TimePoint time, Changes& changes) const;

    ConditionNetwork network_;
    ConditionCompiler compiler_;
    unsigned lastId_ = 0;
    vo::TimePoint now_{};
};

}  // namespace KR
