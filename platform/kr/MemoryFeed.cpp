#include "platform/kr/MemoryFeed.h"

namespace KR {

bool MemoryFeed::take(std::vector<MemoryChange>& changes)
{
    changes.clear();
    vo::Lock lock(mutex_);
    queue_.swap(changes);
    return !changes.empty();
}

bool MemoryFeed::empty() const
{
    vo::Lock lock(mutex_);
    return queue_.empty();
}

bool MemoryFeed::append(MemoryChange change)
{
    vo::Lock lock(mutex_);
    queue_.push_back(std::move(change));
    return queue_.size() == 1;
}

}  // namespace KR
