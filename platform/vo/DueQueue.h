#pragma once

#include <algorithm>
#include <cstddef>
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
/// Most items are due at once, as they come. They stand in a line of their own, to which pushing
/// costs no search and, once it has been as long before, no memory. The others are sorted.
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
        const Id id = ++lastId_;
        if (first_ < line_.size())
            now = std::max(now, line_.back().due);
        else
            resetLine();
        line_.push_back({now, id, std::move(item)});
        ++waiting_;
        return id;
    }
    Id pushLater(Duration due, Item item)
    {
        const Id id = ++lastId_;
        later_.emplace_hint(later_.end(), Key(due, id), std::move(item));
        dues_.emplace(id, due);
        return id;
    }

    bool empty() const { return waiting_ == 0 && later_.empty(); }

    /// Due time of the first item; only for a queue that is not empty.
    Duration nextDue() const
    {
        return isLineFirst() ? line_[first_].due : later_.begin()->first.first;
    }

    /// True when the first item is due by then, which `now()` is asked for only when that matters:
    /// those in the line were due when they came.
    template <class Now>
    bool isDue(Now now) const
    {
        return isLineFirst() || (!later_.empty() && later_.begin()->first.first <= now());
    }

    /// Takes out the first item; only for a queue that is not empty.
    Item pop() { return isLineFirst() ? takeFromLine(first_) : takeLater(later_.begin()); }

    /// The item of that id, or null.
    const Item* find(Id id) const
    {
        const auto due = dues_.find(id);
        if (due != dues_.end())
            return &later_.at(Key(due->second, id));
        const std::size_t place = placeInLine(id);
        return place < line_.size() ? &*line_[place].item : nullptr;
    }

    /// Takes out the item of that id, if it is there.
    std::optional<Item> remove(Id id)
    {
        const auto due = dues_.find(id);
        if (due != dues_.end())
            return takeLater(later_.find(Key(due->second, id)));
        const std::size_t place = placeInLine(id);
        if (place == line_.size())
            return std::nullopt;
        return takeFromLine(place);
    }

    /// Takes out the items for which the predicate holds.
    template <class Predicate>
    std::vector<Item> removeIf(Predicate predicate)
    {
        std::vector<Item> removed;
        for (std::size_t i = first_; i < line_.size(); ++i)
            if (line_[i].item && predicate(*line_[i].item))
                removed.push_back(takeItem(line_[i]));
        skipTaken();
        for (auto it = later_.begin(); it != later_.end();) {
            const auto here = it++;
            if (predicate(here->second))
                removed.push_back(takeLater(here));
        }
        return removed;
    }

private:
    using Key = std::pair<Duration, Id>;
    using Later = std::map<Key, Item>;

    /// One of the line; its item is gone once it was taken out.
    struct Entry {
        Duration due;
        Id id;
        std::optional<Item> item;
    };

    /// True when the first item, if any, is in the line.
    bool isLineFirst() const
    {
        if (waiting_ == 0 || later_.empty())
            return waiting_ != 0;
        return Key(line_[first_].due, line_[first_].id) < later_.begin()->first;
    }

    /// The place of an item that waits in the line, or the line's end.
    std::size_t placeInLine(Id id) const
    {
        const auto begin = line_.begin() + static_cast<std::ptrdiff_t>(first_);
        const auto place = std::lower_bound(
            begin, line_.end(), id, [](const Entry& e, Id wanted) { return e.id < wanted; });
        if (place == line_.end() || place->id != id || !place->item)
            return line_.size();
        return static_cast<std::size_t>(place - line_.begin());
    }

    Item takeFromLine(std::size_t place)
    {
        Item item = takeItem(line_[place]);
        skipTaken();
        return item;
    }

    /// Leaves the places of the line as they are.
    Item takeItem(Entry& entry)
    {
        Item item = std::move(*entry.item);
        entry.item.reset();
        --waiting_;
        return item;
    }

    void skipTaken()
    {
        while (first_ < line_.size() && !line_[first_].item)
            ++first_;
        // A line that never runs empty is moved up when half of it is gone.
        if (first_ >= kMinMoved && first_ * 2 >= line_.size())
            resetLine();
    }

    void resetLine()
    {
        line_.erase(line_.begin(), line_.begin() + static_cast<std::ptrdiff_t>(first_));
        first_ = 0;
    }

    Item takeLater(typename Later::iterator it)
    {
        Item item = std::move(it->second);
        dues_.erase(it->first.second);
        later_.erase(it);
        return item;
    }

    static constexpr std::size_t kMinMoved = 64;

    std::vector<Entry> line_;
    std::size_t first_ = 0;    ///< of the line, that is still there
    std::size_t waiting_ = 0;  ///< items in the line
    Later later_;
    std::unordered_map<Id, Duration> dues_;  ///< of the later ones
    Id lastId_ = 0;
};

}  // namespace vo
