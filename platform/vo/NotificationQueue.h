#pragma once

#include <deque>
#include <optional>
#include <thread>
#include <utility>

#include "platform/vo/Mutex.h"

namespace vo {

/// Notifications that wait for their delivery to others, who may call back: delivered in the order
/// added, one at a time, and with no lock held. Of several threads that want to deliver, the first
/// delivers for all of them.
///
/// Thread-safe. Its mutex comes after whichever one the caller holds over add().
template <class T>
class NotificationQueue {
public:
    void add(T notification)
    {
        const Lock<Mutex> lock(mutex_);
        notifications_.push_back(std::move(notification));
    }

    /// Calls `receiver` with each notification until none is left, unless another thread is doing
    /// so, or this one further up its stack.
    template <class Receiver>
    void deliver(const Receiver& receiver)
    {
        {
            const Lock<Mutex> lock(mutex_);
            if (delivering_ != std::thread::id())
                return;
            delivering_ = std::this_thread::get_id();
        }
        while (std::optional<T> notification = next())
            receiver(*notification);
    }

    /// Returns when no other thread delivers any more, and so everything is delivered; at once on
    /// the thread that is delivering.
    void waitUntilDelivered()
    {
        const Lock<Mutex> lock(mutex_);
        while (delivering_ != std::thread::id() && delivering_ != std::this_thread::get_id())
            delivered_.wait(mutex_);
    }

private:
    /// The oldest; none ends the delivery.
    std::optional<T> next()
    {
        const Lock<Mutex> lock(mutex_);
        if (notifications_.empty()) {
            delivering_ = std::thread::id();
            delivered_.notifyAll();
            return std::nullopt;
        }
        std::optional<T> oldest(std::move(notifications_.front()));
        notifications_.pop_front();
        return oldest;
    }

    // Synchronised by itself.
    Condition delivered_;

    Mutex mutex_;
    std::deque<T> notifications_ VO_GUARDED_BY(mutex_);
    std::thread::id delivering_ VO_GUARDED_BY(mutex_);  ///< nobody's by default
};

}  // namespace vo
