#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/conditions/CheckerScript.h"
#include "platform/conditions/ConditionChecker.h"
#include "platform/conditions/ConditionCompiler.h"
#include "platform/conditions/ConditionNetwork.h"
#include "platform/conditions/IdTable.h"
#include "platform/conditions/KeySlot.h"
#include "platform/conditions/ValueSnapshots.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/MemoryFeed.h"
#include "platform/kr/PrefetchingWatch.h"
#include "platform/vo/Executor.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// The checker's thread is an executor; what is to be done there waits in the run, and a task is
/// posted whenever something was put there. Every step of the work is done under the mutex, its
/// hits are delivered after the mutex is released. Tasks know the number of their run, so those of
/// a run that has ended handle nothing more; none runs once the executor is closed, which the
/// checker's end waits for, so they need not keep the checker alive.
///
/// One report is delivered at a time. Those of moments that are handled ahead of it wait in the
/// outbox, which is always somebody's to empty: the running checker's thread, otherwise whoever
/// delivers, or finds nobody who does. Nobody waits for the one who delivers, but a stop.
class ConditionChecker::Impl {
public:
    void connect(const boost::shared_ptr<KRBroker>& broker);
    void close();
    void setCallback(Callback callback);
    unsigned addCondition(const std::string& text, ReportMode mode,
                          const ConditionCallback& callback);
    bool removeCondition(unsigned id);
    bool hasCondition(unsigned id) const;
    bool isConditionTrue(unsigned id) const;
    std::optional<ConditionPart> inspect(unsigned id);
    void resetChecks();
    void run(vo::Duration period, bool once);
    void stop();
    Hits checkConditions(bool report);
    PersistentValues getPersistentValues() const;
    std::shared_ptr<const PersistentValues> sharePersistentValues();
    Histories histories() const;
    void resumeHistories(const Histories& histories, vo::Duration limit);
    void beginReplacement();
    void endReplacement();
    void exit();
    void setMoveObserver(MoveObserver observer);
    std::uint64_t lastWrite() const;
    // For a CheckerScript.
    void beScripted();
    void movePeriod();
    void moveSettle(vo::Duration uptime, bool periodOver);
    bool moveElapse(vo::Duration until);

private:
    /// One byte, so that those of thousands of conditions stay in the processor's cache.
    struct Condition {
        Condition() : mode(ReportNever), now(false), truth(false), own(false) {}

        std::uint8_t mode : 3;  ///< a ReportMode
        bool now : 1;           ///< its truth in the network
        bool truth : 1;         ///< cached: what was made known of it
        bool own : 1;           ///< has a callback in callbacks_
    };

    using Values = std::shared_ptr<const PersistentValues>;

    /// What one moment makes reportable, and to whom.
    struct Report {
        struct Own {
            Hit hit;
            std::shared_ptr<const ConditionCallback> callback;
        };
        std::shared_ptr<const Callback> callback;
        std::uint64_t stops = 0;  ///< how many stops there had been
        std::uint64_t after = 0;  ///< the number of the last write before it
        Values values;            ///< of the moment; null while the network still has them
        Hits hits;
        std::vector<Own> own;

        bool empty() const { return hits.empty() && own.empty(); }
    };

    /// The report that is being delivered.
    struct Delivery {
        std::thread::id thread;
        std::uint64_t stops;  ///< as of the report
        std::uint64_t after;  ///< as of the report
        Values values;        ///< as of the report
    };

    /// One time of running. Guarded by mutex_, but for what is constant.
    struct Run {
        // Constant once it is running.
        std::uint64_t number = 0;
        std::shared_ptr<MemoryFeed> feed;
        vo::Duration period{};
        bool once = false;

        std::vector<MemoryChange> queue;  ///< taken from the feed, waiting for their moment
        std::size_t next = 0;             ///< the first of the queue that waits
        bool begun = false;               ///< the first moment is handled
        unsigned followed = 0;            ///< conditions up to this one have had their first turn
        bool posted = false;              ///< a task is on its way that sees to the queue
        bool putOff = false;              ///< such a task came while somebody else delivered
        vo::Executor::TaskId tick = 0;

        vo::Executor::TaskId dueTask = 0;    ///< sees to what is due
        std::optional<vo::Duration> dueFor;  ///< the instant for which that was posted
    };

    /// The tag of an entry in the queue of changes that is no change, but the place at which
    /// conditions are evaluated: all of them, after their truths were forgotten where the value is
    /// true; or one after the other those that were added, up to the one whose id is the value.
    static constexpr KeyTag kEvaluate = 0;
    static bool isOfAdded(const MemoryChange& entry)
    {
        return entry.tag == kEvaluate && entry.value.isInt();
    }
    /// The same for the place up to which what is due at the entry's uptime comes about: the writes
    /// of that instant have had their chance to come first.
    static constexpr KeyTag kSettled = std::numeric_limits<KeyTag>::max();
    /// The same, and a period is over.
    static constexpr KeyTag kPeriodOver = kSettled - 1;

    /// Moments that make nothing reportable are handled so many at a time: few enough that whoever
    /// wants the lock meanwhile waits some microseconds, enough that taking it costs next to
    /// nothing.
    static constexpr int kMomentsAtOnce = 64;

    /// The number that no run has.
    static constexpr std::uint64_t kNoRun = 0;

    // On the checker's thread; while it is idle, on that of a check.
    void work(std::uint64_t run) VO_EXCLUDES(mutex_);
    void repeat(std::uint64_t run) VO_EXCLUDES(mutex_);
    void yield(std::uint64_t run, bool periodOver) VO_EXCLUDES(mutex_);
    void settle(std::uint64_t run, vo::Duration now, bool periodOver) VO_EXCLUDES(mutex_);

    KRMemory& memory() const VO_REQUIRES(mutex_);
    bool isRunning(std::uint64_t run) const VO_REQUIRES(mutex_)
    {
        return run_ && run_->number == run;
    }
    vo::Duration uptime() const VO_REQUIRES(mutex_) { return broker_->clock()->uptime(); }
    void postWork() VO_REQUIRES(mutex_);
    /// Has somebody see to what is due next, once it is.
    void postDue(Run& run) VO_REQUIRES(mutex_)
    {
        if (network_.hasDue() || run.dueFor)
            moveDueTask(run);
    }
    void moveDueTask(Run& run) VO_REQUIRES(mutex_);
    void enqueueAdded(unsigned id) VO_REQUIRES(mutex_);
    std::shared_ptr<Run> endRun() VO_REQUIRES(mutex_);
    std::shared_ptr<Run> endRunOfOneMoment() VO_REQUIRES(mutex_);
    void catchUp() VO_REQUIRES(mutex_);
    std::vector<KRMemory::Snapshot> readMemory(const std::vector<PrefetchingWatch>& watches) const
        VO_REQUIRES(mutex_);
    void stampAdded(const std::vector<PrefetchingWatch>& added) VO_REQUIRES(mutex_);
    void forget(const std::vector<PrefetchingWatch>& removed) VO_REQUIRES(mutex_);
    void turn(const std::vector<unsigned>& changed) VO_REQUIRES(mutex_);
    void setAll(const std::vector<PrefetchingWatch>& watches,
                const std::vector<KRMemory::Snapshot>& snapshots) VO_REQUIRES(mutex_);

    void takeChanges(Run& run) VO_REQUIRES(mutex_);
    /// Whether the next moment is of something due, and not of the queue.
    bool isDueNext(const Run& run) const VO_REQUIRES(mutex_)
    {
        return network_.hasDue() && isDueBeforeQueue(run);
    }
    bool isDueBeforeQueue(const Run& run) const VO_REQUIRES(mutex_);
    bool hasMoment(const Run& run) const VO_REQUIRES(mutex_) { return run.next < run.queue.size(); }
    bool hasMore(const Run& run) const VO_REQUIRES(mutex_)
    {
        return hasMoment(run) || !outbox_.empty();
    }
    bool takeWaiting(Report& report) VO_REQUIRES(mutex_);
    void handleNext(Run& run, Report& report) VO_REQUIRES(mutex_);
    void handleAhead(Run& run) VO_REQUIRES(mutex_);
    void nextReport(Run& run, Report& report) VO_REQUIRES(mutex_);
    void address(Report& report) const VO_REQUIRES(mutex_);
    void enqueue(Report report) VO_REQUIRES(mutex_);
    void keepValues() VO_REQUIRES(mutex_);
    std::uint64_t lastTaken(const Run& run) const VO_REQUIRES(mutex_);
    void tell(CheckerMove::Kind kind, std::uint64_t after, vo::Duration uptime) const
        VO_REQUIRES(mutex_);
    void reportPeriod() VO_REQUIRES(mutex_);
    void addHit(unsigned id, const Condition& condition, Report& report) VO_REQUIRES(mutex_);
    void forgetTruths() VO_REQUIRES(mutex_);
    void reportTrue(Report& report) VO_REQUIRES(mutex_);
    void evaluateAll(bool repeats, Report& report) VO_REQUIRES(mutex_);
    void evaluate(unsigned id, Report& report) VO_REQUIRES(mutex_);
    bool note(unsigned id, Condition& condition, bool repeats) VO_REQUIRES(mutex_);
    void noteChanged(const std::vector<unsigned>& changed, Report& report) VO_REQUIRES(mutex_);

    void beginDelivery(const Report& report) VO_REQUIRES(mutex_);
    void deliver(Report& report) VO_EXCLUDES(mutex_);
    void callBack(Report& report) VO_EXCLUDES(mutex_);
    const Delivery* deliveryHere() const VO_REQUIRES(mutex_);
    template <class Call>
    void call(unsigned id, Call callback) VO_EXCLUDES(mutex_);
    bool isStopped(const Report& report) const VO_EXCLUDES(mutex_);

    // Taken before memory's and the executor's locks, never the other way round: wakes come
    // without locks.
    mutable vo::Mutex mutex_;
    boost::shared_ptr<KRBroker> broker_ VO_GUARDED_BY(mutex_);
    std::shared_ptr<vo::Executor> executor_ VO_GUARDED_BY(mutex_);
    std::shared_ptr<const Callback> callback_ VO_GUARDED_BY(mutex_);
    ConditionNetwork network_ VO_GUARDED_BY(mutex_);
    ConditionCompiler compiler_ VO_GUARDED_BY(mutex_){network_};
    IdTable<Condition> conditions_ VO_GUARDED_BY(mutex_);
    std::map<unsigned, std::shared_ptr<const ConditionCallback>> callbacks_ VO_GUARDED_BY(mutex_);
    ValueSnapshots snapshots_ VO_GUARDED_BY(mutex_);
    unsigned lastId_ VO_GUARDED_BY(mutex_) = 0;
    std::shared_ptr<Run> run_ VO_GUARDED_BY(mutex_);  ///< null while idle
    std::uint64_t lastRun_ VO_GUARDED_BY(mutex_) = 0;

    std::deque<Report> outbox_ VO_GUARDED_BY(mutex_);  ///< those without values come last
    // vo::CallbackGate would not do: once closed it stays closed, and a checker can run again.
    std::optional<Delivery> delivery_ VO_GUARDED_BY(mutex_);
    int awaiting_ VO_GUARDED_BY(mutex_) = 0;  ///< stops that wait for the delivery
    vo::Condition delivered_;
    std::uint64_t stops_ VO_GUARDED_BY(mutex_) = 0;

    MoveObserver moveObserver_ VO_GUARDED_BY(mutex_);
    bool isScripted_ VO_GUARDED_BY(mutex_) = false;      ///< somebody stands in for the clock
    std::uint64_t lastWrite_ VO_GUARDED_BY(mutex_) = 0;  ///< handled
};

}  // namespace KR
