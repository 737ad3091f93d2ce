#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/kr/KRBroker.h"
#include "platform/vo/AnyObject.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Future.h"
#include "platform/vo/Value.h"

namespace KR {

/// Calls methods of services and waits for none.
///
/// Each service has a worker, a thread that is there while calls wait for it: they are made one
/// after the other, in the order in which they came, and a service that hangs holds up its own
/// alone. A service that is replaced is another one. What a call came to is told on the event
/// loop, also by a method that returns a future. Under a clock without threads a call is made right
/// here instead, and has ended when call() returns, unless it returned a future that runs.
///
/// Thread-safe. The application outlives it. When it goes, calls that wait are never made, and
/// nobody is told any more; a call in progress goes on by itself for as long as it takes.
class ServiceCalls {
public:
    /// Calls that may wait for one service, behind the one that is in progress. A rule that calls a
    /// service which does not keep up soon says nothing that matters any more.
    static constexpr std::size_t kMaxWaiting = 16;

    explicit ServiceCalls(const boost::shared_ptr<KRBroker>& broker);
    ~ServiceCalls();
    ServiceCalls(const ServiceCalls&) = delete;
    ServiceCalls& operator=(const ServiceCalls&) = delete;

    /// Calls a method of a service (not null). Errors come in the future: what the method throws,
    /// and KRError when too many calls wait or the deadline has passed, which counts from now. A
    /// call that has failed so is not made any more if it has not begun; then it can be cancelled.
    vo::Future<vo::Value> call(const vo::AnyObject& service, const std::string& method,
                               std::vector<vo::Value> arguments,
                               std::optional<vo::Duration> deadline = {});
    /// The same without a deadline, and however many calls wait: for what ends something.
    vo::Future<vo::Value> callAnyway(const vo::AnyObject& service, const std::string& method,
                                     std::vector<vo::Value> arguments);

private:
    struct Call;
    struct State;

    void make(const std::shared_ptr<Call>& call);
    void enqueue(const std::shared_ptr<Call>& call);

    // Constant after construction. The state is shared with the workers.
    const boost::shared_ptr<KRBroker> broker_;
    const std::shared_ptr<State> state_;
};

}  // namespace KR
