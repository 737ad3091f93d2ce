#pragma once

#include "platform/vo/Log.h"

namespace KR {

/// The category of all that the launchpad says of itself, and of its errors' module.
constexpr const char* kLaunchpadCategory = "NimbraLaunchpad";

inline const vo::Logger launchpadLog(kLaunchpadCategory);

}  // namespace KR
