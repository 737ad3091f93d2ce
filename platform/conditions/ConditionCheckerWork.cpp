// What the checker does on its own thread: one moment after the other, and their delivery.

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/conditions/ConditionCheckerImpl.h"
#include "platform/vo/LogException.h"

namespace KR {

namespace {

// For each mode, a bit for each of what a moment may have found: 1 for true, 2 for changed, 4 for a
// period that is over.
constexpr unsigned bits(unsigned truth, unsigned changed, unsigned repeats)
{
    return 1U << (truth | changed << 1 | repeats << 2);
}
constexpr unsigned kReportable[] = {
    bits(1, 1, 0) | bits(1, 0, 1) | bits(1, 1, 1),                  // ReportWhileTrue
    bits(0, 1, 0) | bits(0, 1, 1),                                  // ReportBecomesFalse
    bits(0, 1, 0) | bits(0, 1, 1) | bits(1, 1, 0) | bits(1, 1, 1),  // ReportChange
    bits(1, 1, 0) | bits(1, 1, 1),                                  // ReportBecomesTrue
    0                                                               // ReportNever
};

}  // namespace

void ConditionChecker::Impl::postWork()
{
    if (std::exchange(run_->posted, true))
        return;
    executor_->post([this, number = run_->number] { work(number); });
}

void ConditionChecker::Impl::work(std::uint64_t run)
{
    bool more = true;
    // Once a task is enough: what is raised after it wakes again. And it lets the task of a period
    // that is over have its turn, however many changes there are.
    for (bool take = true; more; take = false) {
        // Destroyed without the lock.
        std::shared_ptr<Run> ended;
        Report report;
        {
            const vo::Lock lock(mutex_);
            if (delivery_) {
                if (isRunning(run))
                    run_->putOff = true;
                return;
            }
            more = isRunning(run);
            if (more) {
                if (take) {
                    run_->posted = false;
                    takeChanges(*run_);
                }
                nextReport(*run_, report);
                more = hasMore(*run_);
                if (run_->once && run_->begun)
                    ended = endRun();
                else if (!more)
                    postDue(*run_);
            } else if (!run_) {
                takeWaiting(report);
            }
            if (!report.empty())
                beginDelivery(report);
        }
        if (!report.empty())
            deliver(report);
    }
}

/// False when none waits.
bool ConditionChecker::Impl::takeWaiting(Report& report)
{
    if (outbox_.empty())
        return false;
    report = std::move(outbox_.front());
    outbox_.pop_front();
    return true;
}

/// What is to be delivered next, if anything.
void ConditionChecker::Impl::nextReport(Run& run, Report& report)
{
    if (takeWaiting(report))
        return;
    for (int i = 0; i < kMomentsAtOnce && hasMoment(run); ++i) {
        handleNext(run, report);
        if (!report.empty())
            return address(report);
        if (run.once)
            return;
    }
}

/// One period: reports what is true and is to be reported while it is.
void ConditionChecker::Impl::repeat(std::uint64_t run)
{
    bool isDue = false;
    {
        const vo::Lock lock(mutex_);
        if (!isRunning(run))
            return;
        run_->tick = executor_->post([this, run] { repeat(run); }, run_->period);
        const auto due = network_.nextDue();
        isDue = due && *due <= uptime();
        if (!isDue)
            reportPeriod();
    }
    if (isDue)
        yield(run, true);
    else
        work(run);
}

/// Ahead of what waits in the queue.
void ConditionChecker::Impl::reportPeriod()
{
    Report report;
    reportTrue(report);
    enqueue(std::move(report));
    tell(CheckerMove::Kind::period, lastWrite_, uptime());
}

void ConditionChecker::Impl::reportTrue(Report& report)
{
    conditions_.forEach([&](unsigned id, const Condition& condition) VO_REQUIRES(mutex_) {
        if (condition.mode == ReportWhileTrue && condition.truth)
            addHit(id, condition, report);
    });
}

/// Something is due: those whose tasks are due as well may write before it comes about, and only
/// once, so that nobody can keep it from coming about.
void ConditionChecker::Impl::yield(std::uint64_t run, bool periodOver)
{
    const vo::Lock lock(mutex_);
    if (isRunning(run))
        executor_->post([this, run, periodOver, now = uptime()] { settle(run, now, periodOver); });
}

void ConditionChecker::Impl::settle(std::uint64_t run, vo::Duration now, bool periodOver)
{
    {
        const vo::Lock lock(mutex_);
        if (!isRunning(run))
            return;
        takeChanges(*run_);
        tell(periodOver ? CheckerMove::Kind::both : CheckerMove::Kind::settled, lastTaken(*run_),
             now);
        run_->queue.push_back({periodOver ? kPeriodOver : kSettled, {}, {}, {}, now});
    }
    work(run);
}

void ConditionChecker::Impl::moveDueTask(Run& run)
{
    if (isScripted_)
        return;
    const auto due = network_.nextDue();
    if (due == run.dueFor)
        return;
    executor_->cancel(run.dueTask);
    run.dueFor = due;
    if (due)
        run.dueTask = executor_->post(
            [this, number = run.number] {
                {
                    const vo::Lock lock(mutex_);
                    if (isRunning(number))
                        run_->dueFor.reset();
                }
                yield(number, false);
            },
            *due - uptime());
}

/// Whether something due comes before the next entry: before a write of a later uptime, and up to
/// and at the instant of a place that was made for it. A write of a key that no condition with time
/// reads has the uptime of the timer tick before it, so of what is due after that tick it comes
/// first.
bool ConditionChecker::Impl::isDueBeforeQueue(const Run& run) const
{
    const auto due = network_.nextDue();
    const MemoryChange& entry = run.queue[run.next];
    return *due < entry.uptime || (entry.tag >= kPeriodOver && *due == entry.uptime);
}

/// Conditions that are added with no change between them share an entry.
void ConditionChecker::Impl::enqueueAdded(unsigned id)
{
    const vo::Duration now = uptime();
    takeChanges(*run_);
    std::vector<MemoryChange>& queue = run_->queue;
    // What speaks of time begins, and is due, at an instant of its own.
    const bool isShared = !network_.hasDue() && !network_.hasFresh(id);
    if (queue.empty() || !isOfAdded(queue.back()) || !isShared)
        queue.push_back({kEvaluate, {}, {}, {}, now});
    queue.back().value = KRValue(id);
    postWork();
}

/// The number of the last write that was taken from the feed.
std::uint64_t ConditionChecker::Impl::lastTaken(const Run& run) const
{
    const auto isWrite = [](const MemoryChange& entry) { return entry.number != 0; };
    const auto last = std::find_if(run.queue.rbegin(), run.queue.rend(), isWrite);
    return last == run.queue.rend() ? lastWrite_ : last->number;
}

void ConditionChecker::Impl::tell(CheckerMove::Kind kind, std::uint64_t after,
                                  vo::Duration uptime) const
{
    if (moveObserver_)
        moveObserver_({kind, after, uptime});
}

/// Moves what the feed holds to the end of the queue.
void ConditionChecker::Impl::takeChanges(Run& run)
{
    if (run.next == run.queue.size()) {
        memory().take(*run.feed, run.queue);
        run.next = 0;
        return;
    }
    std::vector<MemoryChange> changes;
    memory().take(*run.feed, changes);
    std::move(changes.begin(), changes.end(), std::back_inserter(run.queue));
}

/// Handles the next moment, which there is.
void ConditionChecker::Impl::handleNext(Run& run, Report& report)
{
    if (isDueNext(run))
        return noteChanged(network_.elapse(), report);
    const MemoryChange& change = run.queue[run.next];
    run.begun = true;
    if (isOfAdded(change)) {
        ++run.followed;
        if (network_.hasFresh(run.followed))
            turn(network_.begin(change.uptime, run.followed, true));
        evaluate(run.followed, report);
        if (run.followed < change.value.toInt())
            return;
    } else if (change.tag == kEvaluate) {
        if (change.value.isTrue())
            forgetTruths();
        evaluateAll(false, report);
    } else if (change.tag == kPeriodOver) {
        reportTrue(report);
    } else if (change.tag != kSettled) {
        if (run.next + 1 < run.queue.size())
            network_.expect(run.queue[run.next + 1].tag);
        lastWrite_ = change.number;
        snapshots_.noteChange(change.tag);
        noteChanged(network_.set(change.tag, change.value, change.time, change.uptime), report);
    }
    ++run.next;
}

/// The same, while earlier reports may still be on their way: what it makes reportable waits.
void ConditionChecker::Impl::handleAhead(Run& run)
{
    keepValues();
    Report report;
    handleNext(run, report);
    enqueue(std::move(report));
}

/// Says to whom a report goes, and as of when.
void ConditionChecker::Impl::address(Report& report) const
{
    report.callback = callback_;
    report.stops = stops_;
    report.after = lastWrite_;
}

void ConditionChecker::Impl::enqueue(Report report)
{
    if (report.empty())
        return;
    address(report);
    outbox_.push_back(std::move(report));
}

/// Before the network moves on: what is on its way keeps the values of its moment.
void ConditionChecker::Impl::keepValues()
{
    const bool delivered = delivery_ && !delivery_->values;
    const bool waits = !outbox_.empty() && !outbox_.back().values;
    if (!delivered && !waits)
        return;
    const Values values = snapshots_.take(network_);
    if (delivered)
        delivery_->values = values;
    for (auto report = outbox_.rbegin(); report != outbox_.rend() && !report->values; ++report)
        report->values = values;
}

void ConditionChecker::Impl::addHit(unsigned id, const Condition& condition, Report& report)
{
    if (condition.own)
        report.own.push_back({{id, condition.truth}, callbacks_.at(id)});
    else
        report.hits.emplace_back(id, condition.truth);
}

void ConditionChecker::Impl::forgetTruths()
{
    conditions_.forEach([](unsigned, Condition& condition) { condition.truth = false; });
}

void ConditionChecker::Impl::evaluateAll(bool repeats, Report& report)
{
    conditions_.forEach([&](unsigned id, Condition& condition) VO_REQUIRES(mutex_) {
        if (note(id, condition, repeats))
            addHit(id, condition, report);
    });
}

/// One that may be gone.
void ConditionChecker::Impl::evaluate(unsigned id, Report& report)
{
    Condition* const condition = conditions_.find(id);
    if (condition && note(id, *condition, false))
        addHit(id, *condition, report);
}

/// Brings the cached truth up to date; true when that is to be reported. With `repeats` a period
/// counts as over.
bool ConditionChecker::Impl::note(unsigned id, Condition& condition, bool repeats)
{
    if (run_ && id > run_->followed)
        return false;
    const bool truth = condition.now;
    const bool changed = truth != condition.truth;
    condition.truth = truth;
    return (kReportable[condition.mode] & bits(truth, changed, repeats)) != 0;
}

/// Of conditions whose truth has changed in the network.
void ConditionChecker::Impl::noteChanged(const std::vector<unsigned>& changed, Report& report)
{
    for (const unsigned id : changed) {
        Condition& condition = conditions_.at(id);
        condition.now = !condition.now;
        if (!note(id, condition, false))
            continue;
        if (report.hits.empty())
            report.hits.reserve(changed.size());
        addHit(id, condition, report);
    }
}

/// From here on a stop waits until it is delivered.
void ConditionChecker::Impl::beginDelivery(const Report& report)
{
    delivery_ = Delivery{std::this_thread::get_id(), report.stops, report.after, report.values};
}

/// The one that the calling thread is inside of; null when there is none.
const ConditionChecker::Impl::Delivery* ConditionChecker::Impl::deliveryHere() const
{
    return delivery_ && delivery_->thread == std::this_thread::get_id() ? &*delivery_ : nullptr;
}

/// Of a delivery that was begun, and then of what an idle checker has waiting. From the end of the
/// last one on the checker may be gone.
void ConditionChecker::Impl::deliver(Report& report)
{
    for (bool more = true; more;) {
        callBack(report);
        Report next;  // what is delivered is destroyed without the lock
        {
            // Notified under it: the one who waits may be about to destroy the checker.
            const vo::Lock lock(mutex_);
            delivery_.reset();
            if (awaiting_ > 0)
                delivered_.notifyAll();
            if (run_ && std::exchange(run_->putOff, false)) {
                run_->posted = false;
                postWork();
            }
            more = !run_ && takeWaiting(next);
            if (more)
                beginDelivery(next);
        }
        report = std::move(next);
    }
}

/// Each callback on its own: one that stops the checker is the last.
void ConditionChecker::Impl::callBack(Report& report)
{
    if (!report.hits.empty() && report.callback && *report.callback)
        call(0, [&] { (*report.callback)(std::move(report.hits)); });
    for (const Report::Own& own : report.own) {
        if (isStopped(report))
            break;
        const unsigned id = own.hit.first;
        call(id, [&] { (*own.callback)(id, own.hit.second); });
    }
}

/// The id is of the condition whose own callback it is, or 0.
template <class Call>
void ConditionChecker::Impl::call(unsigned id, Call callback)
{
    try {
        callback();
    } catch (...) {
        vo::logCurrentException(
            "ConditionChecker",
            id == 0 ? "callback" : "callback of condition " + std::to_string(id));
    }
}

/// Whether there was a stop since the moment was handled.
bool ConditionChecker::Impl::isStopped(const Report& report) const
{
    const vo::Lock lock(mutex_);
    return report.stops != stops_;
}

}  // namespace KR
