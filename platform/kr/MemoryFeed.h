#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"

namespace KR {

/// Who writes to memory: see KRMemory::writer. The one that is made by default stands for nobody.
struct MemoryWriter {
    std::uint32_t id = 0;
};

/// The uptime of what was never written.
constexpr vo::Duration kNotStamped = vo::Duration::min();

/// One change of a watched key, as it stood in memory at that moment.
struct MemoryChange {
    std::uint32_t tag;  ///< what the watcher gave to KRMemory::watch for this key
    MemoryWriter writer;
    vo::TimePoint time;
    KRValue value;
    /// The clock's uptime at the write; where KRMemory::Watch did not ask for it exactly, as of the
    /// timer tick before (see vo::Clock::roughUptime). Exact ones are in the order of the writes.
    vo::Duration uptime = kNotStamped;
    /// Its place in the order of all writes of the memory; 1 is the first.
    std::uint64_t number = 0;
};

/// The queue between shared memory and one subscriber.
///
/// Memory appends every change of the watched keys in the order in which they were raised, across
/// keys, none dropped and none merged. The subscriber takes them away in batches, with
/// KRMemory::take. `wake` is called on the raiser's thread, with no lock held, when the queue was
/// empty before the change: waking is the costly part, so a burst wakes once. It must be quick and
/// must not throw.
///
/// After unwatch nothing more is appended, but a wake that was due may still come, or be running,
/// when unwatch returns: waiting for it could deadlock with a wake that wants the caller's lock.
/// So the closure keeps what it touches alive itself, by a shared or (usually) a weak pointer. The
/// feed outlives its wakes: memory holds it for as long as one runs.
///
/// Of one memory, which guards it by its own lock: a lock of its own would cost each raise more
/// than it would spare the subscriber. One subscriber takes.
class MemoryFeed {
public:
    explicit MemoryFeed(std::function<void()> wake) : wake_(std::move(wake)) {}

    /// The number of the last write before it watched anything: what comes through it was written
    /// after that. For who has it watch.
    std::uint64_t since() const { return since_.value_or(0); }

private:
    friend class KRMemory;

    void noteSince(std::uint64_t number)
    {
        if (!since_)
            since_ = number;
    }
    /// True when the queue was empty before.
    bool append(MemoryChange change)
    {
        queue_.push_back(std::move(change));
        return queue_.size() == 1;
    }
    void wake() const { wake_(); }

    const std::function<void()> wake_;
    std::vector<MemoryChange> queue_;
    std::optional<std::uint64_t> since_;
};

}  // namespace KR
