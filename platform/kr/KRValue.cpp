#include "platform/kr/KRValue.h"

#include <atomic>
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

// Values with long content point to one of these. The number of owners comes first in all, so that
// it is found without knowing of what they are.
template <class T>
struct KRValue::Shared {
    explicit Shared(T v) : content(std::move(v)) {}
    std::atomic<std::size_t> owners{1};
    const T content;
};

template <class T>
KRValue::Data KRValue::share(Type type, T&& content)
{
    return {type, new Shared<std::decay_t<T>>(std::forward<T>(content)), Data::kShared};
}

KRValue::KRValue(const char* v)
{
    const std::string_view text(v);
    data_ =
        text.size() <= Data::kMaxShortText ? Data(text) : share(Type::string, std::string(text));
}

KRValue::KRValue(const std::string& v)
    : data_(v.size() <= Data::kMaxShortText ? Data(v) : share(Type::string, std::string(v)))
{
}

KRValue::KRValue(std::string&& v)
    : data_(v.size() <= Data::kMaxShortText ? Data(v) : share(Type::string, std::move(v)))
{
}

KRValue::KRValue(Array v) : data_(share(Type::array, std::move(v))) {}

KRValue::KRValue(Binary v) : data_(share(Type::binary, std::move(v))) {}

template <class T>
const T& KRValue::shared() const
{
    return data_.get<const Shared<T>*>()->content;
}

void KRValue::addOwner() const
{
    static_assert(offsetof(Shared<std::string>, owners) == 0);
    data_.get<std::atomic<std::size_t>*>()->fetch_add(1, std::memory_order_relaxed);
}

template <class T>
void KRValue::release() const
{
    auto* const mine = data_.get<Shared<T>*>();
    if (mine->owners.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete mine;
}

void KRValue::removeOwner() const
{
    if (isString())
        release<std::string>();
    else if (isArray())
        release<Array>();
    else
        release<Binary>();
}

bool KRValue::toBool() const
{
    if (isBool() || isInt())
        return data_.get<std::int64_t>() != 0;
    mismatch("toBool", Type::boolean, *this);
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
    if (isInt() || isBool())
        return data_.get<std::int64_t>();
    if (isFloat() && isWholeInt64(data_.get<double>()))
        return static_cast<std::int64_t>(data_.get<double>());
    mismatch(method, Type::integer, *this);
}

double KRValue::toFloat() const
{
    if (isFloat())
        return data_.get<double>();
    if (isInt() || isBool())
        return static_cast<double>(data_.get<std::int64_t>());
    mismatch("toFloat", Type::real, *this);
}

std::string KRValue::toString() const
{
    if (!isString())
        mismatch("toString", Type::string, *this);
    return std::string(toText());
}

std::string_view KRValue::longText() const
{
    if (!isString())
        mismatch("toText", Type::string, *this);
    return shared<std::string>();
}

const KRValue::Array& KRValue::toArray() const
{
    if (!isArray())
        mismatch("toArray", Type::array, *this);
    return shared<Array>();
}

const KRValue::Binary& KRValue::toBinary() const
{
    if (!isBinary())
        mismatch("toBinary", Type::binary, *this);
    return shared<Binary>();
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

/// Of a float, and of what is held elsewhere.
bool KRValue::isTrueOtherwise() const
{
    switch (getType()) {
        case Type::real: {
            const auto v = data_.get<double>();
            return v != 0.0 && !std::isnan(v);
        }
        case Type::string:
            return !toText().empty();
        case Type::array:
            return !toArray().empty();
        case Type::binary:
            return !toBinary().empty();
        default:
            return false;
    }
}

bool KRValue::isEqual(const KRValue& a, const KRValue& b)
{
    if (a.getType() != b.getType())
        return false;
    switch (a.getType()) {
        case KRValue::Type::real:
            return a.toFloat() == b.toFloat();
        case KRValue::Type::string:
            return a.toText() == b.toText();
        case KRValue::Type::array:
            return a.toArray() == b.toArray();
        case KRValue::Type::binary:
            return a.toBinary() == b.toBinary();
        default:
            return a.data_.get<std::int64_t>() == b.data_.get<std::int64_t>();
    }
}

std::string KRValue::toDisplayString() const
{
    switch (getType()) {
        case Type::invalid:
            return "none";
        case Type::boolean:
            return toBool() ? "true" : "false";
        case Type::integer:
            return std::to_string(toInt());
        case Type::real:
            return displayFloat(toFloat());
        case Type::string:
            return displayString(toString());
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
