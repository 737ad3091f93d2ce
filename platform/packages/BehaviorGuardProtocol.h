#pragma once

#include <cstdint>

/// @file
/// What the behaviour manager and the guard of one behaviour say to each other, over a stream
/// socket that the guard inherits.

namespace KR::guard {

/// The guard's end of the socket.
constexpr int kSocket = 3;

/// From the manager, one byte each. The end of the stream, which is what the manager's death
/// looks like, means `kill`.
enum class Order : char {
    terminate = 'T',  ///< SIGTERM to the behaviour's process group
    kill = 'K'        ///< SIGKILL to everything that the behaviour started
};

/// From the guard: first `started` or `failed`, and after `started` at last `ended`.
struct Report {
    enum Kind : std::int32_t {
        started,  ///< value: id of the behaviour's process, and of its group
        failed,   ///< the program could not be run; value: errno
        ended     ///< nothing of the behaviour is left; value: wait status of its program
    };
    std::int32_t kind;
    std::int32_t value;
};

}  // namespace KR::guard
