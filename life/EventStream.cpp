#include "life/EventStream.h"

#include "platform/kr/KRMemory.h"
#include "platform/kr/KeyCatalogue.h"
#include "platform/vo/Executor.h"

namespace KR {

EventStream::EventStream(std::shared_ptr<vo::Clock> clock)
    : clock_(std::move(clock)),
      executor_(clock_->makeExecutor("EventStream", vo::Clock::Threading::shared))
{
}

EventStream::~EventStream()
{
    unfollow();
    executor_->close();
}

void EventStream::note(Happening what)
{
    {
        const vo::Lock lock(mutex_);
        takeMemory();
        append(clock_->now(), std::move(what));
    }
    executor_->post([this] { deliver(); });
}

void EventStream::publish(Happening what)
{
    {
        const vo::Lock lock(mutex_);
        takeMemory();
        append(clock_->now(), std::move(what));
    }
    deliver();
}

void EventStream::append(vo::TimePoint time, Happening what)
{
    notifications_.add({++last_, time, std::move(what)});
}

void EventStream::deliver()
{
    notifications_.deliver([this](const Event& event) { happened(event); });
}

void EventStream::flush()
{
    {
        const vo::Lock lock(mutex_);
        takeMemory();
    }
    deliver();
    notifications_.waitUntilDelivered();
}

void EventStream::follow(const boost::shared_ptr<KRBroker>& broker,
                         const std::vector<std::string>& keys)
{
    unfollow();
    broker_ = broker;
    // A wake may come after this has gone: the executor, closed then, drops what it posts.
    const auto feed = std::make_shared<MemoryFeed>(
        [this, executor = executor_] { executor->post([this] { flush(); }); });
    std::vector<KRMemory::Watch> watches;
    watches.reserve(keys.size());
    for (const std::string& key : keys)
        watches.push_back({key, static_cast<std::uint32_t>(watches.size())});
    const std::vector<KRMemory::Snapshot> snapshots = broker->memory().watch(feed, watches);
    {
        const vo::Lock lock(mutex_);
        feed_ = feed;
        keys_ = keys;
        values_.clear();
        for (const KRMemory::Snapshot& snapshot : snapshots)
            values_.push_back(snapshot.value);
    }
    flush();  // a change that came meanwhile has had its wake already
}

void EventStream::unfollow()
{
    if (!broker_)
        return;
    flush();
    std::shared_ptr<MemoryFeed> feed;
    {
        const vo::Lock lock(mutex_);
        feed.swap(feed_);
    }
    broker_->memory().unwatchAll(feed);
    broker_.reset();
}

void EventStream::takeMemory()
{
    if (!feed_ || !broker_->memory().take(*feed_, changes_))
        return;
    for (const MemoryChange& change : changes_) {
        KRValue& last = values_[change.tag];
        if (change.value == last)
            continue;
        last = change.value;
        const std::string& key = keys_[change.tag];
        std::string writer = broker_->memory().writerName(change.writer);
        if (writer.empty())
            writer = broker_->keys().onlyPublisher(key);
        append(change.time, KeyChanged{key, change.value, std::move(writer)});
    }
}

}  // namespace KR
