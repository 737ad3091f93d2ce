#include "platform/kr/MemoryTable.h"

#include <algorithm>

namespace KR {

std::vector<MemorySlot::Entry> MemorySlot::entries() const
{
    const Entry* const begin = entries_.get();
    const Entry* const oldest = begin + (size_ == KRMemory::kMaxHistory ? next_ : 0);
    std::vector<Entry> entries(oldest, begin + size_);
    entries.insert(entries.end(), begin, oldest);
    return entries;
}

void MemorySlot::addEntry(Entry entry)
{
    if (next_ == capacity_)
        growHistory();
    entries_[next_++] = std::move(entry);
    size_ = std::max(size_, next_);
    if (next_ == KRMemory::kMaxHistory)
        next_ = 0;
}

/// Twice as long, and no longer than is ever needed.
void MemorySlot::growHistory()
{
    const auto capacity =
        std::clamp<std::size_t>(capacity_ * std::size_t{2}, 1, KRMemory::kMaxHistory);
    auto longer = std::make_unique<Entry[]>(capacity);
    std::move(entries_.get(), entries_.get() + size_, longer.get());
    entries_ = std::move(longer);
    capacity_ = static_cast<std::uint8_t>(capacity);
}

void MemoryTable::write(MemorySlot& slot, const KRValue& value, vo::TimePoint time,
                        vo::Duration uptime)
{
    slot.set(value, time);
    pending_.push_back({&slot, {value, uptime}});
    if (pending_.size() == kMaxPending)
        writeHistories();
}

// One loop has the entries' memory fetched all at once; in the other one they have their turn.
void MemoryTable::writeHistories()
{
    for (const Pending& pending : pending_)
        pending.slot->expectEntry();
    for (Pending& pending : pending_)
        pending.slot->addEntry(std::move(pending.entry));
    pending_.clear();
}

vo::Duration MemoryTable::uptimeOf(const MemorySlot& slot) const
{
    const auto pending = std::find_if(pending_.rbegin(), pending_.rend(),
                                      [&slot](const Pending& p) { return p.slot == &slot; });
    return pending == pending_.rend() ? slot.latestEntry().uptime : pending->entry.uptime;
}

std::vector<MemorySlot::Entry> MemoryTable::historyOf(const MemorySlot& slot) const
{
    std::vector<MemorySlot::Entry> entries = slot.entries();
    for (const Pending& pending : pending_)
        if (pending.slot == &slot)
            entries.push_back(pending.entry);
    if (entries.size() > KRMemory::kMaxHistory)
        entries.erase(entries.begin(), entries.end() - KRMemory::kMaxHistory);
    return entries;
}

}  // namespace KR
