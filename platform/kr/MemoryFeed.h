#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// One change of a watched key, as it stood in memory at that moment.
struct MemoryChange {
    std::uint32_t tag;  ///< what the watcher gave to KRMemory::watch for this key
    vo::TimePoint time;
    KRValue value;
};

/// The queue between shared memory and one subscriber.
///
/// Memory appends every change of the watched keys in the order in which they were raised, across
/// keys, none dropped and none merged. The subscriber takes them away in batches. `wake` is called
/// on the raiser's thread, with no lock held, when the queue was empty before the change: waking
/// is the costly part, so a burst wakes once. It must be quick and must not throw.
///
/// After unwatch nothing more is appended, but a wake that was due may still come, or be running,
/// when unwatch returns: waiting for it could deadlock with a wake that wants the caller's lock.
/// So the closure keeps what it touches alive itself, by a shared or (usually) a weak pointer. The
/// feed outlives its wakes: memory holds it for as long as one runs.
///
/// Thread-safe. One subscriber takes.
class MemoryFeed {
public:
    explicit MemoryFeed(std::function<void()> wake) : wake_(std::move(wake)) {}

    /// Moves everything queued to `changes` (whose old content is discarded, its storage reused).
    /// False when there was nothing.
    bool take(std::vector<MemoryChange>& changes);

    /// True when nothing is queued.
    bool empty() const;

private:
    friend class KRMemory;

    /// True when the queue was empty before.
    bool append(MemoryChange change);
    void wake() const { wake_(); }

    // Constant after construction.
    std::function<void()> wake_;
    mutable vo::Mutex mutex_;
    std::vector<MemoryChange> queue_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
