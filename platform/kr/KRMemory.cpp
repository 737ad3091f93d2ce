#include "platform/kr/KRMemory.h"

#include <algorithm>
#include <utility>

#include "platform/kr/KRError.h"
#include "platform/kr/KRMemoryImpl.h"
#include "platform/kr/PrefetchingWatch.h"
#include "platform/vo/Cache.h"

namespace KR {

namespace {

bool isSame(const std::weak_ptr<MemoryFeed>& a, const std::shared_ptr<MemoryFeed>& b)
{
    return !a.owner_before(b) && !b.owner_before(a);
}

template <class Predicate>
void eraseWatchers(MemorySlot& slot, Predicate predicate)
{
    slot.watchers.erase(std::remove_if(slot.watchers.begin(), slot.watchers.end(), predicate),
                        slot.watchers.end());
}

void dropExpiredWatchers(MemorySlot& slot)
{
    eraseWatchers(slot, [](const MemorySlot::Watcher& w) { return w.feed.expired(); });
}

const void* expectedOf(const KRMemory::Watch& /*watch*/)
{
    return nullptr;
}

const void* expectedOf(const PrefetchingWatch& watch)
{
    return watch.expected;
}

}  // namespace

void checkKey(const char* method, const std::string& key)
{
    if (key.empty())
        throw KRError("KRMemory", method, "a key must not be empty");
}

KRMemory::KRMemory(vo::Application& application) : impl_(std::make_unique<Impl>(*this, application))
{
}

KRMemory::~KRMemory()
{
    impl_->service->close();
}

std::int64_t KRMemory::Impl::lifeTimeAt(vo::Duration uptime) const
{
    return std::chrono::duration_cast<std::chrono::seconds>(uptime - start).count();
}

std::int64_t KRMemory::lifeTime() const
{
    return impl_->lifeTimeAt(impl_->clock->roughUptime());
}

KRValue KRMemory::getData(const std::string& key) const
{
    {
        const vo::SharedLock lock(impl_->mutex);
        const MemorySlot* slot = impl_->slots.find(key);
        if (slot && slot->isWritten())
            return slot->value();
    }
    throw KRError("KRMemory", "getData", "no data for key '" + key + "'");
}

KRValue KRMemory::getListData(const std::vector<std::string>& keys) const
{
    KRValue::Array values;
    values.reserve(keys.size());
    {
        const vo::SharedLock lock(impl_->mutex);
        for (const std::string& key : keys) {
            const MemorySlot* slot = impl_->slots.find(key);
            values.push_back(slot ? slot->value() : KRValue());
        }
    }
    return values;
}

bool KRMemory::hasData(const std::string& key) const
{
    const vo::SharedLock lock(impl_->mutex);
    const MemorySlot* slot = impl_->slots.find(key);
    return slot && slot->isWritten();
}

std::vector<std::string> KRMemory::getDataList(const std::string& prefix) const
{
    std::vector<std::string> keys;
    {
        const vo::SharedLock lock(impl_->mutex);
        for (const MemorySlot& slot : impl_->slots)
            if (slot.isWritten() && slot.key().compare(0, prefix.size(), prefix) == 0)
                keys.push_back(slot.key());
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

void KRMemory::declareEvent(const std::string& key, const std::string& declarer)
{
    checkKey("declareEvent", key);
    const vo::Lock lock(impl_->mutex);
    auto& declarers = impl_->declarers[key];
    if (std::find(declarers.begin(), declarers.end(), declarer) == declarers.end())
        declarers.push_back(declarer);
}

std::vector<std::string> KRMemory::getDeclarers(const std::string& key) const
{
    const vo::SharedLock lock(impl_->mutex);
    const auto place = impl_->declarers.find(key);
    return place == impl_->declarers.end() ? std::vector<std::string>() : place->second;
}

MemoryWriter KRMemory::writer(const std::string& name)
{
    const vo::Lock lock(impl_->mutex);
    std::vector<std::string>& writers = impl_->writers;
    const auto place = std::find(writers.begin(), writers.end(), name);
    const auto id = static_cast<std::uint32_t>(place - writers.begin());
    if (place == writers.end())
        writers.push_back(name);
    return {id};
}

std::string KRMemory::writerName(MemoryWriter writer) const
{
    const vo::SharedLock lock(impl_->mutex);
    return impl_->writers.at(writer.id);
}

void KRMemory::raiseEvent(const std::string& key, const KRValue& value, MemoryWriter writer)
{
    impl_->raise(key, value, writer, nullptr);
}

void KRMemory::raiseEventAgain(const std::string& key, const KRValue& value, MemoryWriter writer,
                               const Stamp& stamp)
{
    impl_->raise(key, value, writer, &stamp);
}

/// `stamp` is of a write that is made again; null for one of now.
void KRMemory::Impl::raise(const std::string& key, const KRValue& value, MemoryWriter writer,
                           const Stamp* stamp)
{
    checkKey("raiseEvent", key);
    Recipients recipients;
    {
        const vo::Lock lock(mutex);
        write(key, value, writer, stamp, recipients);
    }
    for (const Recipient& recipient : recipients)
        if (recipient.wake)
            recipient.feed->wake();
}

// The stamp is taken under the lock, so that stamps are in the order of the writes.
void KRMemory::Impl::write(const std::string& key, const KRValue& value, MemoryWriter writer,
                           const Stamp* stamp, Recipients& recipients)
{
    MemorySlot& slot = slots.at(key);
    bool stamped = false;
    for (const MemorySlot::Watcher& watcher : slot.watchers) {
        vo::prefetch(watcher.expected, PrefetchingWatch::kBytes);
        stamped = stamped || watcher.stamped;
    }
    const vo::TimePoint time = stamp ? stamp->time : clock->now();
    const vo::Duration uptime = stamp     ? stamp->uptime
                                : stamped ? clock->uptime()
                                          : clock->roughUptime();
    slots.write(slot, value, time, uptime);
    lastWrite = stamp ? std::max(lastWrite, stamp->number) : lastWrite + 1;
    bool expired = false;
    for (const MemorySlot::Watcher& watcher : slot.watchers) {
        if (auto feed = watcher.feed.lock()) {
            const bool wake = feed->append({watcher.tag, writer, time, value, uptime, lastWrite});
            recipients.push_back({std::move(feed), wake});
        } else {
            expired = true;
        }
    }
    for (const std::weak_ptr<MemoryFeed>& observer : observers) {
        if (auto feed = observer.lock()) {
            const bool wake = feed->append({slot.number(), writer, time, value, uptime, lastWrite});
            recipients.push_back({std::move(feed), wake});
        }
    }
    if (expired)
        dropExpiredWatchers(slot);
}

KRValue KRMemory::getEventHistory(const std::string& key) const
{
    std::vector<MemorySlot::Entry> entries;
    {
        const vo::SharedLock lock(impl_->mutex);
        if (const MemorySlot* slot = impl_->slots.find(key))
            entries = impl_->slots.historyOf(*slot);
    }
    KRValue::Array history;
    history.reserve(entries.size());
    for (MemorySlot::Entry& entry : entries)
        history.emplace_back(
            KRValue::Array{std::move(entry.value), impl_->lifeTimeAt(entry.uptime)});
    return history;
}

template <class W>
std::vector<KRMemory::Snapshot> KRMemory::Impl::watch(const std::shared_ptr<MemoryFeed>& feed,
                                                      const std::vector<W>& keys)
{
    for (const Watch& watch : keys)
        checkKey("watch", watch.key);
    std::vector<Snapshot> snapshots;
    snapshots.reserve(keys.size());
    const vo::Lock lock(mutex);
    feed->noteSince(lastWrite);
    for (const W& watch : keys) {
        MemorySlot& slot = slots.at(watch.key);
        dropExpiredWatchers(slot);
        const auto known = std::find_if(slot.watchers.begin(), slot.watchers.end(),
                                        [&](const MemorySlot::Watcher& w) {
                                            return w.tag == watch.tag && isSame(w.feed, feed);
                                        });
        if (known == slot.watchers.end())
            slot.watchers.push_back({feed, watch.tag, watch.stamped, expectedOf(watch)});
        else
            known->stamped = known->stamped || watch.stamped;
        snapshots.push_back(slot.snapshot());
        if (watch.stamped && slot.isWritten())
            snapshots.back().uptime = slots.uptimeOf(slot);
    }
    return snapshots;
}

std::vector<KRMemory::Snapshot> KRMemory::watch(const std::shared_ptr<MemoryFeed>& feed,
                                                const std::vector<Watch>& keys)
{
    return impl_->watch(feed, keys);
}

std::vector<KRMemory::Snapshot> PrefetchingWatch::watch(KRMemory& memory,
                                                        const std::shared_ptr<MemoryFeed>& feed,
                                                        const std::vector<PrefetchingWatch>& keys)
{
    return memory.impl_->watch(feed, keys);
}

std::vector<KRMemory::Known> KRMemory::watchAll(const std::shared_ptr<MemoryFeed>& feed)
{
    std::vector<Known> known;
    const vo::Lock lock(impl_->mutex);
    feed->noteSince(impl_->lastWrite);
    std::vector<std::weak_ptr<MemoryFeed>>& observers = impl_->observers;
    observers.erase(std::remove_if(observers.begin(), observers.end(),
                                   [](const auto& each) { return each.expired(); }),
                    observers.end());
    observers.push_back(feed);
    for (const MemorySlot& slot : impl_->slots) {
        if (!slot.isWritten())
            continue;
        known.push_back({slot.number(), slot.snapshot()});
        known.back().now.uptime = impl_->slots.uptimeOf(slot);
    }
    return known;
}

std::string KRMemory::keyName(std::uint32_t number) const
{
    const vo::SharedLock lock(impl_->mutex);
    return impl_->slots[number].key();
}

bool KRMemory::take(MemoryFeed& feed, std::vector<MemoryChange>& changes)
{
    changes.clear();
    const vo::Lock lock(impl_->mutex);
    feed.queue_.swap(changes);
    return !changes.empty();
}

void KRMemory::unwatch(const std::shared_ptr<MemoryFeed>& feed, const std::string& key,
                       std::uint32_t tag)
{
    const vo::Lock lock(impl_->mutex);
    if (MemorySlot* const slot = impl_->slots.find(key))
        eraseWatchers(*slot, [&](const MemorySlot::Watcher& w) {
            return w.tag == tag && isSame(w.feed, feed);
        });
}

void KRMemory::unwatchAll(const std::shared_ptr<MemoryFeed>& feed)
{
    const vo::Lock lock(impl_->mutex);
    for (MemorySlot& slot : impl_->slots)
        eraseWatchers(slot, [&](const MemorySlot::Watcher& w) { return isSame(w.feed, feed); });
    std::vector<std::weak_ptr<MemoryFeed>>& observers = impl_->observers;
    observers.erase(std::remove_if(observers.begin(), observers.end(),
                                   [&](const auto& each) { return isSame(each, feed); }),
                    observers.end());
}

}  // namespace KR
