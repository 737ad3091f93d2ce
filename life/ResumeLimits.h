#pragma once

#include "platform/vo/Clock.h"

namespace KR {

/// When the holds and counts of rules go on after a restart.
struct ResumeLimits {
    /// So soon after the start their condition has to be true again.
    vo::Duration within = std::chrono::seconds(60);
    /// For no longer the program may have been away. Nor may the wall clock have gone back.
    vo::Duration gap = std::chrono::minutes(10);
};

}  // namespace KR
