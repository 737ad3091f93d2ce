#pragma once

#include <deque>
#include <optional>
#include <thread>
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
            if (teller_ != std::thread::id())
                return;
            teller_ = std::this_thread::get_id();
        }
        while (std::optional<T> thing = next())
            teller(*thing);
    }

    /// Returns when nobody tells any more, and so all that was to be told is; at once for who is
    /// just telling.
    void waitForTeller()
    {
        const Lock<Mutex> lock(mutex_);
        while (teller_ != std::thread::id() && teller_ != std::this_thread::get_id())
            told_.wait(mutex_);
    }

private:
    /// The oldest; none ends the telling.
    std::optional<T> next()
    {
        const Lock<Mutex> lock(mutex_);
        if (untold_.empty()) {
            teller_ = std::thread::id();
            told_.notifyAll();
            return std::nullopt;
        }
        std::optional<T> oldest(std::move(untold_.front()));
        untold_.pop_front();
        return oldest;
    }

    // Synchronised by itself.
    Condition told_;

    Mutex mutex_;
    std::deque<T> untold_ VO_GUARDED_BY(mutex_);
    std::thread::id teller_ VO_GUARDED_BY(mutex_);  ///< nobody's by default
};

}  // namespace vo
