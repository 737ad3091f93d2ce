#pragma once

// Included at the end of EventLoop.h.

#include <optional>

namespace vo {

namespace detail {

// One function on its way through the loop. A task that is dropped, because it was cancelled or
// the loop was closed, takes its job with it, which then ends the future: nobody waits for ever.
template <class F>
class Job {
public:
    using Result = std::invoke_result_t<F>;

    explicit Job(F function) : function_(std::move(function)) {}
    ~Job()
    {
        function_.reset();
        promise.setCanceled();
    }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    void run()
    {
        try {
            if constexpr (std::is_void_v<Result>) {
                (*function_)();
                function_.reset();
                promise.setValue();
            } else {
                Result result = (*function_)();
                function_.reset();
                promise.setValue(std::move(result));
            }
        } catch (...) {
            function_.reset();
            promise.setError(std::current_exception());
        }
    }

    const Promise<Result> promise;

private:
    // Emptied before the future ends: who waited for it finds nothing of the function alive.
    std::optional<F> function_;
};

}  // namespace detail

template <class F>
auto EventLoop::async(F&& function, std::uint64_t delayInMicroseconds)
    -> Future<std::invoke_result_t<std::decay_t<F>>>
{
    auto job = std::make_shared<detail::Job<std::decay_t<F>>>(std::forward<F>(function));
    // The queue's alone from now on: when it drops the task, the job goes.
    const auto promise = job->promise;
    const Executor::TaskId id = executor_->post([job = std::move(job)] { job->run(); },
                                                fromMicroseconds(delayInMicroseconds));
    if (id != 0)
        promise.setCanceler([weak = std::weak_ptr<Executor>(executor_), id] {
            const auto executor = weak.lock();
            return executor && executor->cancel(id);
        });
    return promise.future();
}

}  // namespace vo
