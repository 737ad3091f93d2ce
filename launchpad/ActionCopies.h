#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <unordered_map>

#include "launchpad/AutonomousAction.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// Copies of actions for the responder, who gets them to read. Those it is done with are kept for
/// the next time that their condition is hit: an action is full of texts, and to copy it costs many
/// times what it takes to find a copy that is there.
///
/// A registered action does not change, and no other ever has its condition id, by which it is
/// known here.
///
/// Thread-safe.
class ActionCopies {
public:
    /// Adds a copy of a registered action to the list.
    void append(const AutonomousAction& action, std::list<AutonomousAction>& list)
    {
        const vo::Lock lock(mutex_);
        if (takeSpare(action.conditionId, list))
            return;
        sortReturned();
        if (!takeSpare(action.conditionId, list))
            list.push_back(action);
    }

    /// Takes back, unaltered, what append() made. At once: the threads that make copies and that
    /// give them back run side by side.
    void giveBack(std::list<AutonomousAction> list)
    {
        std::list<AutonomousAction> dropped;  // destroyed without the lock
        const vo::Lock lock(returnedMutex_);
        if (returned_.size() > kMaxSpare)
            dropped.swap(returned_);
        returned_.splice(returned_.end(), list);
    }

private:
    static constexpr std::size_t kMaxSpare = 1024;

    bool takeSpare(std::uint32_t conditionId, std::list<AutonomousAction>& list) VO_REQUIRES(mutex_)
    {
        const auto spare = spare_.find(conditionId);
        if (spare == spare_.end() || spare->second.empty())
            return false;
        list.splice(list.end(), spare->second, spare->second.begin());
        --count_;
        return true;
    }
    void sortReturned() VO_REQUIRES(mutex_)
    {
        std::list<AutonomousAction> returned;
        {
            const vo::Lock lock(returnedMutex_);
            returned.swap(returned_);
        }
        // Some may be of actions that are gone; the others come back soon enough.
        if (count_ > kMaxSpare) {
            spare_.clear();
            count_ = 0;
        }
        count_ += returned.size();
        while (!returned.empty()) {
            std::list<AutonomousAction>& spare = spare_[returned.front().conditionId];
            spare.splice(spare.end(), returned, returned.begin());
        }
    }

    vo::Mutex mutex_;
    std::unordered_map<std::uint32_t, std::list<AutonomousAction>> spare_ VO_GUARDED_BY(mutex_);
    std::size_t count_ VO_GUARDED_BY(mutex_) = 0;

    /// Taken after the other one.
    vo::Mutex returnedMutex_;
    std::list<AutonomousAction> returned_ VO_GUARDED_BY(returnedMutex_);
};

}  // namespace KR
