#include "platform/kr/KRValue.h"

#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>
#include <ostream>

#include "platform/kr/KRError.h"

namespace KR {
namespace {

[[noreturn]] void fail(const char* method, const std::string& description)
{
    throw KRError("KRValue", method, description);
}

[[noreturn]] void mismatch(const char* method, KRValue::Type expected, const KRValue& value)
{
    fail(method, std::string("expected ") + KRValue::typeName(expected) + ", got " +
                     KRValue::typeName(value.getType()));
}

/// Whether the float is whole and within 64 bits. The upper bound is 2^63 itself, which is exact as
/// a double where the greatest int is not; NaN and infinities fall out of the comparisons.
bool isWholeInt64(double v)
{
    constexpr double kLimit = 9223372036854775808.0;
    return v >= -kLimit && v < kLimit && std::trunc(v) == v;
}

std::string displayFloat(double v)
{
    if (std::isnan(v))
        return "nan";
    if (std::isinf(v))
        return v < 0 ? "-inf" : "inf";
    return nlohmann::json(v).dump();
}

std::string displayString(const std::string& v)
{
    return nlohmann::json(v).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string displayArray(const KRValue::Array& elements)
{
    std::string text = "[";
    for (const KRValue& element : elements) {
        if (text.size() > 1)
            text += ", ";
        text += element.toDisplayString();
    }
    return text + "]";
}

}  // namespace

bool KRValue::toBool() const
{
    if (const auto* v = std::get_if<bool>(&data_))
        return *v;
    if (const auto* v = std::get_if<std::int64_t>(&data_))
        return *v != 0;
    mismatch("toBool", Type::boolean, *this);
}

std::int64_t KRValue::toInt() const
{
    return asInt("toInt");
}

std::int32_t KRValue::toInt32() const
{
    const std::int64_t v = asInt("toInt32");
    if (v < std::numeric_limits<std::int32_t>::min() ||
        v > std::numeric_limits<std::int32_t>::max())
        fail("toInt32", std::to_string(v) + " does not fit in 32 bits");
    return static_cast<std::int32_t>(v);
}

std::int64_t KRValue::asInt(const char* method) const
{
    if (const auto* v = std::get_if<std::int64_t>(&data_))
        return *v;
    if (const auto* v = std::get_if<bool>(&data_))
        return *v ? 1 : 0;
    if (const auto* v = std::get_if<double>(&data_); v && isWholeInt64(*v))
        return static_cast<std::int64_t>(*v);
    mismatch(method, Type::integer, *this);
}

double KRValue::toFloat() const
{
    if (const auto* v = std::get_if<double>(&data_))
        return *v;
    if (const auto* v = std::get_if<std::int64_t>(&data_))
        return static_cast<double>(*v);
    if (const auto* v = std::get_if<bool>(&data_))
        return *v ? 1.0 : 0.0;
    mismatch("toFloat", Type::real, *this);
}

const std::string& KRValue::toString() const
{
    if (const auto* v = std::get_if<std::string>(&data_))
        return *v;
    mismatch("toString", Type::string, *this);
}

const KRValue::Array& KRValue::toArray() const
{
    if (const auto* v = std::get_if<std::shared_ptr<const Array>>(&data_))
        return **v;
    mismatch("toArray", Type::array, *this);
}

const KRValue::Binary& KRValue::toBinary() const
{
    if (const auto* v = std::get_if<std::shared_ptr<const Binary>>(&data_))
        return **v;
    mismatch("toBinary", Type::binary, *this);
}

std::size_t KRValue::getSize() const
{
    if (!isArray())
        mismatch("getSize", Type::array, *this);
    return toArray().size();
}

const KRValue& KRValue::operator[](std::size_t index) const
{
    if (!isArray())
        mismatch("operator[]", Type::array, *this);
    const Array& elements = toArray();
    if (index >= elements.size())
        fail("operator[]", "index " + std::to_string(index) + " is past the end of " +
                               std::to_string(elements.size()) + " elements");
    return elements[index];
}

bool KRValue::isTrue() const
{
    switch (getType()) {
        case Type::invalid:
            return false;
        case Type::boolean:
            return std::get<bool>(data_);
        case Type::integer:
            return std::get<std::int64_t>(data_) != 0;
        case Type::real: {
            const double v = std::get<double>(data_);
            return v != 0.0 && !std::isnan(v);
        }
        case Type::string:
            return !std::get<std::string>(data_).empty();
        case Type::array:
            return !toArray().empty();
        case Type::binary:
            return !toBinary().empty();
    }
    return false;
}

bool operator==(const KRValue& a, const KRValue& b)
{
    if (a.isArray() && b.isArray())
        return a.toArray() == b.toArray();
    if (a.isBinary() && b.isBinary())
        return a.toBinary() == b.toBinary();
    return a.data_ == b.data_;
}

std::string KRValue::toDisplayString() const
{
    switch (getType()) {
        case Type::invalid:
            return "none";
        case Type::boolean:
            return std::get<bool>(data_) ? "true" : "false";
        case Type::integer:
            return std::to_string(std::get<std::int64_t>(data_));
        case Type::real:
            return displayFloat(std::get<double>(data_));
        case Type::string:
            return displayString(std::get<std::string>(data_));
        case Type::array:
            return displayArray(toArray());
        case Type::binary:
            return "<" + std::to_string(toBinary().size()) + " bytes>";
    }
    return {};
}

const char* KRValue::typeName(Type type)
{
    static constexpr const char* kNames[] = {"none",   "bool",  "int",   "float",
                                             "string", "array", "binary"};
    return kNames[static_cast<std::size_t>(type)];
}

std::ostream& operator<<(std::ostream& out, const KRValue& value)
{
    return out << value.toDisplayString();
}

}  // namespace KR

vo::Value vo::Convert<KR::KRValue>::to(const KR::KRValue& v)
{
    using Type = KR::KRValue::Type;
    switch (v.getType()) {
        case Type::invalid:
            return Value();
        case Type::boolean:
            return Value(v.toBool());
        case Type::integer:
            return Value(v.toInt());
        case Type::real:
            return Value(v.toFloat());
        case Type::string:
            return Value(v.toString());
        case Type::array: {
            Value::List list;
            list.reserve(v.getSize());
            for (const KR::KRValue& element : v.toArray())
                list.push_back(to(element));
            return Value(std::move(list));
        }
        case Type::binary:
            return Value(v.toBinary());
    }
    return Value();
}

KR::KRValue vo::Convert<KR::KRValue>::from(const Value& v)
{
    switch (v.kind()) {
        case Value::Kind::none:
            return {};
        case Value::Kind::boolean:
            return *v.get<bool>();
        case Value::Kind::integer:
            return *v.get<std::int64_t>();
        case Value::Kind::real:
            return *v.get<double>();
        case Value::Kind::text:
            return *v.get<std::string>();
        case Value::Kind::bytes:
            return *v.get<Value::Bytes>();
        case Value::Kind::list: {
            KR::KRValue::Array elements;
            elements.reserve(v.get<Value::List>()->size());
            for (const Value& element : *v.get<Value::List>())
                elements.push_back(from(element));
            return elements;
        }
        default:
            throw ConversionError(std::string("expected a memory value, got ") +
                                  Value::kindName(v.kind()));
    }
}
