#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/conditions/LiteralLeaves.h"
#include "platform/conditions/NetworkNode.h"
#include "platform/conditions/SmallList.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/Cache.h"

namespace KR {

/// Names a key's slot; never 0, and never given twice.
using KeyTag = std::uint32_t;

/// A key that conditions read: what it was set to last, and the leaves that depend on it. It takes
/// two lines of the processor's cache. The uptime of its latest write is known as soon as a
/// condition that speaks of time reads it.
struct alignas(2 * vo::kCacheLine) KeySlot {
    KRMemory::Snapshot now = {};
    NodeId truth = kConstant;  ///< the leaf of the key's truth value; kConstant while there is none
    KeyTag tag = 0;
    LiteralLeaves literals;
    std::unique_ptr<SmallList<NodeId>> pairs;  ///< comparisons with keys; null until there is one
    std::unique_ptr<const std::string> key;
    std::unique_ptr<SmallList<NodeId>> ages;  ///< parts that speak of its age; null without
    std::uint32_t readers = 0;                ///< condition texts that read it
    std::uint32_t timedReaders = 0;           ///< those of them that speak of time
};
static_assert(sizeof(KeySlot) == 2 * vo::kCacheLine);

}  // namespace KR
