#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "life/ActivityRunner.h"
#include "life/Turns.h"
#include "platform/vo/Connection.h"
#include "platform/vo/Future.h"
#include "platform/vo/Value.h"

namespace KR {

/// What life/ asks of the robot, numbered and published together with the answers, each of which
/// comes in a turn of its own, unless it comes at once.
///
/// Requests are made in turns. Thread-safe otherwise: answers come on any thread, also when this is
/// gone, as long as what it is made of is there.
class Requests {
public:
    /// Both outlive it.
    Requests(EventStream& events, Turns& turns) : events_(events), turns_(turns) {}
    Requests(const Requests&) = delete;
    Requests& operator=(const Requests&) = delete;

    /// Asks for something, which `text` tells to people. What `ask` throws is the answer, too.
    /// Under a driver it is not asked.
    vo::Future<vo::Value> make(const std::string& text,
                               const std::function<vo::Future<vo::Value>()>& ask);

private:
    // Constant after construction.
    EventStream& events_;
    Turns& turns_;

    std::atomic<std::uint64_t> last_{0};
};

/// Runs activities by another runner, each wish of which is a request.
class RequestedActivities : public ActivityRunner {
public:
    /// Both outlive it. Ends of activities are passed on.
    RequestedActivities(Requests& requests, ActivityRunner& runner);
    ~RequestedActivities() override;
    RequestedActivities(const RequestedActivities&) = delete;
    RequestedActivities& operator=(const RequestedActivities&) = delete;

    vo::Future<void> check(const std::string& activity) override;
    vo::Future<void> start(const std::string& activity, FocusId stay) override;
    vo::Future<void> stop() override;

private:
    Requests& requests_;
    ActivityRunner& runner_;
    vo::Connection ends_;
};

}  // namespace KR
