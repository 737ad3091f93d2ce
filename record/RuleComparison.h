#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/vo/Clock.h"
#include "record/RuleLog.h"

namespace KR {

/// One respect in which a rule fares otherwise.
struct RuleChange {
    enum class Kind {
        less,       ///< it was proposed there, and is not
        more,       ///< the other way round
        earlier,    ///< it is proposed earlier
        later,      ///< it is proposed later
        otherwise,  ///< it is proposed as it was, and something else becomes of it
    };
    Kind kind;
    std::optional<RuleOccurrence> before;  ///< nothing for `more`
    std::optional<RuleOccurrence> now;     ///< nothing for `less`
    std::string gate;                      ///< what decided, for people
};

/// "less", "more", ...
const char* changeName(RuleChange::Kind kind);

struct ComparedRule {
    std::string rule;
    std::size_t hitsBefore = 0;
    std::size_t hitsNow = 0;
    std::vector<RuleChange> changes;  ///< in the order of their times
};

/// What two lives over the same senses have in common.
struct RuleComparison {
    std::vector<ComparedRule> rules;  ///< by name; all that are proposed in either
    /// The first difference that the body or the world feels: from there on the robot might have
    /// sensed something else.
    struct Felt {
        vo::TimePoint time;
        std::string rule;
        std::string effect;  ///< a step, for people
        bool isNew = false;  ///< it is done now and was not before, or the other way round
    };
    std::optional<Felt> firstFelt;

    bool isSame() const;
    /// Forgets the changes before a time.
    void cutBefore(vo::TimePoint time);
};

/// Proposals of one rule are taken for the same one that are less than `tolerance` apart. `whyNot`
/// tells for people why a rule was not proposed now at a time at which it was before.
RuleComparison compareRules(
    const RuleLog& before, const RuleLog& now, vo::Duration tolerance,
    const std::function<std::string(const std::string& rule, vo::TimePoint time)>& whyNot);

}  // namespace KR
