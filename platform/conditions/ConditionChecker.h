#pragma once

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/conditions/ConditionPart.h"
#include "platform/kr/KRBroker.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"

namespace KR {

struct CheckerMove;

/// For every key that a registered condition reads: the stamp of its latest write, in microseconds
/// since the Unix epoch, and its value.
using PersistentValues = std::map<std::string, std::pair<std::uint64_t, KRValue>>;

/// Evaluates conditions written over shared-memory keys and reports what becomes of them.
///
/// The language: `'Key'` reads a memory key; literals are `"text"`, numbers, `true` and `false`;
/// operators are `!`, `&&`, `||`, `==`, `!=`, `<`, `<=`, `>`, `>=` and parentheses, with C's
/// precedence. A key that was never written, or holds an invalid value, is unknown: false as a
/// truth value, equal to nothing, and without order. See docs/conditions.md.
///
///     idle --run()--> running --stop()--> idle
///
/// While it runs, each change of memory is one moment: the conditions that read the changed key
/// are evaluated against memory as of that change, and all that it makes reportable comes in one
/// hit list, in ascending id order; conditions with a callback of their own follow it. Changes are
/// handled in the order in which they were raised and none is skipped. Hits are delivered on the
/// checker's own thread with no lock held, so a callback may call the checker, and may be slow:
/// changes queue up meanwhile. One hit list is delivered at a time, in the order of their moments,
/// whoever had them found; a callback sees the persistent values as of the moment that it is told
/// of. A callback that throws is logged, and the checker goes on.
///
/// Conditions may speak of time (`for`, `age`, `count`, `within`). Instants are uptimes of the
/// clock, so setting the clock changes nothing. What is due at one instant comes about in one
/// moment of its own, as of exactly that instant, however late the machine is: after the writes up
/// to and at that instant that memory has when the checker comes to it, and before all later ones.
/// While the checker is idle no time goes on for them: nothing is counted, and what was held begins
/// anew. On an idle checker a hold is therefore false, and a count tells of what was counted
/// before.
///
/// Condition texts are parsed once, equal ones together, and keys resolved to slots once.
/// Sub-conditions with the same meaning are one node, which passes on only a change of its truth,
/// so a change costs what it flips, not how many conditions there are. One that makes nothing
/// reportable allocates nothing of its own.
///
/// Thread-safe. Not to be destroyed by one of its own callbacks.
class ConditionChecker {
public:
    /// When a condition is reported. The values are fixed.
    enum ReportMode : unsigned {
        ReportWhileTrue = 0,     ///< when it becomes true, then every period while it stays true
        ReportBecomesFalse = 1,  ///< when it becomes false
        ReportChange = 2,        ///< at every change
        ReportBecomesTrue = 3,   ///< when it becomes true (rising edge)
        ReportNever = 4          ///< not at all; its cached truth can be asked
    };

    /// A condition id, and its truth at that moment.
    using Hit = std::pair<unsigned, KRValue>;
    using Hits = std::vector<Hit>;
    using Callback = boost::function<void(Hits)>;
    using ConditionCallback = boost::function<void(unsigned, const KRValue&)>;

    /// What a hold or a count remembers, by the wall clock, so that another checker can go on with
    /// it.
    struct History {
        bool isTrue = false;                  ///< its condition
        std::vector<vo::TimePoint> instants;  ///< when that became true, oldest first
    };
    /// By the text of the part of a condition, in one way of writing.
    using Histories = std::map<std::string, History>;

    /// For conditions that are replaced: while one lives, conditions that speak of time and are
    /// removed leave what they remember to those that are added with an equal part.
    class Replacement {
    public:
        /// The checker outlives it.
        explicit Replacement(ConditionChecker& checker);
        ~Replacement();
        Replacement(const Replacement&) = delete;
        Replacement& operator=(const Replacement&) = delete;

    private:
        ConditionChecker& checker_;
    };

    ConditionChecker();
    /// Stops.
    ~ConditionChecker();
    ConditionChecker(const ConditionChecker&) = delete;
    ConditionChecker& operator=(const ConditionChecker&) = delete;

    /// Binds the checker to a broker's memory and clock. Once, before anything else that needs
    /// them (std::logic_error otherwise).
    void connect(const boost::shared_ptr<KRBroker>& broker);

    /// Told of every move, from the next one on, in their order; with locks held, so it must not
    /// use the checker.
    using MoveObserver = std::function<void(const CheckerMove&)>;
    void setMoveObserver(MoveObserver observer);

    /// The number of the last write of memory (see MemoryChange::number) that a running checker has
    /// handled; inside of a callback, on its thread, when the hits were found that it is told of.
    std::uint64_t lastWrite() const;

    /// The receiver of hit lists: those of conditions that have no callback of their own.
    void setCallback(Callback callback);

    /// Parses and registers a condition. With a callback of its own, its hits go there and not
    /// into the hit lists. Ids start at 1 and are never reused while the checker lives. Throws
    /// ConditionSyntaxError (see ConditionParser.h) for a text that does not parse.
    ///
    /// On a running checker the condition is evaluated first as of now, in its turn after the
    /// changes that are queued, and counts as having become true if it is; every later change is
    /// a moment of it. The id is returned at once.
    unsigned addCondition(const std::string& text, ReportMode mode,
                          const ConditionCallback& callback = {});
    /// False when there is no such condition. A hit that is already on its way may still arrive.
    bool removeCondition(unsigned id);
    bool hasCondition(unsigned id) const;

    /// The cached truth of a condition: as of the latest change that the checker has handled.
    /// False for an unknown id, and before the first evaluation. Nothing is evaluated.
    bool isConditionTrue(unsigned id) const;

    /// A condition part by part: the truth of each, and why; nothing for an unknown id. As of the
    /// latest change that the checker has handled, so it may be ahead of what a callback is told
    /// of; an idle checker's keys are as they were when it was last evaluated. What a part is that
    /// cannot change the whole's truth is not followed: a hold or count among it counts as false.
    std::optional<ConditionPart> inspect(unsigned id) const;

    /// Forgets every cached truth, so that what is true at the next evaluation counts as having
    /// become true. A running checker first handles the changes that are queued, each as the moment
    /// that it is, and then forgets and evaluates every condition anew.
    void resetChecks();

    /// Starts: evaluates every condition against memory as one first moment, then follows the
    /// changes and, every `periodInMicroseconds` (0 for never), reports the conditions of mode 0
    /// that are true, as one hit list. With `once`, handles the first moment only and is idle
    /// again, before its hits are delivered. A running checker is left as it is.
    void run(unsigned periodInMicroseconds, bool once);
    /// Stops. When it returns no callback is running and none will be called (except when called
    /// from a callback, which then is the last). Cached truths stay as they are.
    void stop();

    /// Brings every cached truth up to date with memory now, as one moment, and returns what is
    /// then reportable, a period's report of mode 0 included, in ascending id order, conditions
    /// with their own callback too. With `report` it is also delivered to the callbacks, in its
    /// turn. On a running checker the changes that are queued come first, each as the moment that
    /// it is: their hits are not part of the list, but reach the callbacks before it; all on the
    /// checker's thread, for which nobody waits here. On an idle one the calling thread delivers,
    /// unless another one does so already and goes on with this list.
    Hits checkConditions(bool report);

    /// As of the latest change that a running checker has handled; as of now on an idle one; and
    /// inside a callback, on its thread, as of the moment of the hits. A key that was never written
    /// has the stamp 0 and the invalid value.
    PersistentValues getPersistentValues() const;
    /// The same, in a map that is the caller's alone to read and that nobody alters while it is
    /// held. Much cheaper on a running checker: maps that were let go are brought up to date and
    /// handed out again.
    std::shared_ptr<const PersistentValues> sharePersistentValues() const;

    /// What the holds and counts of a running checker remember, of those that have something to
    /// remember, and what still waits to be taken up. On an idle one no hold goes on.
    Histories histories() const;
    /// From now on for `limit`, a hold or count begins with the history of an equal part as soon as
    /// its condition is true. A history that was not taken up by then is forgotten. Before run(),
    /// usually. A connected checker's (std::logic_error otherwise).
    void resumeHistories(const Histories& histories, vo::Duration limit);

    /// Stops, and drops the callbacks and every condition. For the end of the checker's use.
    void exit();

private:
    friend class CheckerScript;
    class Impl;
    const std::unique_ptr<Impl> impl_;
};

}  // namespace KR
