#pragma once

// Included at the end of Future.h.

#include "platform/vo/LogException.h"

namespace vo {

template <class T>
bool Future<T>::isRunning() const
{
    return resultIndex() == kRunning;
}

template <class T>
bool Future<T>::hasValue() const
{
    return resultIndex() == kValue;
}

template <class T>
bool Future<T>::hasError() const
{
    return resultIndex() == kError;
}

template <class T>
bool Future<T>::isCanceled() const
{
    return resultIndex() == kCanceled;
}

template <class T>
void Future<T>::wait() const
{
    State& shared = state();
    const Lock<Mutex> lock(shared.mutex);
    while (shared.result.index() == kRunning)
        shared.followed().ended.wait(shared.mutex);
}

template <class T>
T Future<T>::value() const
{
    const Result& result = waitForResult();
    if (result.index() == kError)
        std::rethrow_exception(std::get<kError>(result));
    if (result.index() == kCanceled)
        throw FutureCanceled();
    if constexpr (!std::is_void_v<T>)
        return std::get<kValue>(result);
}

template <class T>
std::string Future<T>::error() const
{
    const Result& result = waitForResult();
    if (result.index() != kError)
        return {};
    try {
        std::rethrow_exception(std::get<kError>(result));
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "unknown exception";
    }
}

template <class T>
void Future<T>::cancel() const
{
    State& shared = state();
    std::function<bool()> canceler;
    {
        const Lock<Mutex> lock(shared.mutex);
        canceler.swap(shared.canceler);
    }
    if (canceler && canceler())
        Promise<T>(*this).setCanceled();
}

template <class T>
void Future<T>::then(Callback callback) const
{
    State& shared = state();
    {
        const Lock<Mutex> lock(shared.mutex);
        if (shared.result.index() == kRunning) {
            shared.followed().callbacks.push_back(std::move(callback));
            return;
        }
    }
    call(callback, *this);
}

template <class T>
template <class F>
auto Future<T>::map(F function) const
{
    const auto apply = [function = std::move(function)](const Future& ended) {
        if constexpr (std::is_void_v<T>) {
            ended.value();
            return function();
        } else {
            return function(ended.value());
        }
    };
    using Mapped = decltype(apply(*this));
    const Promise<Mapped> promise;
    then([promise, apply](const Future& ended) { promise.endWith([&] { return apply(ended); }); });
    return promise.future();
}

template <class T>
typename Future<T>::State& Future<T>::state() const
{
    if (!state_)
        throw std::logic_error("the future is invalid");
    return *state_;
}

template <class T>
std::size_t Future<T>::resultIndex() const
{
    State& shared = state();
    const Lock<Mutex> lock(shared.mutex);
    return shared.result.index();
}

// Nothing changes a result that is there, so it is read without the lock, which is not to be held
// while a value is copied.
template <class T>
const typename Future<T>::Result& Future<T>::waitForResult() const
{
    wait();
    return state().result;
}

template <class T>
void Future<T>::call(const Callback& callback, const Future& future)
{
    try {
        callback(future);
    } catch (...) {
        logCurrentException("Future", "then");
    }
}

template <class T>
void Promise<T>::setCanceler(std::function<bool()> canceler) const
{
    auto& shared = future_.state();
    const Lock<Mutex> lock(shared.mutex);
    if (shared.result.index() == Future<T>::kRunning)
        shared.canceler.swap(canceler);
}

template <class T>
template <class... V>
bool Promise<T>::setValue(V&&... value) const
{
    return finish<Future<T>::kValue>(std::forward<V>(value)...);
}

template <class T>
bool Promise<T>::setError(std::exception_ptr error) const
{
    return finish<Future<T>::kError>(std::move(error));
}

template <class T>
bool Promise<T>::setCanceled() const
{
    return finish<Future<T>::kCanceled>();
}

template <class T>
bool Promise<T>::endAs(const Future<T>& ended) const
{
    return endWith([&] { return ended.value(); });
}

template <class T>
template <class F>
bool Promise<T>::endWith(const F& function) const
{
    try {
        if constexpr (std::is_void_v<T>) {
            function();
            return setValue();
        } else {
            return setValue(function());
        }
    } catch (const FutureCanceled&) {
        return setCanceled();
    } catch (...) {
        return setError(std::current_exception());
    }
}

template <class T>
template <std::size_t I, class... V>
bool Promise<T>::finish(V&&... value) const
{
    // Made before the lock is taken: the constructor of a value is not ours.
    std::variant_alternative_t<I, typename Future<T>::Result> ending(std::forward<V>(value)...);
    std::vector<typename Future<T>::Callback> callbacks;
    std::function<bool()> canceler;
    // One of the callbacks may destroy this promise.
    const Future<T> future = future_;
    auto& shared = future.state();
    {
        const Lock<Mutex> lock(shared.mutex);
        if (shared.result.index() != Future<T>::kRunning)
            return false;
        shared.result.template emplace<I>(std::move(ending));
        canceler.swap(shared.canceler);
        if (shared.followers) {
            callbacks.swap(shared.followers->callbacks);
            shared.followers->ended.notifyAll();
        }
    }
    for (const auto& callback : callbacks)
        Future<T>::call(callback, future);
    return true;
}

}  // namespace vo
