#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/vo/Clock.h"

namespace vo {

/// The instant `delay` after `uptime`. A negative delay counts as zero, and one that leaves
/// Duration's range is due at its end, some 300,000 years from now.
inline Duration dueAt(Duration uptime, Duration delay)
{
    if (delay <= Duration::zero())
        return uptime;
    return delay > Duration::max() - uptime ? Duration::max() : uptime + delay;
}

/// Items in order of due time; those of equal due time in the order pushed.
///
/// A heap, so that once it has been as long before it takes no more memory. An item is found by its
/// id as one looks through a list: few tasks are cancelled, and few wait.
///
/// Not thread-safe: it is a member behind its owner's mutex. Items are handed out rather than
/// destroyed, because their destructors may run anything and must not do so under that mutex.
template <class Item>
class DueQueue {
public:
    /// Names one item; 0 is never given.
    using Id = std::uint64_t;

    /// An item that is due now; `now` never goes back. Should a thread have read it late, the item
    /// counts as due when the one before it was.
    Id pushNow(Duration now, Item item)
    {
        lastNow_ = std::max(now, lastNow_);
        return pushLater(lastNow_, std::move(item));
    }
    Id pushLater(Duration due, Item item)
    {
        entries_.push_back({due, ++lastId_, std::move(item)});
        std::push_heap(entries_.begin(), entries_.end(), isLater);
        return lastId_;
    }

    bool empty() const { return entries_.empty(); }

    /// Due time of the first item; only for a queue that is not empty.
    Duration nextDue() const { return entries_.front().due; }

    /// True when the first item is due by then, which `now()` is asked for only when that matters:
    /// what is due before the last that was due as it came, is.
    template <class Now>
    bool isDue(Now now) const
    {
        return !empty() && (nextDue() <= lastNow_ || nextDue() <= now());
    }

    /// Takes out the first item; only for a queue that is not empty.
    Item pop()
    {
        std::pop_heap(entries_.begin(), entries_.end(), isLater);
        Item item = std::move(entries_.back().item);
        entries_.pop_back();
        return item;
    }

    /// The item of that id, or null.
    const Item* find(Id id) const
    {
        const auto entry = std::find_if(entries_.begin(), entries_.end(),
                                        [id](const Entry& e) { return e.id == id; });
        return entry == entries_.end() ? nullptr : &entry->item;
    }

    /// Takes out the item of that id, if it is there.
    std::optional<Item> remove(Id id)
    {
        std::vector<Item> removed =
            removeEntriesIf([id](const Entry& entry) { return entry.id == id; });
        if (removed.empty())
            return std::nullopt;
        return std::move(removed.front());
    }

    /// Takes out the items for which the predicate holds.
    template <class Predicate>
    std::vector<Item> removeIf(Predicate predicate)
    {
        return removeEntriesIf([&](const Entry& entry) { return predicate(entry.item); });
    }

private:
    struct Entry {
        Duration due;
        Id id;
        Item item;
    };

    static bool isLater(const Entry& a, const Entry& b)
    {
        return std::tie(a.due, a.id) > std::tie(b.due, b.id);
    }

    template <class Predicate>
    std::vector<Item> removeEntriesIf(Predicate predicate)
    {
        const auto end = std::partition(entries_.begin(), entries_.end(), std::not_fn(predicate));
        std::vector<Item> removed;
        for (auto entry = end; entry != entries_.end(); ++entry)
            removed.push_back(std::move(entry->item));
        entries_.erase(end, entries_.end());
        std::make_heap(entries_.begin(), entries_.end(), isLater);
        return removed;
    }

    std::vector<Entry> entries_;  ///< a heap; the first to be due is in front
    Duration lastNow_ = Duration::zero();
    Id lastId_ = 0;
};

}  // namespace vo
