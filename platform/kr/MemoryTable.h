#pragma once

#include <boost/container/small_vector.hpp>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/kr/KRMemory.h"
#include "platform/vo/Cache.h"
#include "platform/vo/TextIndex.h"

namespace KR {

/// What memory knows of one key. A key that is only watched has a slot, but no value.
///
/// It takes two lines of the processor's cache.
class alignas(2 * vo::kCacheLine) MemorySlot {
public:
    struct Entry {
        KRValue value;
        vo::Duration uptime;  ///< of the write
    };
    struct Watcher {
        std::weak_ptr<MemoryFeed> feed;
        std::uint32_t tag;
        bool stamped;
        const void* expected;
    };

    MemorySlot(std::string key, std::uint32_t number) : key_(std::move(key)), number_(number) {}

    const std::string& key() const { return key_; }
    /// Slots are numbered from 0 as they come up.
    std::uint32_t number() const { return number_; }
    bool isWritten() const { return isWritten_; }
    /// Of the latest write; the invalid value and the epoch when there was none.
    const KRValue& value() const { return value_; }
    KRMemory::Snapshot snapshot() const { return {value_, time_, kNotStamped}; }

    // Of MemoryTable.
    void set(const KRValue& value, vo::TimePoint time)
    {
        value_ = value;
        time_ = time;
        isWritten_ = true;
    }
    /// Has the memory that the next entry goes to fetched meanwhile.
    void expectEntry() const { vo::prefetch(entries_.get() + next_); }
    void addEntry(Entry entry);
    /// Oldest first.
    std::vector<Entry> entries() const;
    /// Of one that has entries.
    const Entry& latestEntry() const { return entries_[(next_ == 0 ? size_ : next_) - 1]; }

private:
    void growHistory();

    const std::string key_;

public:
    boost::container::small_vector<Watcher, 1> watchers;  ///< most keys have one

private:
    KRValue value_;
    vo::TimePoint time_{};
    std::unique_ptr<Entry[]> entries_;  ///< a ring once there are kMaxHistory of them
    static_assert(KRMemory::kMaxHistory <= 0xff);
    std::uint8_t size_ = 0;
    std::uint8_t capacity_ = 0;
    std::uint8_t next_ = 0;  ///< where the next entry goes
    bool isWritten_ = false;
    const std::uint32_t number_;
};
static_assert(sizeof(MemorySlot) == 2 * vo::kCacheLine);

/// The slots by their keys. A slot stays where it is, and is never taken out.
///
/// Not synchronised: a part of KRMemory.
class MemoryTable {
public:
    MemoryTable() { pending_.reserve(kMaxPending); }
    /// Null for a key that has no slot.
    MemorySlot* find(const std::string& key) { return index_.find(key); }
    const MemorySlot* find(const std::string& key) const { return index_.find(key); }
    /// Makes the slot if there is none.
    MemorySlot& at(const std::string& key)
    {
        if (MemorySlot* const slot = find(key))
            return *slot;
        MemorySlot& slot = slots_.emplace_back(key, static_cast<std::uint32_t>(slots_.size()));
        index_.insert(slot);
        return slot;
    }

    const MemorySlot& operator[](std::uint32_t number) const { return slots_[number]; }

    auto begin() { return slots_.begin(); }
    auto end() { return slots_.end(); }
    auto begin() const { return slots_.begin(); }
    auto end() const { return slots_.end(); }

    /// Notes a write: at once what the key holds now, and its history later, together with that of
    /// others, since it lies far apart and is rarely asked for.
    void write(MemorySlot& slot, const KRValue& value, vo::TimePoint time, vo::Duration uptime);
    /// Of the latest write of a slot that was written.
    vo::Duration uptimeOf(const MemorySlot& slot) const;
    /// Oldest first.
    std::vector<MemorySlot::Entry> historyOf(const MemorySlot& slot) const;

private:
    struct KeyOf {
        const std::string& operator()(const MemorySlot& slot) const { return slot.key(); }
    };
    struct Pending {
        MemorySlot* slot;
        MemorySlot::Entry entry;
    };
    /// Enough to fetch their memory side by side, few enough to be gone through in about a
    /// microsecond.
    static constexpr std::size_t kMaxPending = 64;

    void writeHistories();

    std::deque<MemorySlot> slots_;
    vo::TextIndex<MemorySlot, KeyOf> index_;
    std::vector<Pending> pending_;  ///< of the histories, oldest first
};

}  // namespace KR
