#pragma once

#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

#include "platform/vo/Executor.h"
#include "platform/vo/Future.h"

namespace vo {

/// The framework's event loop: one thread on which work is handed over.
///
/// Thread-safe. Owned by the Application.
class EventLoop {
public:
    explicit EventLoop(std::shared_ptr<Executor> executor) : executor_(std::move(executor)) {}

    /// Posts a function to run `delayInMicroseconds` from now and returns its future result.
    /// Functions of equal due time run in the order posted; one that throws fails its future and
    /// the loop goes on. Cancelling the future before the function has begun prevents it. On a
    /// closed loop the future is canceled at once.
    template <class F>
    auto async(F&& function, std::uint64_t delayInMicroseconds = 0)
        -> Future<std::invoke_result_t<std::decay_t<F>>>;

    /// True when called from a function that the loop runs.
    bool isInEventLoopThread() const { return executor_->isCurrent(); }

    /// See Executor::close.
    void close() { executor_->close(); }

private:
    friend struct TaskHint;

    std::shared_ptr<Executor> executor_;
};

/// The event loop of the current Application; std::logic_error when there is none.
EventLoop* getEventLoop();

}  // namespace vo

#include "platform/vo/EventLoop.hxx"
