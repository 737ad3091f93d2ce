// What the checker does on its own thread: one moment after the other, and their delivery.

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/conditions/ConditionCheckerImpl.h"
#include "platform/vo/LogException.h"

namespace KR {

namespace {

bool isReportable(std::uint8_t mode, bool truth, bool changed, bool repeats)
{
    switch (mode) {
        case ConditionChecker::ReportWhileTrue:
            return truth && (changed || repeats);
        case ConditionChecker::ReportBecomesFalse:
            return changed && !truth;
        case ConditionChecker::ReportChange:
            return changed;
        case ConditionChecker::ReportBecomesTrue:
            return changed && truth;
        case ConditionChecker::ReportNever:
            return false;
    }
    return false;
}

}  // namespace

void ConditionChecker::Impl::postWork()
{
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
            if (!isRunning(run))
                return;
            if (take)
                takeChanges(*run_);
            more = nextReport(*run_, report);
            if (run_->once && run_->begun && run_->outbox.empty())
                ended = endRun();
        }
        if (!report.empty())
            deliver(report);
    }
}

/// What is to be delivered next, if anything; false when there is nothing more to be done.
bool ConditionChecker::Impl::nextReport(Run& run, Report& report)
{
    if (!run.outbox.empty()) {
        report = std::move(run.outbox.front());
        run.outbox.pop_front();
        return true;
    }
    for (int i = 0; i < kMomentsAtOnce && report.empty(); ++i) {
        if (!handleNext(run, report))
            return false;
        if (run.once)
            break;
    }
    if (!report.empty())
        address(report);
    return true;
}

/// One period: reports what is true and is to be reported while it is.
void ConditionChecker::Impl::repeat(std::uint64_t run)
{
    {
        const vo::Lock lock(mutex_);
        if (!isRunning(run))
            return;
        run_->tick = executor_->post([this, run] { repeat(run); }, run_->period);
        Report report;
        conditions_.forEach([&](unsigned id, const Condition& condition) {
            if (condition.mode == ReportWhileTrue && condition.truth)
                addHit(id, condition, report);
        });
        if (!report.empty()) {
            address(report);
            run_->outbox.push_back(std::move(report));
        }
    }
    work(run);
}

void ConditionChecker::Impl::enqueueEvaluation(const KRValue& which)
{
    takeChanges(*run_);
    run_->line.push_back({kEvaluate, {}, which});
    postWork();
}

/// Moves what the feed holds to the end of the line.
void ConditionChecker::Impl::takeChanges(Run& run)
{
    if (run.next == run.line.size()) {
        run.feed->take(run.line);
        run.next = 0;
        return;
    }
    std::vector<MemoryChange> changes;
    run.feed->take(changes);
    std::move(changes.begin(), changes.end(), std::back_inserter(run.line));
}

/// Handles the next moment of the line; false when there is none.
bool ConditionChecker::Impl::handleNext(Run& run, Report& report)
{
    if (run.next == run.line.size())
        return false;
    const MemoryChange& change = run.line[run.next++];
    run.begun = true;
    if (run.next < run.line.size())
        graph_.expect(run.line[run.next].tag);
    if (change.tag != kEvaluate) {
        const std::vector<unsigned>& changed = apply(change.tag, change.value, change.time);
        report.hits.reserve(changed.size());
        for (const unsigned id : changed)
            note(id, *conditions_.find(id), false, report);
    } else if (!change.value.isValid()) {
        evaluateAll(false, report);
    } else {
        const auto id = static_cast<unsigned>(change.value.toInt());
        if (Condition* const condition = conditions_.find(id)) {
            condition->followed = true;
            note(id, *condition, false, report);
        }
    }
    return true;
}

/// Brings the graph up to date with one change, and the conditions with the graph.
const std::vector<unsigned>& ConditionChecker::Impl::apply(ConditionGraph::Tag tag,
                                                           const KRValue& value, vo::TimePoint time)
{
    const std::vector<unsigned>& changed = graph_.set(tag, value, time);
    for (const unsigned id : changed) {
        Condition& condition = *conditions_.find(id);
        condition.now = !condition.now;
    }
    snapshots_.noteChange(tag);
    return changed;
}

/// Says to whom a report goes, and as of when.
void ConditionChecker::Impl::address(Report& report) const
{
    report.callback = callback_;
    report.stops = stops_;
}

void ConditionChecker::Impl::addHit(unsigned id, const Condition& condition, Report& report)
{
    if (condition.own)
        report.own.push_back({{id, condition.truth}, callbacks_.at(id)});
    else
        report.hits.emplace_back(id, condition.truth);
}

void ConditionChecker::Impl::evaluateAll(bool repeats, Report& report)
{
    conditions_.forEach(
        [&](unsigned id, Condition& condition) { note(id, condition, repeats, report); });
}

/// Brings the cached truth up to date. With `repeats` a period counts as over.
void ConditionChecker::Impl::note(unsigned id, Condition& condition, bool repeats, Report& report)
{
    if (run_ && !condition.followed)
        return;
    const bool truth = condition.now;
    const bool changed = truth != condition.truth;
    condition.truth = truth;
    if (isReportable(condition.mode, truth, changed, repeats))
        addHit(id, condition, report);
}

/// Each callback on its own: one that stops the checker is the last.
void ConditionChecker::Impl::deliver(Report& report)
{
    if (!report.hits.empty() && report.callback && *report.callback &&
        !deliverOne(report.stops, 0, [&] { (*report.callback)(std::move(report.hits)); }))
        return;
    for (const Report::Own& own : report.own) {
        const unsigned id = own.hit.first;
        if (!deliverOne(report.stops, id, [&] { (*own.callback)(id, own.hit.second); }))
            return;
    }
}

/// False, and nothing is called, when there was a stop since the moment was handled. The id is of
/// the condition whose own callback it is, or 0.
template <class Call>
bool ConditionChecker::Impl::deliverOne(std::uint64_t stops, unsigned id, Call call)
{
    const auto self = std::this_thread::get_id();
    {
        const vo::Lock lock(mutex_);
        if (stops != stops_)
            return false;
        deliveries_.push_back({self, stops});
    }
    try {
        call();
    } catch (...) {
        vo::logCurrentException(
            "ConditionChecker",
            id == 0 ? "callback" : "callback of condition " + std::to_string(id));
    }
    // Notified under the lock: the one who waits may be about to destroy the checker.
    const vo::Lock lock(mutex_);
    const auto isThis = [&](const Delivery& d) { return d.thread == self && d.stops == stops; };
    deliveries_.erase(std::find_if(deliveries_.begin(), deliveries_.end(), isThis));
    if (awaiting_ > 0)
        delivered_.notify_all();
    return true;
}

}  // namespace KR
