#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "platform/kr/KRMemory.h"

namespace KR {

/// A watch that says what its watcher will look at first when the key has changed: that is fetched
/// into the cache while memory notes the change. It is never read by memory, so it may be gone.
///
/// For a watcher of tens of thousands of keys, each of which has been long out of the cache:
/// without it one change with 100,000 rules takes a fifth longer, and with 10,000 about as long.
struct PrefetchingWatch : KRMemory::Watch {
    /// Bytes that are fetched.
    static constexpr std::size_t kBytes = 128;

    const void* expected = nullptr;

    /// See KRMemory::watch.
    static std::vector<KRMemory::Snapshot> watch(KRMemory& memory,
                                                 const std::shared_ptr<MemoryFeed>& feed,
                                                 const std::vector<PrefetchingWatch>& keys);
};

}  // namespace KR
