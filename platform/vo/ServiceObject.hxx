#pragma once

#include <tuple>
#include <type_traits>
#include <utility>

namespace vo {

namespace detail {

/// The error, said to have happened at a place: "<place>: <error>".
ConversionError at(const std::string& place, const ConversionError& error);
/// Raises ConversionError "expected <n> arguments, got <m>" when the numbers differ.
void checkArgumentCount(std::size_t expected, std::size_t got);

template <class T>
T fromValueAt(const std::string& place, const Value& value)
{
    try {
        return fromValue<T>(value);
    } catch (const ConversionError& error) {
        throw at(place, error);
    }
}

template <class T>
constexpr bool isFuture = false;
template <class T>
constexpr bool isFuture<Future<T>> = true;

inline Value toResult()
{
    return {};
}
template <class T>
Value toResult(const T& result)
{
    return toValue(result);
}

template <class... Args>
std::vector<Value> toArguments(const Args&... args)
{
    return std::vector<Value>{toValue(args)...};
}

template <class... Args, std::size_t... I>
std::tuple<std::decay_t<Args>...> fromArguments([[maybe_unused]] const std::vector<Value>& values,
                                                std::index_sequence<I...> /*positions*/)
{
    // Braces: converted from the first to the last, so that the first wrong one is named.
    return std::tuple<std::decay_t<Args>...>{
        fromValueAt<std::decay_t<Args>>("argument " + std::to_string(I + 1), values[I])...};
}

/// The arguments of a function; errors name the place and the argument, counted from 1.
template <class... Args>
std::tuple<std::decay_t<Args>...> fromArguments(const std::string& place,
                                                const std::vector<Value>& values)
{
    try {
        checkArgumentCount(sizeof...(Args), values.size());
        return fromArguments<Args...>(values, std::index_sequence_for<Args...>());
    } catch (const ConversionError& error) {
        throw at(place, error);
    }
}

/// How to connect to a Signal or a Property in terms of Value.
template <class Source, class... Args>
ServiceObject::Connect connector(Source& source)
{
    return [&source](const ServiceObject::Receiver& receiver) {
        return source.connect([receiver](const Args&... args) { receiver(toArguments(args...)); });
    };
}

}  // namespace detail

template <class F>
ServiceObject& ServiceObject::method(const std::string& name, F function,
                                     const std::string& description)
{
    addMethod({name, description, 0}, std::function(std::move(function)));
    return *this;
}

template <class R, class... Args>
void ServiceObject::addMethod(MethodInfo info, std::function<R(Args...)> function)
{
    info.parameters = sizeof...(Args);
    // A Value, or a Future of one.
    auto call = [function = std::move(function),
                 place = place("method", info.name)](const std::vector<Value>& values) {
        auto arguments = detail::fromArguments<Args...>(place, values);
        if constexpr (std::is_void_v<R>) {
            std::apply(function, std::move(arguments));
            return Value();
        } else if constexpr (detail::isFuture<R>) {
            return std::apply(function, std::move(arguments)).map([](const auto&... result) {
                return detail::toResult(result...);
            });
        } else {
            return toValue(std::apply(function, std::move(arguments)));
        }
    };
    dynamicMethod(std::move(info), std::move(call));
}

template <class... Args>
ServiceObject& ServiceObject::signal(const std::string& name, Signal<Args...>& signal)
{
    addSignal(name, detail::connector<Signal<Args...>, Args...>(signal));
    return *this;
}

template <class T>
ServiceObject& ServiceObject::property(const std::string& name, Property<T>& property)
{
    addProperty(name, {[&property] { return toValue(property.get()); },
                       [&property, place = place("property", name)](const Value& value) {
                           property.set(detail::fromValueAt<T>(place, value));
                       },
                       detail::connector<Property<T>, T>(property)});
    return *this;
}

template <class T>
ServiceObject& ServiceObject::readOnlyProperty(const std::string& name, Property<T>& property)
{
    addProperty(name, {[&property] { return toValue(property.get()); },
                       [place = place("property", name)](const Value&) {
                           throw std::runtime_error(place + " can only be read");
                       },
                       detail::connector<Property<T>, T>(property)});
    return *this;
}

}  // namespace vo
