#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace KR {

struct CheckerMove;
class CheckerScript;

/// A hit list that goes to the responder: of each hit the id of its condition and the description
/// of its action.
struct LaunchpadHits {
    struct Hit {
        std::uint32_t condition;
        std::string rule;
    };
    std::vector<Hit> hits;
    std::uint64_t after;  ///< the number of the last write of memory that they rest on
};

/// Who hears of what a launchpad does at the moment at which it happens, and from the beginning of
/// its construction on: of its errors, of its plugins' starts and stops, of the hits that it passes
/// on, and of what its condition checker does by itself. Called on any thread and with locks of the
/// launchpad held, so it must not use the launchpad; until that is destroyed. Each may be empty.
struct LaunchpadObserver {
    std::function<void(const std::string& function, const std::string& text)> error = {};
    std::function<void(const std::string& plugin, bool running)> switched = {};
    std::function<void(const LaunchpadHits& hits)> hits = {};
    std::function<void(const CheckerMove& move)> checkerMoved = {};
    /// Takes the clock's place for the condition checker; null for none. Outlives the launchpad.
    CheckerScript* script = nullptr;
};

}  // namespace KR
