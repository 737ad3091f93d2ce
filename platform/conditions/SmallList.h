#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

namespace KR {

/// A list of items of 4 bytes in 20 bytes, of which the first four need no memory elsewhere: most
/// lists of the graph have one or two, and there are very many lists.
///
/// Not synchronised: a part of ConditionGraph.
template <class T>
class SmallList {
    static_assert(sizeof(T) == 4 && std::is_trivially_copyable_v<T>);

public:
    SmallList() = default;
    SmallList(SmallList&& other) noexcept { swap(other); }
    SmallList& operator=(SmallList&& other) noexcept
    {
        swap(other);
        return *this;
    }
    SmallList(const SmallList&) = delete;
    SmallList& operator=(const SmallList&) = delete;
    ~SmallList()
    {
        if (isLong())
            delete[] elsewhere().items;
    }

    const T* begin() const { return isLong() ? elsewhere().items : here_.data(); }
    const T* end() const { return begin() + size_; }

    void push_back(T item)
    {
        if (size_ == (isLong() ? elsewhere().capacity : kHere))
            move(size_ * 2);
        ++size_;
        data()[size_ - 1] = item;
    }
    /// Takes out one that is there; the others keep their order. Soonest found are the latest.
    void erase(T item)
    {
        T* place = data() + size_ - 1;
        while (!(*place == item))
            --place;
        std::copy(place + 1, data() + size_, place);
        if (size_ == kHere + 1)
            moveHere();
        --size_;
    }

private:
    static constexpr std::uint32_t kHere = 4;

    /// Where a long list is; lies in the bytes of here_.
    struct Elsewhere {
        T* items;
        std::uint32_t capacity;
    };
    static constexpr std::size_t kElsewhere = offsetof(Elsewhere, capacity) + sizeof(std::uint32_t);
    static_assert(kElsewhere <= kHere * sizeof(T));

    bool isLong() const { return size_ > kHere; }
    Elsewhere elsewhere() const
    {
        Elsewhere place{};
        std::memcpy(&place, here_.data(), kElsewhere);
        return place;
    }
    T* data() { return const_cast<T*>(std::as_const(*this).begin()); }

    /// To where one item more has its place.
    void move(std::uint32_t capacity)
    {
        const Elsewhere place{new T[capacity], capacity};
        std::copy(begin(), end(), place.items);
        if (isLong())
            delete[] elsewhere().items;
        std::memcpy(static_cast<void*>(here_.data()), &place, kElsewhere);
    }
    void moveHere()
    {
        const Elsewhere place = elsewhere();
        std::copy_n(place.items, kHere, here_.data());
        delete[] place.items;
    }
    void swap(SmallList& other)
    {
        std::swap(size_, other.size_);
        std::swap(here_, other.here_);
    }

    std::uint32_t size_ = 0;
    std::array<T, kHere> here_{};  ///< or, when the list is long, where it is
};

}  // namespace KR
