#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "life/ResumeLimits.h"
#include "platform/kr/KRBroker.h"

namespace KR {

class EventStream;
class LifeDriver;
class LifeService;
class NimbraLaunchpad;

/// All that it takes for a robot to live: the life service, the launchpad that decides, and what
/// carries its decisions out. Whoever builds a robot makes a platform, the robot's own services,
/// and then one of these.
///
///     made --start()--> monitoring --stop()--> stopped (final)
///
/// It is made after the services that are to be there from the beginning; others may come later.
/// Each service that a robot does not have only makes what needs it fail: without "KRBattery", say,
/// the charge is not known.
///
/// Used by one thread; what it gives out is thread-safe.
class Life {
public:
    struct Options {
        std::string config = {};                ///< the rules' path; empty for no rules
        std::string packages = {};              ///< the packages folder; empty for none
        std::vector<std::string> plugins = {};  ///< built-in ones to add to the usual ones
        std::set<std::string> chains = {};      ///< parts of the robot that can be held still
        /// The folder in which the holds and counts of the rules survive a restart; it is made if
        /// need be. Empty for none.
        std::string state = {};
        ResumeLimits resume = {};
    };

    /// What fails of the configuration is published as an error, and left out. KRError for a
    /// packages folder that cannot be used, std::runtime_error for such a state folder. The stream
    /// outlives it, and so does the driver. Under a driver there are no packages but those of a
    /// service "PackageManager" that is there, no plugin is enabled, and nothing survives.
    Life(const boost::shared_ptr<KRBroker>& broker, EventStream& events, const Options& options,
         LifeDriver* driver = nullptr);
    /// Stops.
    ~Life();
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;

    /// Starts monitoring. What fails is logged, and leaves the rest of the robot alive.
    void start();
    /// Ends monitoring, then the launchpad, then the activity that has the focus (or leaves it
    /// after FocusQueue::kLongestExit), then the application's event loop. What waits, was posted
    /// or is in progress is dropped. Idempotent; not on the event loop.
    void stop();

    LifeService& service();
    NimbraLaunchpad& launchpad();

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace KR
