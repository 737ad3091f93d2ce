#pragma once

#include <cstdint>
#include <functional>

#include "platform/conditions/ConditionChecker.h"
#include "platform/vo/Clock.h"

namespace KR {

/// What a condition checker does that no change of memory brings about.
struct CheckerMove {
    enum class Kind {
        started,  ///< every condition was evaluated, and is followed from here on
        stopped,  ///< no condition is followed any more
        period,   ///< what is true, and to be reported while it is, was reported
        settled,  ///< what was due by then came about
        both,     ///< what was due by then came about, and then what a period reports
        checked,  ///< every condition was evaluated, as somebody asked for
    };
    Kind kind;
    std::uint64_t after;  ///< the number of the last write that it had seen
    vo::Duration uptime;  ///< when
};

/// Has a checker do at given places what its clock would have it do: for who repeats what a checker
/// did, move by move. The changes of memory come as they are.
class CheckerScript {
public:
    CheckerScript() = default;
    CheckerScript(const CheckerScript&) = delete;
    CheckerScript& operator=(const CheckerScript&) = delete;

    /// Takes the clock's place, for good. Before the checker runs; it outlives the use of this.
    void take(ConditionChecker& checker);
    /// A period is over: CheckerMove::Kind::period.
    void period();
    /// Time has come to that uptime: CheckerMove::Kind::settled, or `both`.
    void settle(vo::Duration uptime, bool periodOver);
    /// The next instant at which something is due comes about, if it is not after that uptime:
    /// what a checker does by itself before the next write. False when there is none.
    bool elapse(vo::Duration until);

private:
    ConditionChecker* checker_ = nullptr;
};

}  // namespace KR
