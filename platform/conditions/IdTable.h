#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace KR {

/// Items by numbers that are given out in ascending order and never again.
///
/// Finding one takes two steps and no search, and what was added together lies together. A page
/// goes when its last item goes, so numbers that are gone cost next to nothing. Items stay where
/// they are until they are erased.
///
/// Not synchronised: a part of ConditionChecker.
template <class T>
class IdTable {
public:
    using Id = std::uint32_t;

    /// Null when there is no item of that number.
    T* find(Id id)
    {
        Page* const page = pageOf(id);
        return page && page->has(id) ? &page->items[id % kPage] : nullptr;
    }
    const T* find(Id id) const { return const_cast<IdTable*>(this)->find(id); }

    /// A new item, in its default state, under a number that has none.
    T& add(Id id)
    {
        if (pages_.size() <= id / kPage)
            pages_.resize(id / kPage + 1);
        auto& page = pages_[id / kPage];
        if (!page)
            page = std::make_unique<Page>();
        page->used |= bit(id);
        ++size_;
        return page->items[id % kPage];
    }
    /// Erases an item that is there.
    void erase(Id id)
    {
        auto& page = pages_[id / kPage];
        page->items[id % kPage] = T();
        page->used &= ~bit(id);
        --size_;
        if (page->used == 0)
            page.reset();
    }

    std::size_t size() const { return size_; }

    /// Calls `f(id, item)` for each, in ascending order. It may change the item, not the table.
    template <class F>
    void forEach(F f)
    {
        for (std::size_t number = 0; number < pages_.size(); ++number) {
            if (!pages_[number])
                continue;
            for (std::size_t i = 0; i < kPage; ++i)
                if (pages_[number]->used >> i & 1)
                    f(static_cast<Id>(number * kPage + i), pages_[number]->items[i]);
        }
    }
    template <class F>
    void forEach(F f) const
    {
        const_cast<IdTable*>(this)->forEach([&f](Id id, const T& item) { f(id, item); });
    }

private:
    static constexpr std::size_t kPage = 64;

    struct Page {
        bool has(Id id) const { return (used & bit(id)) != 0; }
        std::uint64_t used = 0;
        std::array<T, kPage> items{};
    };
    static std::uint64_t bit(Id id) { return std::uint64_t{1} << (id % kPage); }
    Page* pageOf(Id id) { return id / kPage < pages_.size() ? pages_[id / kPage].get() : nullptr; }

    std::vector<std::unique_ptr<Page>> pages_;
    std::size_t size_ = 0;
};

}  // namespace KR
