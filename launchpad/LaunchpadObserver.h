#pragma once

#include <functional>
#include <string>

namespace KR {

/// Who hears of a launchpad's errors and of its plugins' starts and stops at the moment at which
/// they happen, and from the beginning of its construction on. Called on any thread and with locks
/// of the launchpad held, so it must not use the launchpad; until that is destroyed. Either may be
/// empty.
struct LaunchpadObserver {
    std::function<void(const std::string& function, const std::string& text)> error = {};
    std::function<void(const std::string& plugin, bool running)> switched = {};
};

}  // namespace KR
