#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/vo/Mutex.h"

namespace KR {

/// Items by numbers that are given out in ascending order and never again.
///
/// Finding one takes two steps and no search, and what was added together lies together. A page
/// goes when its last item goes, so numbers that are gone cost next to nothing. Items stay where
/// they are until they are erased. With boost::unordered_map in its place one change takes 25 %
/// longer at 10,000 conditions and twice as long at 100,000; with vectors, of pointers where items
/// are large, loading takes 25 % longer and memory is 10 % more.
///
/// Not synchronised: a part of ConditionChecker.
template <class T>
class IdTable {
public:
    using Id = std::uint32_t;

    /// Null when there is no item of that number.
    T* find(Id id)
    {
        const std::size_t number = id / kPage;
        return number < pages_.size() && pages_[number].has(id) ? &pages_[number].at(id) : nullptr;
    }
    const T* find(Id id) const { return const_cast<IdTable*>(this)->find(id); }

    /// One that is there.
    T& at(Id id) { return pages_[id / kPage].at(id); }

    /// A new item, in its default state, under a number that has none.
    T& add(Id id)
    {
        if (pages_.size() <= id / kPage)
            pages_.resize(id / kPage + 1);
        Page& page = pages_[id / kPage];
        if (!page.items)
            page.items = std::make_unique<std::array<T, kPage>>();
        page.used |= bit(id);
        ++size_;
        return page.at(id);
    }
    /// Erases an item that is there.
    void erase(Id id)
    {
        Page& page = pages_[id / kPage];
        page.at(id) = T();
        page.used &= ~bit(id);
        --size_;
        if (page.used == 0)
            page.items.reset();
    }

    std::size_t size() const { return size_; }

    /// Calls `f(id, item)` for each, in ascending order. It may change the item, not the table. It
    /// may also need a lock that its author holds and that is not known here.
    template <class F>
    void forEach(F f) VO_NO_THREAD_SAFETY_ANALYSIS
    {
        for (std::size_t number = 0; number < pages_.size(); ++number)
            for (std::uint64_t left = pages_[number].used; left != 0; left &= left - 1) {
                const auto id =
                    static_cast<Id>(number * kPage + static_cast<Id>(__builtin_ctzll(left)));
                f(id, pages_[number].at(id));
            }
    }
    template <class F>
    void forEach(F f) const
    {
        const_cast<IdTable*>(this)->forEach([&f](Id id, const T& item) { f(id, item); });
    }

private:
    static constexpr std::size_t kPage = 64;

    static std::uint64_t bit(Id id) { return std::uint64_t{1} << (id % kPage); }

    // Which items there are stands beside the pointer: a search touches no other part of a page
    // than the item.
    struct Page {
        bool has(Id id) const { return (used & bit(id)) != 0; }
        T& at(Id id) { return (*items)[id % kPage]; }

        std::unique_ptr<std::array<T, kPage>> items;
        std::uint64_t used = 0;
    };

    std::vector<Page> pages_;
    std::size_t size_ = 0;
};

}  // namespace KR
