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

void EventStream::leave(Happening what)
{
    const vo::Lock lock(mutex_);
    takeMemory();
    append(clock_->now(), clock_->uptime(), std::move(what));
}

void EventStream::note(Happening what)
{
    leave(std::move(what));
    executor_->post([this] { deliver(); });
}

void EventStream::publish(Happening what)
{
    leave(std::move(what));
    deliver();
}

void EventStream::append(vo::TimePoint time, vo::Duration uptime, Happening what)
{
    notifications_.add({++last_, time, std::move(what), uptime});
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

void EventStream::follow(const boost::shared_ptr<KRBroker>& broker)
{
    unfollow();
    broker_ = broker;
    // A wake may come after this has gone: the executor, closed then, drops what it posts.
    const vo::Duration delay = clock_->hasThreads() ? kWriteDelay : vo::Duration::zero();
    const auto feed = std::make_shared<MemoryFeed>(
        [this, executor = executor_, delay] { executor->post([this] { flush(); }, delay); });
    {
        // Held meanwhile, so that nobody takes changes before what was known.
        const vo::Lock lock(mutex_);
        keys_.clear();
        for (const KRMemory::Known& known : broker->memory().watchAll(feed))
            appendWrite({known.key, {}, known.now.time, known.now.value, known.now.uptime}, true);
        feed_ = feed;
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
    for (const MemoryChange& change : changes_)
        appendWrite(change, false);
}

void EventStream::appendWrite(const MemoryChange& write, bool isEarlier)
{
    if (write.tag >= keys_.size())
        keys_.resize(write.tag + std::size_t{1});
    Key& key = keys_[write.tag];
    if (key.name.empty())
        key.name = broker_->memory().keyName(write.tag);
    const bool isChange = key.value != write.value;
    key.value = write.value;
    std::string writer = broker_->memory().writerName(write.writer);
    if (writer.empty())
        writer = broker_->keys().onlyPublisher(key.name);
    append(write.time, write.uptime,
           KeyWritten{key.name, write.value, std::move(writer), write.number, isChange, isEarlier});
}

}  // namespace KR
