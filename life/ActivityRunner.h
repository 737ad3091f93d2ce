#pragma once

#include <cstdint>
#include <string>

#include "platform/vo/Future.h"
#include "platform/vo/Signal.h"

namespace KR {

/// Names one time that an activity had the focus; grows with every one. 0 is none.
using FocusId = std::uint64_t;

/// Runs the activity that has the focus, for FocusQueue, which tells it of one at a time:
///
///     check() ... start() --> starting --> runs --stop(), always, even if it has ended--> stopped
///                                └---stop()---> given up: stopped as soon as its start has ended
///
/// None of these waits; what they return ends, on any thread, when it is done. They are called with
/// no lock held.
class ActivityRunner {
public:
    virtual ~ActivityRunner() = default;

    /// Ends when an activity could be started now. LifeRefusal for one that may not run, KRError
    /// for one that cannot; the text says why.
    virtual vo::Future<void> check(const std::string& activity) = 0;
    /// Starts an activity; fails when it cannot be run. `stay` names it until it is stopped.
    virtual vo::Future<void> start(const std::string& activity, FocusId stay) = 0;
    /// Stops what was started; when it has ended, nothing of it runs any more. At once for what is
    /// given up. It ends in a bounded time, if need be with an error.
    virtual vo::Future<void> stop() = 0;

    /// Told when an activity has ended by itself, or has to: the stay and the reason. Not from
    /// inside of the functions above.
    vo::Signal<FocusId, std::string> ended;
};

}  // namespace KR
