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
/// lists of the network have one or two, and there are very many lists. Some are very long, and
/// what they hold goes in the order in which it came, or in the opposite one: taking out the first
/// or the last item takes a few steps, however many there are. With
/// boost::container::small_vector<T, 4> in its place loading takes 10 % longer, memory is 13 %
/// more, one change at 100,000 conditions takes 7 % longer, and taking back 50,000 conditions that
/// share a key ten times as long.
///
/// Not synchronised: a part of ConditionNetwork.
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

    const T* begin() const
    {
        return isLong() ? elsewhere().items + elsewhere().first : here_.data();
    }
    const T* end() const { return begin() + size_; }
    bool empty() const { return size_ == 0; }

    void push_back(T item)
    {
        if (size_ == kHere)
            move(kHere * 2);
        else if (isLong() && elsewhere().first + size_ == elsewhere().capacity)
            makeRoom();
        ++size_;
        data()[size_ - 1] = item;
    }
    /// Takes out one that is there; the others keep their order. Looked for from both ends, and the
    /// shorter side closes up.
    void erase(T item)
    {
        T* const begin = data();
        T* front = begin;
        T* back = begin + size_ - 1;
        while (!(*front == item) && !(*back == item)) {
            ++front;
            --back;
        }
        if (isLong() && *front == item) {
            std::copy_backward(begin, front, front + 1);
            skipFirst();
        } else {
            T* const place = *back == item ? back : front;
            std::copy(place + 1, begin + size_, place);
        }
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
        std::uint32_t first;  ///< where the list begins
    };
    static_assert(sizeof(Elsewhere) <= kHere * sizeof(T));

    bool isLong() const { return size_ > kHere; }
    Elsewhere elsewhere() const
    {
        Elsewhere place{};
        std::memcpy(&place, here_.data(), sizeof place);
        return place;
    }
    void setElsewhere(const Elsewhere& place)
    {
        std::memcpy(static_cast<void*>(here_.data()), &place, sizeof place);
    }
    T* data() { return const_cast<T*>(std::as_const(*this).begin()); }

    /// To where one item more has its place.
    void move(std::uint32_t capacity)
    {
        const Elsewhere place{new T[capacity], capacity, 0};
        std::copy(begin(), end(), place.items);
        if (isLong())
            delete[] elsewhere().items;
        setElsewhere(place);
    }
    /// At the end of a long list: moved to the front where half the room is free.
    void makeRoom()
    {
        Elsewhere place = elsewhere();
        if (place.first < size_)
            return move(size_ * 2);
        std::copy(begin(), end(), place.items);
        place.first = 0;
        setElsewhere(place);
    }
    void skipFirst()
    {
        Elsewhere place = elsewhere();
        ++place.first;
        setElsewhere(place);
    }
    void moveHere()
    {
        const Elsewhere place = elsewhere();
        std::copy_n(place.items + place.first, kHere, here_.data());
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
