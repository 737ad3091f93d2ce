#include "platform/conditions/ConditionChecker.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "platform/conditions/ConditionCheckerImpl.h"
#include "platform/conditions/ConditionParser.h"

namespace KR {

void ConditionChecker::Impl::connect(const boost::shared_ptr<KRBroker>& broker)
{
    if (!broker)
        throw std::invalid_argument("ConditionChecker::connect: no broker");
    const vo::Lock lock(mutex_);
    if (broker_)
        throw std::logic_error("ConditionChecker::connect: already connected");
    executor_ = broker->clock()->makeExecutor("ConditionChecker", vo::Clock::Threading::own);
    broker_ = broker;
}

void ConditionChecker::Impl::close()
{
    stop();
    std::shared_ptr<vo::Executor> executor;
    {
        const vo::Lock lock(mutex_);
        executor = executor_;
    }
    if (executor)
        executor->close();
}

void ConditionChecker::Impl::setCallback(Callback callback)
{
    // Swapped, so that what the old one holds is destroyed without the lock.
    auto next = std::make_shared<const Callback>(std::move(callback));
    const vo::Lock lock(mutex_);
    callback_.swap(next);
}

unsigned ConditionChecker::Impl::addCondition(const std::string& text, ReportMode mode,
                                              const ConditionCallback& callback)
{
    std::shared_ptr<const ConditionCallback> own;
    if (callback)
        own = std::make_shared<const ConditionCallback>(callback);

    const vo::Lock lock(mutex_);
    const unsigned id = lastId_ + 1;
    const std::vector<PrefetchingWatch> added = compiler_.add(id, text);
    lastId_ = id;
    Condition& condition = conditions_.add(id);
    condition.mode = static_cast<std::uint8_t>(std::min(mode, ReportNever) & 7U);
    condition.now = network_.isTrue(compiler_.rootOf(id));
    condition.own = own != nullptr;
    if (own)
        callbacks_.emplace(id, std::move(own));
    if (!added.empty()) {
        snapshots_.noteKeys();
        // From here on no change of its keys is missed.
        if (run_)
            setAll(added, PrefetchingWatch::watch(memory(), run_->feed, added));
    }
    if (!run_)
        return id;
    if (!compiler_.newlyStamped().empty())
        stampAdded(compiler_.newlyStamped());
    // It is evaluated in its place in the queue, and its parts begin there.
    enqueueAdded(id);
    return id;
}

/// Of keys that are watched already: has their changes stamped exactly from here on.
void ConditionChecker::Impl::stampAdded(const std::vector<PrefetchingWatch>& added)
{
    const std::vector<KRMemory::Snapshot> snapshots =
        PrefetchingWatch::watch(memory(), run_->feed, added);
    // Where changes of a key wait, they bring their own.
    for (std::size_t i = 0; i < added.size(); ++i) {
        vo::Duration& uptime = network_.slotOf(added[i].tag).now.uptime;
        if (uptime == kNotStamped)
            uptime = snapshots[i].uptime;
    }
}

bool ConditionChecker::Impl::removeCondition(unsigned id)
{
    std::shared_ptr<const ConditionCallback> own;  // destroyed without the lock
    const vo::Lock lock(mutex_);
    if (!conditions_.find(id))
        return false;
    conditions_.erase(id);
    const auto callback = callbacks_.find(id);
    if (callback != callbacks_.end()) {
        own = std::move(callback->second);
        callbacks_.erase(callback);
    }
    keepValues();
    forget(compiler_.remove(id));
    return true;
}

/// Keys that nobody reads any more; nor may what was due be due any more.
void ConditionChecker::Impl::forget(const std::vector<PrefetchingWatch>& removed)
{
    if (!removed.empty())
        snapshots_.noteKeys();
    if (!run_)
        return;
    for (const PrefetchingWatch& watch : removed)
        memory().unwatch(run_->feed, watch.key, watch.tag);
    postDue(*run_);
}

void ConditionChecker::Impl::beginReplacement()
{
    const vo::Lock lock(mutex_);
    compiler_.keepTimed();
}

void ConditionChecker::Impl::endReplacement()
{
    const vo::Lock lock(mutex_);
    keepValues();
    forget(compiler_.releaseTimed());
}

bool ConditionChecker::Impl::hasCondition(unsigned id) const
{
    const vo::Lock lock(mutex_);
    return conditions_.find(id) != nullptr;
}

bool ConditionChecker::Impl::isConditionTrue(unsigned id) const
{
    const vo::Lock lock(mutex_);
    const Condition* const condition = conditions_.find(id);
    return condition && condition->truth;
}

std::optional<ConditionPart> ConditionChecker::Impl::inspect(unsigned id)
{
    const vo::Lock lock(mutex_);
    if (!conditions_.find(id))
        return std::nullopt;
    ConditionCompiler::InspectionTime time{};
    if (broker_)
        time = {broker_->clock()->now(), uptime()};
    return compiler_.inspect(id, time);
}

void ConditionChecker::Impl::resetChecks()
{
    std::shared_ptr<Run> ended;  // destroyed without the lock
    const vo::Lock lock(mutex_);
    ended = endRunOfOneMoment();
    if (!run_)
        return forgetTruths();
    const vo::Duration now = uptime();
    takeChanges(*run_);
    if (!hasMoment(*run_))
        forgetTruths();
    run_->queue.push_back({kEvaluate, {}, {}, true, now});
    postWork();
}

void ConditionChecker::Impl::run(vo::Duration period, bool once)
{
    const vo::Lock lock(mutex_);
    KRMemory& data = memory();
    if (run_)
        return;
    run_ = std::make_shared<Run>();
    run_->number = ++lastRun_;
    run_->period = period;
    run_->once = once;
    run_->feed = std::make_shared<MemoryFeed>([this, executor = executor_, number = run_->number] {
        executor->post([this, number] { work(number); });
    });

    keepValues();
    const std::vector<PrefetchingWatch> watches = network_.watches();
    setAll(watches, PrefetchingWatch::watch(data, run_->feed, watches));
    lastWrite_ = run_->feed->since();
    const vo::Duration now = uptime();
    if (network_.hasFresh(lastId_))
        turn(network_.begin(now, lastId_, !once));
    tell(CheckerMove::Kind::started, lastWrite_, now);
    run_->followed = lastId_;
    // Ahead of the changes that are raised from here on.
    run_->queue.push_back({kEvaluate, {}, {}, {}});
    postWork();
    if (!once && period > vo::Duration::zero() && !isScripted_)
        run_->tick = executor_->post([this, number = run_->number] { repeat(number); }, period);
}

void ConditionChecker::Impl::stop()
{
    // Destroyed without the lock.
    std::shared_ptr<Run> ended;
    std::deque<Report> dropped;
    const vo::Lock lock(mutex_);
    ended = endRun();
    outbox_.swap(dropped);
    const std::uint64_t stop = stops_++;
    if (deliveryHere())
        return;
    ++awaiting_;
    while (delivery_ && delivery_->stops <= stop)
        delivered_.wait(mutex_);
    --awaiting_;
}

std::shared_ptr<ConditionChecker::Impl::Run> ConditionChecker::Impl::endRun()
{
    if (!run_)
        return nullptr;
    tell(CheckerMove::Kind::stopped, lastWrite_, uptime());
    executor_->cancel(run_->tick);
    executor_->cancel(run_->dueTask);
    memory().unwatchAll(run_->feed);
    network_.end();
    return std::exchange(run_, nullptr);
}

/// A run of one moment is over when that is handled: whoever needs what comes after it does not
/// wait for its task. That is still to come, and delivers.
std::shared_ptr<ConditionChecker::Impl::Run> ConditionChecker::Impl::endRunOfOneMoment()
{
    if (!run_ || !run_->once)
        return nullptr;
    handleAhead(*run_);
    return endRun();
}

/// Brings the network and the truths up to date with memory; what that makes reportable waits.
void ConditionChecker::Impl::catchUp()
{
    if (!run_) {
        keepValues();
        const std::vector<PrefetchingWatch> watches = network_.watches();
        setAll(watches, readMemory(watches));
        if (!network_.hasFresh(lastId_))
            return;
        turn(network_.begin(uptime(), lastId_, false));
        return network_.end();
    }
    const vo::Duration now = uptime();
    takeChanges(*run_);
    tell(CheckerMove::Kind::checked, lastTaken(*run_), now);
    run_->queue.push_back({kSettled, {}, {}, {}, now});
    while (hasMoment(*run_))
        handleAhead(*run_);
}

ConditionChecker::Hits ConditionChecker::Impl::checkConditions(bool report)
{
    std::shared_ptr<Run> ended;  // destroyed without the lock
    bool delivers = false;
    Hits hits;
    {
        const vo::Lock lock(mutex_);
        memory();  // refuses a checker that is not connected
        ended = endRunOfOneMoment();
        catchUp();
        Report moment;
        evaluateAll(true, moment);
        hits = moment.hits;
        for (const Report::Own& own : moment.own)
            hits.push_back(own.hit);
        if (report) {
            delivers = !run_ && !delivery_ && outbox_.empty();
            enqueue(std::move(moment));
        }
        if (run_ && !outbox_.empty())
            postWork();
    }
    if (delivers)
        work(kNoRun);
    std::sort(hits.begin(), hits.end(),
              [](const Hit& a, const Hit& b) { return a.first < b.first; });
    return hits;
}

PersistentValues ConditionChecker::Impl::getPersistentValues() const
{
    PersistentValues values;
    const auto put = [&values](const std::string& key, const KRMemory::Snapshot& now) {
        const auto stamp = static_cast<std::uint64_t>(now.time.time_since_epoch().count());
        values[key] = {stamp, now.value};
    };
    const vo::Lock lock(mutex_);
    const Delivery* const here = deliveryHere();
    if (here && here->values)
        return *here->values;
    if (here || run_) {
        network_.forEachKey(put);
        return values;
    }
    const std::vector<PrefetchingWatch> watches = network_.watches();
    const std::vector<KRMemory::Snapshot> snapshots = readMemory(watches);
    for (std::size_t i = 0; i < watches.size(); ++i)
        put(watches[i].key, snapshots[i]);
    return values;
}

std::shared_ptr<const PersistentValues> ConditionChecker::Impl::sharePersistentValues()
{
    {
        const vo::Lock lock(mutex_);
        const Delivery* const here = deliveryHere();
        if (here && here->values)
            return here->values;
        if (here || run_)
            return snapshots_.take(network_);
    }
    return std::make_shared<const PersistentValues>(getPersistentValues());
}

void ConditionChecker::Impl::exit()
{
    stop();
    // Destroyed without the lock.
    std::shared_ptr<const Callback> callback;
    std::map<unsigned, std::shared_ptr<const ConditionCallback>> callbacks;
    const vo::Lock lock(mutex_);
    callback.swap(callback_);
    callbacks.swap(callbacks_);
    keepValues();
    conditions_.forEach([this](unsigned id, const Condition&)
                            VO_REQUIRES(mutex_) { compiler_.remove(id); });
    conditions_ = IdTable<Condition>();
    snapshots_.noteKeys();
}

KRMemory& ConditionChecker::Impl::memory() const
{
    if (!broker_)
        throw std::logic_error("ConditionChecker: not connected");
    return broker_->memory();
}

/// What the keys hold now; nothing of an unconnected checker's.
std::vector<KRMemory::Snapshot> ConditionChecker::Impl::readMemory(
    const std::vector<PrefetchingWatch>& watches) const
{
    if (!broker_)
        return std::vector<KRMemory::Snapshot>(watches.size());
    const auto feed = std::make_shared<MemoryFeed>([] {});
    std::vector<KRMemory::Snapshot> snapshots = PrefetchingWatch::watch(memory(), feed, watches);
    memory().unwatchAll(feed);
    return snapshots;
}

void ConditionChecker::Impl::setAll(const std::vector<PrefetchingWatch>& watches,
                                    const std::vector<KRMemory::Snapshot>& snapshots)
{
    for (std::size_t i = 0; i < watches.size(); ++i) {
        snapshots_.noteChange(watches[i].tag);
        turn(network_.load(watches[i].tag, snapshots[i]));
    }
}

/// Notes whose truth has changed in the network; what is to be reported of it comes later.
void ConditionChecker::Impl::turn(const std::vector<unsigned>& changed)
{
    for (const unsigned id : changed) {
        Condition& condition = conditions_.at(id);
        condition.now = !condition.now;
    }
}

namespace {

/// The wall clock's time at the uptime 0, were it never set.
vo::TimePoint wallStart(const vo::Clock& clock)
{
    return clock.now() - clock.uptime();
}

}  // namespace

ConditionChecker::Histories ConditionChecker::Impl::histories() const
{
    Histories histories;
    const vo::Lock lock(mutex_);
    if (!broker_)
        return histories;
    const vo::TimePoint start = wallStart(*broker_->clock());
    for (const auto& [text, timed] : network_.histories(uptime())) {
        History& history = histories[text];
        history.isTrue = timed.isTrue;
        for (const vo::Duration instant : timed.instants)
            history.instants.push_back(start + instant);
    }
    return histories;
}

void ConditionChecker::Impl::resumeHistories(const Histories& histories, vo::Duration limit)
{
    const vo::Lock lock(mutex_);
    memory();  // refuses a checker that is not connected
    const vo::TimePoint start = wallStart(*broker_->clock());
    std::map<std::string, TimedHistory> all;
    for (const auto& [text, history] : histories) {
        if (history.instants.empty())
            continue;
        TimedHistory& timed = all[text];
        timed.isTrue = history.isTrue;
        for (const vo::TimePoint instant : history.instants)
            timed.instants.push_back(instant - start);
    }
    network_.resume(std::move(all), uptime() + limit);
}

void ConditionChecker::Impl::setMoveObserver(MoveObserver observer)
{
    // Swapped, so that what the old one holds is destroyed without the lock.
    const vo::Lock lock(mutex_);
    moveObserver_.swap(observer);
}

std::uint64_t ConditionChecker::Impl::lastWrite() const
{
    const vo::Lock lock(mutex_);
    const Delivery* const here = deliveryHere();
    return here ? here->after : lastWrite_;
}

ConditionChecker::ConditionChecker() : impl_(std::make_unique<Impl>()) {}

ConditionChecker::~ConditionChecker()
{
    impl_->close();
}

void ConditionChecker::connect(const boost::shared_ptr<KRBroker>& broker)
{
    impl_->connect(broker);
}

void ConditionChecker::setMoveObserver(MoveObserver observer)
{
    impl_->setMoveObserver(std::move(observer));
}

std::uint64_t ConditionChecker::lastWrite() const
{
    return impl_->lastWrite();
}

void ConditionChecker::setCallback(Callback callback)
{
    impl_->setCallback(std::move(callback));
}

unsigned ConditionChecker::addCondition(const std::string& text, ReportMode mode,
                                        const ConditionCallback& callback)
{
    return impl_->addCondition(text, mode, callback);
}

bool ConditionChecker::removeCondition(unsigned id)
{
    return impl_->removeCondition(id);
}

bool ConditionChecker::hasCondition(unsigned id) const
{
    return impl_->hasCondition(id);
}

bool ConditionChecker::isConditionTrue(unsigned id) const
{
    return impl_->isConditionTrue(id);
}

std::optional<ConditionPart> ConditionChecker::inspect(unsigned id) const
{
    return impl_->inspect(id);
}

void ConditionChecker::resetChecks()
{
    impl_->resetChecks();
}

void ConditionChecker::run(unsigned periodInMicroseconds, bool once)
{
    impl_->run(vo::Duration(periodInMicroseconds), once);
}

void ConditionChecker::stop()
{
    impl_->stop();
}

ConditionChecker::Hits ConditionChecker::checkConditions(bool report)
{
    return impl_->checkConditions(report);
}

PersistentValues ConditionChecker::getPersistentValues() const
{
    return impl_->getPersistentValues();
}

std::shared_ptr<const PersistentValues> ConditionChecker::sharePersistentValues() const
{
    return impl_->sharePersistentValues();
}

ConditionChecker::Histories ConditionChecker::histories() const
{
    return impl_->histories();
}

void ConditionChecker::resumeHistories(const Histories& histories, vo::Duration limit)
{
    impl_->resumeHistories(histories, limit);
}

void ConditionChecker::exit()
{
    impl_->exit();
}

ConditionChecker::Replacement::Replacement(ConditionChecker& checker) : checker_(checker)
{
    checker_.impl_->beginReplacement();
}

ConditionChecker::Replacement::~Replacement()
{
    checker_.impl_->endReplacement();
}

}  // namespace KR
