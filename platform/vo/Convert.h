#pragma once

#include <stdexcept>
#include <tuple>

#include "platform/vo/Value.h"

namespace vo {

/// Raised when a Value is not of the type that was asked for. The text says what was expected and
/// what was found, for example "expected int, got text".
class ConversionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One registered field of a structure.
template <class S, class F>
struct Field {
    const char* name;
    F S::*member;
};

template <class S, class F>
constexpr Field<S, F> field(const char* name, F S::*member)
{
    return {name, member};
}

/// Registration of a structure: specialise it with a `name` and `fields()`, a tuple of field(...)
/// in the order in which they travel. Registered once, beside the structure's definition:
///
///     template <> struct vo::Struct<Point> {
///         static constexpr const char* name = "Point";
///         static constexpr auto fields()
///         { return std::make_tuple(field("x", &Point::x), field("y", &Point::y)); }
///     };
template <class S>
struct Struct;

/// Conversion of a C++ type to and from Value: `static Value to(const T&)` and
/// `static T from(const Value&)`, which throws ConversionError.
///
/// Provided for bool, integers (out of range is an error, never a wrap), float and double (an int
/// is accepted), enums (as their integer), std::string, Value::Bytes, std::vector and std::list,
/// std::map with text keys, std::pair and std::tuple, Value itself, AnyObject, and every registered
/// structure. Errors inside a structure or list name the place: "in field 'items' of
/// AutonomousAction: ...".
template <class T, class = void>
struct Convert;

template <class T>
Value toValue(const T& v)
{
    return Convert<std::decay_t<T>>::to(v);
}
inline Value toValue(const char* text)
{
    return Value(std::string(text));
}

template <class T>
T fromValue(const Value& v)
{
    return Convert<T>::from(v);
}

}  // namespace vo

#include "platform/vo/Convert.hxx"
