#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/vo/Mutex.h"
#include "tests/support/Deadline.h"

/// What happened on whatever thread, in order, for a test that waits for it.
class Happenings {
public:
    void add(const std::string& what)
    {
        const vo::Lock lock(mutex_);
        all_.push_back(what);
        changed_.notifyAll();
    }
    /// Waits for something that begins with this, and returns the rest of it.
    std::string wait(const std::string& begin)
    {
        const Deadline deadline("something that begins with '" + begin + "'");
        const vo::Lock lock(mutex_);
        while (true) {
            for (const auto& what : all_)
                if (what.compare(0, begin.size(), begin) == 0)
                    return what.substr(begin.size());
            changed_.wait(mutex_);
        }
    }
    /// Waits for that many, and takes away all that there are.
    std::vector<std::string> take(std::size_t count)
    {
        const Deadline deadline(std::to_string(count) + " happenings");
        const vo::Lock lock(mutex_);
        while (all_.size() < count)
            changed_.wait(mutex_);
        return std::exchange(all_, {});
    }

private:
    vo::Mutex mutex_;
    vo::Condition changed_;
    std::vector<std::string> all_ VO_GUARDED_BY(mutex_);
};
