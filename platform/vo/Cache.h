#pragma once

#include <cstddef>

namespace vo {

/// Bytes that the processor's cache fetches at once.
inline constexpr std::size_t kCacheLine = 64;

/// Has memory fetched into the cache while other work goes on. It is not read, so it may be gone.
inline void prefetch(const void* begin, std::size_t bytes = kCacheLine)
{
    for (std::size_t offset = 0; offset < bytes; offset += kCacheLine)
        __builtin_prefetch(static_cast<const char*>(begin) + offset);
}

}  // namespace vo
