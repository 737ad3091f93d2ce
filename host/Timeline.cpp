#include "host/Timeline.h"

#include "platform/kr/KRMemory.h"
#include "platform/vo/Executor.h"

namespace KR {

Timeline::Timeline(std::shared_ptr<vo::Clock> clock, std::unique_ptr<TimelineRenderer> renderer)
    : clock_(std::move(clock)), renderer_(std::move(renderer))
{
}

Timeline::~Timeline()
{
    unfollow();
}

void Timeline::begin(const RunHeader& header)
{
    const vo::Lock lock(mutex_);
    statistics_.begin(header);
    renderer_->begin(header);
}

void Timeline::record(TimelineEvent event)
{
    const vo::Lock lock(mutex_);
    drainLocked();
    event.time = clock_->now();
    emit(event);
}

void Timeline::emit(const TimelineEvent& event)
{
    statistics_.count(event);
    renderer_->event(event);
}

void Timeline::follow(const boost::shared_ptr<KRBroker>& broker,
                      const std::vector<std::string>& keys)
{
    unfollow();
    broker_ = broker;
    executor_ = clock_->makeExecutor("Timeline", vo::Clock::Threading::shared);
    // A wake may come after unfollow(): the executor, closed then, drops what it posts.
    const auto feed = std::make_shared<MemoryFeed>(
        [this, executor = executor_] { executor->post([this] { drain(); }); });
    std::vector<KRMemory::Watch> watches;
    watches.reserve(keys.size());
    for (const std::string& key : keys)
        watches.push_back({key, static_cast<std::uint32_t>(watches.size())});
    const std::vector<KRMemory::Snapshot> snapshots = broker->memory().watch(feed, watches);
    const vo::Lock lock(mutex_);
    feed_ = feed;
    keys_ = keys;
    values_.clear();
    for (const KRMemory::Snapshot& snapshot : snapshots)
        values_.push_back(snapshot.value);
    drainLocked();  // a change that came meanwhile has had its wake already
}

void Timeline::unfollow()
{
    if (!broker_)
        return;
    std::shared_ptr<MemoryFeed> feed;
    {
        const vo::Lock lock(mutex_);
        drainLocked();
        feed.swap(feed_);
    }
    broker_->memory().unwatchAll(feed);
    executor_->close();
    executor_.reset();
    broker_.reset();
}

void Timeline::drain()
{
    const vo::Lock lock(mutex_);
    drainLocked();
}

void Timeline::drainLocked()
{
    if (!feed_ || !broker_->memory().take(*feed_, changes_))
        return;
    for (const MemoryChange& change : changes_) {
        KRValue& last = values_[change.tag];
        if (change.value == last)
            continue;
        last = change.value;
        TimelineEvent event{TimelineEvent::Kind::key};
        event.time = change.time;
        event.subject = keys_[change.tag];
        event.value = change.value;
        emit(event);
    }
}

void Timeline::end(bool interrupted)
{
    const vo::Lock lock(mutex_);
    drainLocked();
    renderer_->end(statistics_.summary(clock_->now(), interrupted));
}

}  // namespace KR
