#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <tsl/robin_set.h>

namespace vo {

/// Finds items by a text that each of them holds: `KeyOf()(item)` is a `const std::string&`, which
/// does not change while the item is in the index. It refers to the items, which stay where they
/// are.
///
/// The hashes stand beside the pointers, so a search touches the item that it finds and no other;
/// with many items each of them has been long out of every cache.
///
/// Not thread-safe.
template <class T, class KeyOf>
class TextIndex {
public:
    /// Half as large as by default: a search waits for the table longer than it looks at more of
    /// it.
    TextIndex() { items_.max_load_factor(0.8F); }

    /// Null when there is none.
    T* find(const std::string& key) const
    {
        const auto place = items_.find(key);
        return place == items_.end() ? nullptr : *place;
    }
    /// An item whose text no other has.
    void insert(T& item) { items_.insert(&item); }
    /// One that is there.
    void erase(const T& item) { items_.erase(KeyOf()(item)); }

private:
    static const std::string& keyOf(const std::string& key) { return key; }
    static const std::string& keyOf(const T* item) { return KeyOf()(*item); }

    struct Hash {
        template <class Item>
        std::size_t operator()(const Item& item) const
        {
            return std::hash<std::string>()(keyOf(item));
        }
    };
    struct Same {
        using is_transparent = void;
        template <class A, class B>
        bool operator()(const A& a, const B& b) const
        {
            return keyOf(a) == keyOf(b);
        }
    };

    tsl::robin_set<T*, Hash, Same, std::allocator<T*>, true> items_;
};

}  // namespace vo
