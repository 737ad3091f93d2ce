#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/vo/Convert.h"

namespace KR {

/// The platform's variant value: everything that is read from or written to shared memory.
///
/// A plain value. Copies are cheap: arrays and binaries are immutable and shared between copies.
/// Ints hold 64 bits; floats are held in double precision, so a value written as double compares
/// equal to the same literal in a condition.
///
/// Comparing, printing, converting and destroying an array go as deep as it is nested. Whoever
/// builds one from outside data bounds the depth.
class KRValue {
public:
    using Array = std::vector<KRValue>;
    using Binary = std::vector<std::uint8_t>;

    enum class Type { invalid, boolean, integer, real, string, array, binary };

    /// The invalid (empty) value.
    KRValue() = default;
    KRValue(bool v) : data_(v) {}
    KRValue(int v) : data_(std::int64_t{v}) {}
    KRValue(unsigned v) : data_(std::int64_t{v}) {}
    KRValue(std::int64_t v) : data_(v) {}
    KRValue(float v) : data_(double{v}) {}
    KRValue(double v) : data_(v) {}
    KRValue(const char* v) : data_(std::string(v)) {}
    KRValue(std::string v) : data_(std::move(v)) {}
    KRValue(Array v) : data_(std::make_shared<const Array>(std::move(v))) {}
    KRValue(Binary v) : data_(std::make_shared<const Binary>(std::move(v))) {}

    Type getType() const { return static_cast<Type>(data_.index()); }
    bool isValid() const { return getType() != Type::invalid; }
    bool isBool() const { return getType() == Type::boolean; }
    bool isInt() const { return getType() == Type::integer; }
    bool isFloat() const { return getType() == Type::real; }
    bool isString() const { return getType() == Type::string; }
    bool isArray() const { return getType() == Type::array; }
    bool isBinary() const { return getType() == Type::binary; }
    /// Int or float.
    bool isNumber() const { return isInt() || isFloat(); }

    /// The content as asked for. Each raises KRError (module "KRValue", method the function's
    /// name) with "expected <type>, got <type>" when there is no exact meaning: toBool takes a
    /// bool or an int; toInt takes an int, a bool, or a float with a whole value in range; toFloat
    /// takes any number or bool; the others take their own type only.
    bool toBool() const;
    std::int64_t toInt() const;
    /// toInt() within 32 bits; KRError beyond them.
    std::int32_t toInt32() const;
    double toFloat() const;
    const std::string& toString() const;
    const Array& toArray() const;
    const Binary& toBinary() const;

    /// Element count of an array; KRError for anything else.
    std::size_t getSize() const;
    /// Element of an array; KRError for anything else or an index past the end.
    const KRValue& operator[](std::size_t index) const;

    /// Truth value: false for an invalid value, false, 0, 0.0, NaN, and an empty text, array or
    /// binary; true for everything else. Never raises.
    bool isTrue() const;

    /// Equal type and equal content; so int 1 and float 1.0 differ, and NaN differs from itself.
    friend bool operator==(const KRValue& a, const KRValue& b);
    friend bool operator!=(const KRValue& a, const KRValue& b) { return !(a == b); }

    /// For people: JSON notation, a binary as "<N bytes>", the invalid value as "none". A float
    /// always has a point or an exponent, so that it is not taken for an int.
    std::string toDisplayString() const;

    /// "none", "bool", "int", "float", "string", "array", "binary".
    static const char* typeName(Type type);

private:
    std::int64_t asInt(const char* method) const;

    std::variant<std::monostate, bool, std::int64_t, double, std::string,
                 std::shared_ptr<const Array>, std::shared_ptr<const Binary>>
        data_;
};

std::ostream& operator<<(std::ostream& out, const KRValue& value);

}  // namespace KR

/// The invalid value travels as nothing; a map, structure or object is no KRValue.
template <>
struct vo::Convert<KR::KRValue> {
    static Value to(const KR::KRValue& v);
    static KR::KRValue from(const Value& v);
};
