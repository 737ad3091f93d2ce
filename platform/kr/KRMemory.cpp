#include "platform/kr/KRMemory.h"

#include <algorithm>
#include <utility>

#include "platform/kr/KRError.h"
#include "platform/kr/KRMemoryImpl.h"

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

}  // namespace

void checkKey(const char* method, const std::string& key)
{
    if (key.empty())
        throw KRError("KRMemory", method, "a key must not be empty");
}

const KRValue* MemorySlot::value() const
{
    if (entries_.empty())
        return nullptr;
    return &entries_[(next_ + entries_.size() - 1) % entries_.size()].value;
}

KRMemory::Snapshot MemorySlot::snapshot() const
{
    const KRValue* latest = value();
    return latest ? KRMemory::Snapshot{*latest, time_} : KRMemory::Snapshot{};
}

std::vector<MemorySlot::Entry> MemorySlot::history() const
{
    std::vector<Entry> entries;
    entries.reserve(entries_.size());
    const bool full = entries_.size() == KRMemory::kMaxHistory;
    const auto oldest = entries_.begin() + (full ? static_cast<std::ptrdiff_t>(next_) : 0);
    entries.insert(entries.end(), oldest, entries_.end());
    entries.insert(entries.end(), entries_.begin(), oldest);
    return entries;
}

void MemorySlot::write(const KRValue& value, vo::TimePoint time, std::int64_t lifeTime)
{
    if (entries_.size() < KRMemory::kMaxHistory) {
        entries_.push_back({value, lifeTime});
    } else {
        entries_[next_].value = value;
        entries_[next_].lifeTime = lifeTime;
    }
    next_ = next_ + 1 == KRMemory::kMaxHistory ? 0 : next_ + 1;
    time_ = time;
}

KRMemory::KRMemory(vo::Application& application) : impl_(std::make_unique<Impl>(*this, application))
{
}

KRMemory::~KRMemory()
{
    impl_->service->close();
}

std::int64_t KRMemory::Impl::lifeTime() const
{
    return std::chrono::duration_cast<std::chrono::seconds>(clock->uptime() - start).count();
}

std::int64_t KRMemory::lifeTime() const
{
    return impl_->lifeTime();
}

const MemorySlot* KRMemory::Impl::find(const std::string& key) const
{
    const auto place = slots.find(key);
    return place == slots.end() ? nullptr : &place->second;
}

KRValue KRMemory::getData(const std::string& key) const
{
    {
        const vo::SharedLock lock(impl_->mutex);
        const MemorySlot* slot = impl_->find(key);
        if (slot && slot->isWritten())
            return *slot->value();
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
            const MemorySlot* slot = impl_->find(key);
            values.push_back(slot && slot->isWritten() ? *slot->value() : KRValue());
        }
    }
    return values;
}

bool KRMemory::hasData(const std::string& key) const
{
    const vo::SharedLock lock(impl_->mutex);
    const MemorySlot* slot = impl_->find(key);
    return slot && slot->isWritten();
}

std::vector<std::string> KRMemory::getDataList(const std::string& prefix) const
{
    std::vector<std::string> keys;
    {
        const vo::SharedLock lock(impl_->mutex);
        for (const auto& [key, slot] : impl_->slots)
            if (slot.isWritten() && key.compare(0, prefix.size(), prefix) == 0)
                keys.push_back(key);
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

void KRMemory::declareEvent(const std::string& key, const std::string& declarer)
{
    checkKey("declareEvent", key);
    const vo::Lock lock(impl_->mutex);
    auto& declarers = impl_->slots[key].declarers;
    if (std::find(declarers.begin(), declarers.end(), declarer) == declarers.end())
        declarers.push_back(declarer);
}

std::vector<std::string> KRMemory::getDeclarers(const std::string& key) const
{
    const vo::SharedLock lock(impl_->mutex);
    const MemorySlot* slot = impl_->find(key);
    return slot ? slot->declarers : std::vector<std::string>();
}

void KRMemory::raiseEvent(const std::string& key, const KRValue& value)
{
    checkKey("raiseEvent", key);
    Impl::Recipients recipients;
    {
        const vo::Lock lock(impl_->mutex);
        impl_->write(key, value, recipients);
    }
    for (const Impl::Recipient& recipient : recipients)
        if (recipient.wake)
            recipient.feed->wake();
}

// The stamp is taken under the lock, so that stamps are in the order of the writes.
void KRMemory::Impl::write(const std::string& key, const KRValue& value, Recipients& recipients)
{
    MemorySlot& slot = slots[key];
    slot.expectWrite();
    const vo::TimePoint time = clock->now();
    slot.write(value, time, lifeTime());
    bool expired = false;
    for (const MemorySlot::Watcher& watcher : slot.watchers) {
        if (auto feed = watcher.feed.lock()) {
            const bool wake = feed->append({watcher.tag, time, value});
            recipients.push_back({std::move(feed), wake});
        } else {
            expired = true;
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
        if (const MemorySlot* slot = impl_->find(key))
            entries = slot->history();
    }
    KRValue::Array history;
    history.reserve(entries.size());
    for (MemorySlot::Entry& entry : entries)
        history.emplace_back(KRValue::Array{std::move(entry.value), entry.lifeTime});
    return history;
}

std::vector<KRMemory::Snapshot> KRMemory::watch(const std::shared_ptr<MemoryFeed>& feed,
                                                const std::vector<Watch>& keys)
{
    for (const Watch& watch : keys)
        checkKey("watch", watch.key);
    std::vector<Snapshot> snapshots;
    snapshots.reserve(keys.size());
    const vo::Lock lock(impl_->mutex);
    for (const Watch& watch : keys) {
        MemorySlot& slot = impl_->slots[watch.key];
        dropExpiredWatchers(slot);
        const bool known = std::any_of(slot.watchers.begin(), slot.watchers.end(),
                                       [&](const MemorySlot::Watcher& w) {
                                           return w.tag == watch.tag && isSame(w.feed, feed);
                                       });
        if (!known)
            slot.watchers.push_back({feed, watch.tag});
        snapshots.push_back(slot.snapshot());
    }
    return snapshots;
}

void KRMemory::unwatch(const std::shared_ptr<MemoryFeed>& feed, const std::string& key,
                       std::uint32_t tag)
{
    const vo::Lock lock(impl_->mutex);
    const auto place = impl_->slots.find(key);
    if (place != impl_->slots.end())
        eraseWatchers(place->second, [&](const MemorySlot::Watcher& w) {
            return w.tag == tag && isSame(w.feed, feed);
        });
}

void KRMemory::unwatchAll(const std::shared_ptr<MemoryFeed>& feed)
{
    const vo::Lock lock(impl_->mutex);
    for (auto& [key, slot] : impl_->slots)
        eraseWatchers(slot, [&](const MemorySlot::Watcher& w) { return isSame(w.feed, feed); });
}

}  // namespace KR
