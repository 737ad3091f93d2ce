#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace vo {

/// What travels between services: the form that every argument and result takes, so that an object
/// can be called without knowing its C++ types, in this process or, one day, over a network.
///
/// A plain value, copied freely. A structure travels as a Tuple of its fields in registered order.
class Value {
public:
    using Bytes = std::vector<std::uint8_t>;
    using List = std::vector<Value>;
    using Map = std::map<std::string, Value>;
    struct Tuple {
        std::vector<Value> fields;
        friend bool operator==(const Tuple& a, const Tuple& b) { return a.fields == b.fields; }
    };

    enum class Kind { none, boolean, integer, real, text, bytes, list, map, tuple, object };

    Value() = default;
    explicit Value(bool v) : data_(v) {}
    explicit Value(std::int64_t v) : data_(v) {}
    explicit Value(double v) : data_(v) {}
    explicit Value(std::string v) : data_(std::move(v)) {}
    /// Text: without this, a pointer would count as a bool.
    explicit Value(const char* v) : data_(std::string(v)) {}
    explicit Value(Bytes v) : data_(std::move(v)) {}
    explicit Value(List v) : data_(std::move(v)) {}
    explicit Value(Map v) : data_(std::move(v)) {}
    explicit Value(Tuple v) : data_(std::move(v)) {}
    /// A handle of another object (see AnyObject); null is allowed.
    explicit Value(std::shared_ptr<class ServiceObject> v) : data_(std::move(v)) {}

    Kind kind() const { return static_cast<Kind>(data_.index()); }
    /// "nothing", "bool", "int", "float", "text", "bytes", "list", "map", "structure", "object".
    static const char* kindName(Kind kind);

    /// The content, or null when the value is of another kind.
    template <class T>
    const T* get() const
    {
        return std::get_if<T>(&data_);
    }

    friend bool operator==(const Value& a, const Value& b) { return a.data_ == b.data_; }
    friend bool operator!=(const Value& a, const Value& b) { return !(a == b); }

private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, Bytes, List, Map, Tuple,
                 std::shared_ptr<class ServiceObject>>
        data_;
};

}  // namespace vo
