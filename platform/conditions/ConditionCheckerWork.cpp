// What the checker does on its own thread: one moment after the other, and their delivery.

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/conditions/ConditionCheckerImpl.h"
#include "platform/vo/LogException.h"

namespace KR {

namespace {

bool isReportable(ConditionChecker::ReportMode mode, bool truth, bool changed, bool repeats)
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

std::function<void()> ConditionChecker::Impl::task(
    const std::shared_ptr<Run>& run, void (Impl::*function)(const std::shared_ptr<Run>&))
{
    return [weak = weak_from_this(), weakRun = std::weak_ptr<Run>(run), function] {
        const auto self = weak.lock();
        const auto itsRun = weakRun.lock();
        if (self && itsRun)
            ((*self).*function)(itsRun);
    };
}

void ConditionChecker::Impl::postWork()
{
    executor_->post(task(run_, &Impl::work));
}

void ConditionChecker::Impl::work(const std::shared_ptr<Run>& run)
{
    {
        // Once a task is enough: what is raised after it wakes again. And it lets the task of a
        // period that is over have its turn, however many changes there are.
        const vo::Lock lock(mutex_);
        if (run_ != run)
            return;
        takeChanges(*run);
    }
    for (bool more = true; more;) {
        std::shared_ptr<Run> ended;  // destroyed without the lock
        Report report;
        {
            const vo::Lock lock(mutex_);
            if (run_ != run)
                return;
            if (run->outbox.empty()) {
                report = newReport();
                more = handleNext(*run, report);
            } else {
                report = std::move(run->outbox.front());
                run->outbox.pop_front();
            }
            if (run->once && run->begun && run->outbox.empty())
                ended = endRun();
        }
        deliver(std::move(report));
    }
}

/// One period: reports what is true and is to be reported while it is.
void ConditionChecker::Impl::repeat(const std::shared_ptr<Run>& run)
{
    {
        const vo::Lock lock(mutex_);
        if (run_ != run)
            return;
        run->tick = executor_->post(task(run, &Impl::repeat), run->period);
        Report report = newReport();
        for (const auto& [id, condition] : conditions_)
            if (condition.mode == ReportWhileTrue && condition.truth)
                addHit(id, condition, report);
        if (!report.empty())
            run->outbox.push_back(std::move(report));
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
    MemoryChange& change = run.line[run.next++];
    run.begun = true;
    if (change.tag != kEvaluate) {
        for (const unsigned id : graph_.set(change.tag, std::move(change.value), change.time))
            note(id, conditions_.at(id), false, report);
    } else if (!change.value.isValid()) {
        evaluateAll(false, report);
    } else {
        const auto place = conditions_.find(static_cast<unsigned>(change.value.toInt()));
        if (place != conditions_.end()) {
            place->second.followed = true;
            note(place->first, place->second, false, report);
        }
    }
    return true;
}

ConditionChecker::Impl::Report ConditionChecker::Impl::newReport() const
{
    Report report;
    report.callback = callback_;
    report.stops = stops_;
    return report;
}

void ConditionChecker::Impl::addHit(unsigned id, const Condition& condition, Report& report)
{
    if (condition.callback)
        report.own.push_back({{id, condition.truth}, condition.callback});
    else
        report.hits.emplace_back(id, condition.truth);
}

void ConditionChecker::Impl::evaluateAll(bool repeats, Report& report)
{
    for (auto& [id, condition] : conditions_)
        note(id, condition, repeats, report);
}

/// Brings the cached truth up to date. With `repeats` a period counts as over.
void ConditionChecker::Impl::note(unsigned id, Condition& condition, bool repeats, Report& report)
{
    if (run_ && !condition.followed)
        return;
    const bool truth = graph_.isTrue(id);
    const bool changed = truth != condition.truth;
    condition.truth = truth;
    if (isReportable(condition.mode, truth, changed, repeats))
        addHit(id, condition, report);
}

/// Each callback on its own: one that stops the checker is the last.
void ConditionChecker::Impl::deliver(Report report)
{
    if (!report.hits.empty() && report.callback && *report.callback &&
        !deliverOne(report.stops, "callback", [&] { (*report.callback)(std::move(report.hits)); }))
        return;
    for (const Report::Own& own : report.own) {
        const unsigned id = own.hit.first;
        if (!deliverOne(report.stops, "callback of condition " + std::to_string(id),
                        [&] { (*own.callback)(id, own.hit.second); }))
            return;
    }
}

/// False, and nothing is called, when there was a stop since the moment was handled.
template <class Call>
bool ConditionChecker::Impl::deliverOne(std::uint64_t stops, const std::string& label, Call call)
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
        vo::logCurrentException("ConditionChecker", label);
    }
    // Notified under the lock: the one who waits may be about to destroy the checker.
    const vo::Lock lock(mutex_);
    const auto isThis = [&](const Delivery& d) { return d.thread == self && d.stops == stops; };
    deliveries_.erase(std::find_if(deliveries_.begin(), deliveries_.end(), isThis));
    delivered_.notify_all();
    return true;
}

}  // namespace KR
