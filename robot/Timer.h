#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/vo/Clock.h"
#include "platform/vo/Executor.h"

namespace KR {

/// Calls back once, at the time that was last set, on a platform thread. Its owner guards it with
/// the mutex that the callback takes, and lets it go first: the destructor waits for the call in
/// progress.
class Timer {
public:
    Timer(vo::Clock& clock, const std::string& name, std::function<void()> callback)
        : callback_(std::move(callback)), executor_(clock.makeExecutor(name, kThreading))
    {
    }
    ~Timer() { executor_->close(); }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// Nothing for no call. A call that has begun already is not taken back.
    void set(std::optional<vo::Duration> delay)
    {
        executor_->cancel(task_);
        task_ = delay ? executor_->post(callback_, *delay) : 0;
    }

private:
    static constexpr auto kThreading = vo::Clock::Threading::shared;

    // Constant after construction.
    const std::function<void()> callback_;
    const std::shared_ptr<vo::Executor> executor_;

    vo::Executor::TaskId task_ = 0;
};

}  // namespace KR
