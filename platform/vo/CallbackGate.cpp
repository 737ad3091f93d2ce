#include "platform/vo/CallbackGate.h"

#include <algorithm>
#include <utility>

namespace vo {

namespace {

bool contains(const std::vector<std::thread::id>& threads, std::thread::id thread)
{
    return std::find(threads.begin(), threads.end(), thread) != threads.end();
}

void removeOne(std::vector<std::thread::id>& threads, std::thread::id thread)
{
    threads.erase(std::find(threads.begin(), threads.end(), thread));
}

}  // namespace

bool CallbackGate::enter()
{
    const Lock<Mutex> lock(mutex_);
    if (closed_)
        return false;
    running_.push_back(std::this_thread::get_id());
    return true;
}

void CallbackGate::leave()
{
    const auto self = std::this_thread::get_id();
    // Notified under the lock: the one who waits may destroy the gate as soon as it is free.
    const Lock<Mutex> lock(mutex_);
    removeOne(running_, self);
    if (!closed_)
        return;
    if (!contains(running_, self))
        closers_.erase(std::remove(closers_.begin(), closers_.end(), self), closers_.end());
    changed_.notifyAll();
}

bool CallbackGate::close()
{
    const auto self = std::this_thread::get_id();
    const Lock<Mutex> lock(mutex_);
    const bool first = !std::exchange(closed_, true);
    const bool inside = contains(running_, self);
    if (inside) {
        closers_.push_back(self);
        changed_.notifyAll();
    }
    while (!mayGoOn(inside))
        changed_.wait(mutex_);
    return first;
}

// Two runs that close at the same time would wait for each other, so an inside closer waits only
// for runs that have not closed. It counts as a closer until its run ends, not just until it goes
// on: what it closes next may be a gate that the other one is inside of.
bool CallbackGate::mayGoOn(bool inside) const
{
    if (!inside)
        return running_.empty();
    for (const auto thread : running_)
        if (!contains(closers_, thread))
            return false;
    return true;
}

bool CallbackGate::isClosed() const
{
    const Lock<Mutex> lock(mutex_);
    return closed_;
}

bool CallbackGate::isInside() const
{
    const Lock<Mutex> lock(mutex_);
    return contains(running_, std::this_thread::get_id());
}

}  // namespace vo
