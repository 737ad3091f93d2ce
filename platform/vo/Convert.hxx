#pragma once

#include <cmath>
#include <cstddef>
#include <limits>
#include <list>
#include <string>
#include <type_traits>
#include <utility>

namespace vo {

namespace detail {

/// The error "expected <what>, got <kind of value>".
ConversionError unexpected(const std::string& what, const Value& value);
ConversionError outOfRange(std::int64_t lowest, std::uint64_t highest, std::int64_t value);
/// The same error, said to have happened "in <place>".
ConversionError inside(const std::string& place, const ConversionError& error);

/// The content of a value that has to be of type T (one of the types that a Value holds).
template <class T>
const T& content(const Value& value, const char* expected)
{
    if (const T* found = value.get<T>())
        return *found;
    throw unexpected(expected, value);
}

/// The fields of a value that has to be a structure of exactly so many.
const std::vector<Value>& fieldsOf(const Value& value, std::size_t count);

/// Sequences travel as a list.
template <class Container>
struct ConvertSequence {
    using Element = typename Container::value_type;

    static Value to(const Container& container)
    {
        Value::List list;
        list.reserve(container.size());
        for (const Element& element : container)
            list.push_back(toValue(element));
        return Value(std::move(list));
    }

    static Container from(const Value& value)
    {
        Container container;
        for (const Value& element : content<Value::List>(value, "list")) {
            try {
                container.push_back(fromValue<Element>(element));
            } catch (const ConversionError& error) {
                throw inside("element " + std::to_string(container.size()), error);
            }
        }
        return container;
    }
};

/// Pairs and tuples travel as a structure without names.
template <class Tuple>
struct ConvertTuple {
    static constexpr std::size_t kSize = std::tuple_size_v<Tuple>;

    static Value to(const Tuple& tuple)
    {
        return std::apply(
            [](const auto&... parts) { return Value(Value::Tuple{{toValue(parts)...}}); }, tuple);
    }

    static Tuple from(const Value& value)
    {
        return build(fieldsOf(value, kSize), std::make_index_sequence<kSize>());
    }

private:
    template <std::size_t... I>
    static Tuple build([[maybe_unused]] const std::vector<Value>& fields,
                       std::index_sequence<I...> /*positions*/)
    {
        return Tuple{part<I>(fields)...};
    }

    template <std::size_t I>
    static std::tuple_element_t<I, Tuple> part(const std::vector<Value>& fields)
    {
        try {
            return fromValue<std::tuple_element_t<I, Tuple>>(fields[I]);
        } catch (const ConversionError& error) {
            throw inside("position " + std::to_string(I), error);
        }
    }
};

}  // namespace detail

template <>
struct Convert<Value> {
    static Value to(const Value& v) { return v; }
    static Value from(const Value& v) { return v; }
};

template <>
struct Convert<bool> {
    static Value to(bool v) { return Value(v); }
    static bool from(const Value& v) { return detail::content<bool>(v, "bool"); }
};

template <>
struct Convert<std::string> {
    static Value to(const std::string& v) { return Value(v); }
    static std::string from(const Value& v) { return detail::content<std::string>(v, "text"); }
};

template <class T>
struct Convert<T, std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>> {
    using Limits = std::numeric_limits<T>;

    static Value to(T v)
    {
        if constexpr (std::is_unsigned_v<T>) {
            if (v > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
                throw ConversionError("expected an int of 64 bits with sign, got " +
                                      std::to_string(v));
        }
        return Value(static_cast<std::int64_t>(v));
    }

    static T from(const Value& v)
    {
        const auto found = detail::content<std::int64_t>(v, "int");
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): it is a number, too
        constexpr auto kLowest = static_cast<std::int64_t>(Limits::min());
        constexpr auto kHighest = static_cast<std::uint64_t>(Limits::max());
        if (found < kLowest || (found > 0 && static_cast<std::uint64_t>(found) > kHighest))
            throw detail::outOfRange(kLowest, kHighest, found);
        return static_cast<T>(found);
    }
};

template <class T>
struct Convert<T, std::enable_if_t<std::is_enum_v<T>>> {
    using Number = std::underlying_type_t<T>;
    static Value to(T v) { return toValue(static_cast<Number>(v)); }
    static T from(const Value& v) { return static_cast<T>(fromValue<Number>(v)); }
};

template <class T>
struct Convert<T, std::enable_if_t<std::is_floating_point_v<T>>> {
    static Value to(T v) { return Value(static_cast<double>(v)); }
    static T from(const Value& v)
    {
        if (const auto* integer = v.get<std::int64_t>())
            return static_cast<T>(*integer);
        const auto found = detail::content<double>(v, "float");
        if (std::isfinite(found) &&
            std::abs(found) > static_cast<double>(std::numeric_limits<T>::max()))
            throw ConversionError("expected a float of " + std::to_string(8 * sizeof(T)) +
                                  " bits, got " + std::to_string(found));
        return static_cast<T>(found);
    }
};

/// Bytes are a kind of their own, not a list of ints.
template <>
struct Convert<Value::Bytes> {
    static Value to(const Value::Bytes& v) { return Value(v); }
    static Value::Bytes from(const Value& v) { return detail::content<Value::Bytes>(v, "bytes"); }
};

template <class T>
struct Convert<std::vector<T>> : detail::ConvertSequence<std::vector<T>> {
};

template <class T>
struct Convert<std::list<T>> : detail::ConvertSequence<std::list<T>> {
};

template <class T>
struct Convert<std::map<std::string, T>> {
    static Value to(const std::map<std::string, T>& entries)
    {
        Value::Map map;
        for (const auto& [key, entry] : entries)
            map.emplace_hint(map.end(), key, toValue(entry));
        return Value(std::move(map));
    }

    static std::map<std::string, T> from(const Value& v)
    {
        std::map<std::string, T> entries;
        for (const auto& [key, entry] : detail::content<Value::Map>(v, "map")) {
            try {
                entries.emplace_hint(entries.end(), key, fromValue<T>(entry));
            } catch (const ConversionError& error) {
                throw detail::inside("entry '" + key + "'", error);
            }
        }
        return entries;
    }
};

template <class A, class B>
struct Convert<std::pair<A, B>> : detail::ConvertTuple<std::pair<A, B>> {
};

template <class... T>
struct Convert<std::tuple<T...>> : detail::ConvertTuple<std::tuple<T...>> {
};

template <class S>
struct Convert<S, std::void_t<decltype(Struct<S>::fields())>> {
    static Value to(const S& s)
    {
        Value::Tuple tuple;
        forEachField([&](const auto& field) { tuple.fields.push_back(toValue(s.*field.member)); });
        return Value(std::move(tuple));
    }

    static S from(const Value& v)
    {
        constexpr std::size_t kSize = std::tuple_size_v<decltype(Struct<S>::fields())>;
        S s{};
        std::size_t next = 0;
        try {
            const std::vector<Value>& values = detail::fieldsOf(v, kSize);
            forEachField([&](const auto& field) {
                auto& member = s.*field.member;
                member = fromValue<std::decay_t<decltype(member)>>(values[next++]);
            });
        } catch (const ConversionError& error) {
            throw detail::inside(place(next), error);
        }
        return s;
    }

private:
    template <class F>
    static void forEachField(F function)
    {
        std::apply([&](const auto&... field) { (function(field), ...); }, Struct<S>::fields());
    }

    /// Names the field that was read last, or the structure when none was.
    static std::string place(std::size_t read)
    {
        if (read == 0)
            return Struct<S>::name;
        std::string text;
        forEachField([&](const auto& field) {
            if (--read == 0)
                text = "field '" + std::string(field.name) + "' of " + Struct<S>::name;
        });
        return text;
    }
};

}  // namespace vo
