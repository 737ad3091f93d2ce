#pragma once

#include <deque>
#include <optional>
#include <utility>

#include "platform/vo/Mutex.h"

namespace vo {

/// Things to be told to others, who may call back: in the order added, one at a time, and with no
/// lock held. Of several threads that want to tell, the first tells for all of them.
///
/// Thread-safe. Its mutex comes after whichever one the caller holds over add().
template <class T>
class TellQueue {
public:
    void add(T thing)
    {
        const Lock<Mutex> lock(mutex_);
        untold_.push_back(std::move(thing));
    }

    /// Calls `teller` with each thing until none is left, unless somebody else is doing so, maybe
    /// further up this very stack.
    template <class Teller>
    void tell(const Teller& teller)
    {
        {
            const Lock<Mutex> lock(mutex_);
            if (std::exchange(telling_, true))
                return;
        }
        while (std::optional<T> thing = next())
            teller(*thing);
    }

private:
    /// The oldest; none ends the telling.
    std::optional<T> next()
    {
        const Lock<Mutex> lock(mutex_);
        if (untold_.empty()) {
            telling_ = false;
            return std::nullopt;
        }
        std::optional<T> oldest(std::move(untold_.front()));
        untold_.pop_front();
        return oldest;
    }

    Mutex mutex_;
    std::deque<T> untold_ VO_GUARDED_BY(mutex_);
    bool telling_ VO_GUARDED_BY(mutex_) = false;
};

}  // namespace vo
