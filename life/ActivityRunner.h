#pragma once

#include <cstdint>
#include <string>

namespace KR {

/// Names one time that an activity had the focus; grows with every one. 0 is none.
using FocusId = std::uint64_t;

/// Runs the activity that has the focus, for the life service, which tells it of one at a time:
///
///     check() ... start() --> runs --stop(), always, even if it has ended by itself--> stopped
///
/// An activity that ends by itself is told of by LifeService::activityEnded(), not from inside of
/// these functions. These may take their time, and are called with no lock held; they must not
/// change the focus themselves, nor wait for somebody who does.
class ActivityRunner {
public:
    virtual ~ActivityRunner() = default;

    /// Returns when an activity could be started now. LifeRefusal for one that may not run, KRError
    /// for one that cannot; the text says why.
    virtual void check(const std::string& activity) = 0;
    /// Starts an activity; throws when it cannot be run. `stay` names it until it is stopped.
    virtual void start(const std::string& activity, FocusId stay) = 0;
    /// Stops what was started; when it returns, nothing of it runs any more.
    virtual void stop() = 0;
};

}  // namespace KR
