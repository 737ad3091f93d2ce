#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace KR {

/// A list of 32-bit numbers in 24 bytes, of which the first four need no memory elsewhere: most
/// lists of the graph have one or two, and there are very many lists.
///
/// Not synchronised: a part of ConditionGraph.
class SmallIds {
public:
    using Id = std::uint32_t;

    SmallIds() = default;
    SmallIds(SmallIds&& other) noexcept { swap(other); }
    SmallIds& operator=(SmallIds&& other) noexcept
    {
        swap(other);
        return *this;
    }
    SmallIds(const SmallIds&) = delete;
    SmallIds& operator=(const SmallIds&) = delete;
    ~SmallIds()
    {
        if (isLong())
            delete[] elsewhere();
    }

    const Id* begin() const { return isLong() ? elsewhere() : here_.data(); }
    const Id* end() const { return begin() + size_; }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }

    void push_back(Id id)
    {
        if (size_ == capacity_)
            grow();
        data()[size_++] = id;
    }
    /// Takes out one that is there; the others keep their order. Soonest found are the latest, here
    /// and below.
    void erase(Id id)
    {
        Id* const place = find(id);
        std::copy(place + 1, data() + size_, place);
        --size_;
    }
    /// The same, where the order does not matter.
    void eraseUnordered(Id id)
    {
        *find(id) = data()[size_ - 1];
        --size_;
    }

private:
    static constexpr std::uint32_t kHere = 4;

    bool isLong() const { return capacity_ > kHere; }
    Id* elsewhere() const
    {
        Id* pointer = nullptr;
        std::memcpy(&pointer, here_.data(), sizeof pointer);
        return pointer;
    }
    Id* data() { return const_cast<Id*>(std::as_const(*this).begin()); }

    Id* find(Id id)
    {
        Id* place = data() + size_ - 1;
        while (*place != id)
            --place;
        return place;
    }
    void grow()
    {
        Id* const more = new Id[capacity_ * std::size_t{2}];
        std::copy(begin(), end(), more);
        if (isLong())
            delete[] elsewhere();
        std::memcpy(here_.data(), &more, sizeof more);
        capacity_ *= 2;
    }
    void swap(SmallIds& other)
    {
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
        std::swap(here_, other.here_);
    }

    std::uint32_t size_ = 0;
    std::uint32_t capacity_ = kHere;
    alignas(8) std::array<Id, kHere> here_{};  ///< or, when the list is long, where it is
};

}  // namespace KR
