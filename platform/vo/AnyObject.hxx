#pragma once

#include <exception>
#include <tuple>
#include <type_traits>

#include "platform/vo/EventLoop.h"

namespace vo {

namespace detail {

/// A receiver in terms of Value.
template <class R, class... Args>
ServiceObject::Receiver receiverOf(std::function<R(Args...)> function, std::string place)
{
    return [function = std::move(function),
            place = std::move(place)](const std::vector<Value>& values) {
        std::apply(function, fromArguments<Args...>(place, values));
    };
}

}  // namespace detail

template <class R, class... Args>
R AnyObject::call(const std::string& method, const Args&... args) const
{
    checked();
    return callWith<R>(method, detail::toArguments(args...));
}

template <class R>
R AnyObject::callWith(const std::string& method, const std::vector<Value>& arguments) const
{
    return resultOf<R>(method, object_->call(method, arguments));
}

template <class R>
R AnyObject::resultOf(const std::string& method, const Value& result) const
{
    if constexpr (!std::is_void_v<R>)
        return detail::fromValueAt<R>(object_->place("result of method", method), result);
}

template <class R, class... Args>
Future<R> AnyObject::async(const std::string& method, const Args&... args) const
{
    const Promise<R> promise;
    try {
        checked();
        const auto begun = getEventLoop()->async(
            [handle = *this, method, arguments = detail::toArguments(args...), promise] {
                handle.object_->start(method, arguments)
                    .map([handle, method](const Value& result) {
                        return handle.resultOf<R>(method, result);
                    })
                    .then([promise](const Future<R>& ended) { promise.endAs(ended); });
            });
        promise.setCanceler([begun] {
            begun.cancel();
            return begun.isCanceled();
        });
        begun.then([promise](const Future<void>& ended) {
            if (ended.isCanceled())
                promise.setCanceled();
        });
    } catch (...) {
        promise.setError(std::current_exception());
    }
    return promise.future();
}

template <class... Args, class F>
Connection AnyObject::connect(const std::string& signal, F receiver) const
{
    const ServiceObject& object = checked();
    const std::string place = object.place("signal", signal);
    if constexpr (sizeof...(Args) == 0)
        return object.connectQueued(signal,
                                    detail::receiverOf(std::function(std::move(receiver)), place));
    else
        return object.connectQueued(
            signal, detail::receiverOf(std::function<void(Args...)>(std::move(receiver)), place));
}

template <class T>
T AnyObject::property(const std::string& name) const
{
    const ServiceObject& object = checked();
    return detail::fromValueAt<T>(object.place("property", name), object.getProperty(name));
}

template <class T>
void AnyObject::setProperty(const std::string& name, const T& value) const
{
    checked().setProperty(name, toValue(value));
}

template <class T>
Connection AnyObject::follow(const std::string& name, std::function<void(T)> receiver) const
{
    const ServiceObject& object = checked();
    return object.followQueued(
        name, detail::receiverOf(std::move(receiver), object.place("property", name)));
}

}  // namespace vo
