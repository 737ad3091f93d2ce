#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>
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
/// Not thread-safe: it is a member behind its owner's mutex. Items are handed out rather than
/// destroyed, because their destructors may run anything and must not do so under that mutex.
template <class Item>
class DueQueue {
public:
    /// Names one item; 0 is never given.
    using Id = std::uint64_t;

    Id push(Duration due, Item item)
    {
        const Id id = ++lastId_;
        // Most items are due last, as they come.
        items_.emplace_hint(items_.end(), Key(due, id), std::move(item));
        dues_.emplace(id, due);
        return id;
    }

    bool empty() const { return items_.empty(); }

    /// Due time of the first item; only for a queue that is not empty.
    Duration nextDue() const { return items_.begin()->first.first; }

    /// Takes out the first item; only for a queue that is not empty.
    Item pop() { return take(items_.begin()); }

    /// The item of that id, or null.
    const Item* find(Id id) const
    {
        const auto due = dues_.find(id);
        return due == dues_.end() ? nullptr : &items_.at(Key(due->second, id));
    }

    /// Takes out the item of that id, if it is there.
    std::optional<Item> remove(Id id)
    {
        const auto due = dues_.find(id);
        if (due == dues_.end())
            return std::nullopt;
        return take(items_.find(Key(due->second, id)));
    }

    /// Takes out the items for which the predicate holds, in order.
    template <class Predicate>
    std::vector<Item> removeIf(Predicate predicate)
    {
        std::vector<Item> removed;
        for (auto it = items_.begin(); it != items_.end();) {
            const auto here = it++;
            if (predicate(here->second))
                removed.push_back(take(here));
        }
        return removed;
    }

private:
    using Key = std::pair<Duration, Id>;
    using Items = std::map<Key, Item>;

    Item take(typename Items::iterator it)
    {
        Item item = std::move(it->second);
        dues_.erase(it->first.second);
        items_.erase(it);
        return item;
    }

    Items items_;
    std::unordered_map<Id, Duration> dues_;
    Id lastId_ = 0;
};

}  // namespace vo
