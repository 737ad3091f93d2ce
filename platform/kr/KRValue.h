#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/vo/Convert.h"

namespace KR {

/// The platform's variant value: everything that is read from or written to shared memory.
///
/// A plain value of 16 bytes. Copies are cheap and allocate nothing: short texts are held in place;
/// long ones, arrays and binaries are immutable and shared between copies. Ints hold 64 bits;
/// floats are held in double precision, so a value written as double compares equal to the same
/// literal in a condition.
///
/// Copies may be used on different threads; one and the same value only like any plain one.
///
/// Comparing, printing, converting and destroying an array go as deep as it is nested. Whoever
/// builds one from outside data bounds the depth.
class KRValue {
public:
    using Array = std::vector<KRValue>;
    using Binary = std::vector<std::uint8_t>;

    enum class Type : std::uint8_t { invalid, boolean, integer, real, string, array, binary };

    /// The invalid (empty) value.
    KRValue() noexcept = default;
    KRValue(bool v) noexcept : data_(Type::boolean, std::int64_t{v}) {}
    KRValue(int v) noexcept : data_(Type::integer, std::int64_t{v}) {}
    KRValue(unsigned v) noexcept : data_(Type::integer, std::int64_t{v}) {}
    KRValue(std::int64_t v) noexcept : data_(Type::integer, v) {}
    KRValue(float v) noexcept : data_(Type::real, double{v}) {}
    KRValue(double v) noexcept : data_(Type::real, v) {}
    KRValue(const char* v);
    KRValue(const std::string& v);
    KRValue(std::string&& v);
    KRValue(Array v);
    KRValue(Binary v);

    KRValue(const KRValue& other) noexcept : data_(other.data_)
    {
        if (data_.isShared())
            addOwner();
    }
    KRValue(KRValue&& other) noexcept : data_(std::exchange(other.data_, Data())) {}
    KRValue& operator=(const KRValue& other) noexcept
    {
        if (data_.isShared() || other.data_.isShared())
            return *this = KRValue(other);
        data_ = other.data_;
        return *this;
    }
    KRValue& operator=(KRValue&& other) noexcept
    {
        std::swap(data_, other.data_);
        return *this;
    }
    ~KRValue()
    {
        if (data_.isShared())
            removeOwner();
    }

    Type getType() const { return data_.type; }
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
    std::int64_t toInt() const
    {
        return isInt() || isBool() ? data_.get<std::int64_t>() : asInt("toInt");
    }
    /// toInt() within 32 bits; KRError beyond them.
    std::int32_t toInt32() const;
    double toFloat() const;
    std::string toString() const;
    /// The same without a copy; valid for as long as this value is there and is not assigned to.
    std::string_view toText() const
    {
        return data_.isShortText() ? std::string_view(data_.bytes, data_.length) : longText();
    }
    const Array& toArray() const;
    const Binary& toBinary() const;

    /// Element count of an array; KRError for anything else.
    std::size_t getSize() const;
    /// Element of an array; KRError for anything else or an index past the end.
    const KRValue& operator[](std::size_t index) const;

    /// Truth value: false for an invalid value, false, 0, 0.0, NaN, and an empty text, array or
    /// binary; true for everything else. Never raises.
    bool isTrue() const
    {
        const Type type = getType();
        if (type == Type::boolean || type == Type::integer)
            return data_.get<std::int64_t>() != 0;
        return data_.isShortText() ? data_.length != 0 : isTrueOtherwise();
    }

    /// Equal type and equal content; so int 1 and float 1.0 differ, and NaN differs from itself.
    friend bool operator==(const KRValue& a, const KRValue& b)
    {
        return a.data_.isPlain() && b.data_.isPlain()
                   ? std::memcmp(&a.data_, &b.data_, sizeof a.data_) == 0
                   : isEqual(a, b);
    }
    friend bool operator!=(const KRValue& a, const KRValue& b) { return !(a == b); }

    /// For people: JSON notation, a binary as "<N bytes>", the invalid value as "none". A float
    /// always has a point or an exponent, so that it is not taken for an int.
    std::string toDisplayString() const;

    /// "none", "bool", "int", "float", "string", "array", "binary".
    static const char* typeName(Type type);

private:
    /// Long content and the number of its owners.
    template <class T>
    struct Shared;

    /// What a value consists of. Unused bytes are zero.
    struct Data {
        static constexpr std::size_t kMaxShortText = 14;
        static constexpr std::uint8_t kShared = 0xff;

        Data() = default;
        template <class T>
        Data(Type t, const T& content, std::uint8_t l = 0) : length(l), type(t)
        {
            static_assert(sizeof content <= sizeof bytes);  // NOLINT(bugprone-sizeof-expression)
            std::memcpy(bytes, &content, sizeof content);   // NOLINT(bugprone-sizeof-expression)
        }
        explicit Data(std::string_view text)
            : length(static_cast<std::uint8_t>(text.size())), type(Type::string)
        {
            std::memcpy(bytes, text.data(), text.size());
        }

        /// The number or the pointer that is held.
        template <class T>
        T get() const
        {
            T content;
            std::memcpy(&content, bytes, sizeof content);  // NOLINT(bugprone-sizeof-expression)
            return content;
        }
        bool isShared() const { return length == kShared; }
        /// Values of which two are equal when their bytes are.
        bool isPlain() const { return length != kShared && type != Type::real; }
        bool isShortText() const { return type == Type::string && length != kShared; }

        alignas(8) char bytes[kMaxShortText] = {};
        std::uint8_t length = 0;  ///< of a short text; kShared for a pointer to long content
        Type type = Type::invalid;
    };

    template <class T>
    static Data share(Type type, T&& content);
    template <class T>
    void release() const;
    template <class T>
    const T& shared() const;
    void addOwner() const;
    void removeOwner() const;
    std::string_view longText() const;
    bool isTrueOtherwise() const;
    static bool isEqual(const KRValue& a, const KRValue& b);
    std::int64_t asInt(const char* method) const;

    Data data_;
};

std::ostream& operator<<(std::ostream& out, const KRValue& value);

}  // namespace KR

/// The invalid value travels as nothing; a map, structure or object is no KRValue.
template <>
struct vo::Convert<KR::KRValue> {
    static Value to(const KR::KRValue& v);
    static KR::KRValue from(const Value& v);
};
