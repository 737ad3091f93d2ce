#pragma once

#include <utility>

#include "platform/vo/Connection.h"
#include "platform/vo/Future.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/NotificationQueue.h"
#include "platform/vo/Signal.h"

namespace vo {

/// A value that others read and follow.
///
/// Thread-safe. Followers are told of every set that changes the value, in the order of the sets,
/// on a setting thread and with no lock of the property held. Values are compared with ==.
template <class T>
class Property {
public:
    explicit Property(T value = T()) : value_(std::move(value)) {}

    T get() const;
    /// Sets the value and tells the followers. The future ends when they have been told; callers
    /// need not keep it. It has ended when this returns, unless followers are just being told of an
    /// earlier set (by another thread, or further up in this one): whoever does that then tells
    /// them of this one too, so that no set waits for another's followers.
    Future<void> set(T value);

    Connection connect(typename Signal<T>::Callback callback)
    {
        return changed_.connect(std::move(callback));
    }

private:
    struct Change {
        T value;
        Promise<void> told;
    };

    mutable Mutex mutex_;
    T value_ VO_GUARDED_BY(mutex_);
    // Synchronised by themselves.
    NotificationQueue<Change> notifications_;
    Signal<T> changed_;
};

}  // namespace vo

#include "platform/vo/Property.hxx"
