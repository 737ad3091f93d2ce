#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "platform/vo/Mutex.h"

namespace vo {

/// Raised by Future::value of a future that was cancelled.
class FutureCanceled : public std::runtime_error {
public:
    FutureCanceled() : std::runtime_error("future was canceled") {}
};

template <class T>
class Promise;

/// The result of something that ends later: a value, an error, or a cancellation.
///
///     running --> value | error | canceled          (each of the three is final)
///
/// A cheap handle: copies share the result. Thread-safe. A default-made future is invalid; asking
/// it anything but isValid() raises std::logic_error.
template <class T>
class Future {
    // A void result is stored as monostate.
    using Stored = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

public:
    using Callback = std::function<void(const Future<T>&)>;

    Future() = default;

    bool isValid() const { return state_ != nullptr; }
    bool isRunning() const;
    bool hasValue() const;
    bool hasError() const;
    bool isCanceled() const;

    /// Waits until the future has ended. Under a virtual clock, call it only on a future that has
    /// ended or that another thread's advance will end.
    void wait() const;

    /// Waits, then returns the value, rethrows the error, or throws FutureCanceled.
    T value() const;

    /// Waits, then returns the error's text; empty when there is none.
    std::string error() const;

    /// Asks for cancellation. What has not begun never will, and the future is canceled at once;
    /// what has begun or ended is left alone. Never blocks.
    void cancel() const;

    /// Calls back when the future ends, on the thread that ends it, in the order of the calls of
    /// then(); at once if it has ended. An exception that leaves the callback is logged.
    void then(Callback callback) const;

    /// A future that ends when this one does, and as this one does: with an error, or with what
    /// `function` makes of its value (of nothing for void). Cancelling it does nothing.
    template <class F>
    auto map(F function) const;

private:
    friend class Promise<T>;

    struct Canceled {};
    using Result = std::variant<std::monostate, Stored, std::exception_ptr, Canceled>;
    // Its alternatives, by index: a result type may equal one of the others.
    static constexpr std::size_t kRunning = 0;
    static constexpr std::size_t kValue = 1;
    static constexpr std::size_t kError = 2;
    static constexpr std::size_t kCanceled = 3;

    /// Who is to be told of the end.
    struct Followers {
        Condition ended;
        std::vector<Callback> callbacks;
    };

    /// Small, because most futures are dropped at once, and then ended on another thread: what that
    /// one frees is to be of the sizes for which the allocator needs no lock.
    struct State {
        Followers& followed() VO_REQUIRES(mutex)
        {
            if (!followers)
                followers = std::make_unique<Followers>();
            return *followers;
        }

        mutable Mutex mutex;
        Result result VO_GUARDED_BY(mutex);  ///< final once it is not kRunning
        std::unique_ptr<Followers> followers VO_GUARDED_BY(mutex);
        std::function<bool()> canceler VO_GUARDED_BY(mutex);
    };

    explicit Future(std::shared_ptr<State> state) : state_(std::move(state)) {}
    State& state() const;
    std::size_t resultIndex() const;
    const Result& waitForResult() const VO_NO_THREAD_SAFETY_ANALYSIS;
    static void call(const Callback& callback, const Future& future);

    std::shared_ptr<State> state_;
};

/// The writing end of a Future. The first of setValue, setError and setCanceled wins; later calls
/// return false and change nothing. Thread-safe; copies share the future.
template <class T>
class Promise {
public:
    Promise() : future_(std::make_shared<typename Future<T>::State>()) {}

    Future<T> future() const { return future_; }

    /// `canceler` is called at most once, by Future::cancel; it returns true if the work was
    /// prevented, upon which the future becomes canceled.
    void setCanceler(std::function<bool()> canceler) const;

    template <class... V>
    bool setValue(V&&... value) const;
    bool setError(std::exception_ptr error) const;
    bool setCanceled() const;
    /// Ends as a future has that has ended.
    bool endAs(const Future<T>& ended) const;
    /// Ends with what a function returns or throws.
    template <class F>
    bool endWith(const F& function) const;

private:
    friend class Future<T>;

    explicit Promise(Future<T> future) : future_(std::move(future)) {}

    template <std::size_t I, class... V>
    bool finish(V&&... value) const;

    Future<T> future_;
};

}  // namespace vo

#include "platform/vo/Future.hxx"
