#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/vo/Future.h"
#include "platform/vo/ServiceObject.h"

namespace vo {

/// A handle of a service object: what sessions hand out and callers use.
///
/// A cheap value; copies mean the same object. It keeps the object's face alive, but not the
/// service behind it: after the service has gone, every use raises std::runtime_error. Using a
/// null handle raises std::runtime_error with the text "This object is null". Thread-safe.
class AnyObject {
public:
    AnyObject() = default;
    explicit AnyObject(std::shared_ptr<ServiceObject> object) : object_(std::move(object)) {}

    explicit operator bool() const { return object_ != nullptr; }
    /// "" for a null handle.
    std::string name() const { return object_ ? object_->name() : std::string(); }

    /// Calls a method by name and waits for its result, which is converted to R. For the errors
    /// see ServiceObject::call; a result of the wrong type raises ConversionError.
    template <class R = void, class... Args>
    R call(const std::string& method, const Args&... args) const;

    /// The same on the event loop; errors, that of a null handle included, come in the future.
    template <class R = void, class... Args>
    Future<R> async(const std::string& method, const Args&... args) const;

    /// Connects to a signal; std::logic_error without an application. The receiver runs on the
    /// platform's signal queue, in the order of the emissions; what still stands there when it is
    /// disconnected is dropped. Arguments of the wrong type are logged and that delivery dropped.
    /// The receiver's parameters are taken from the receiver where it has one signature; a
    /// std::bind or an overloaded function needs them named: connect<int, std::string>(...).
    template <class... Args, class F>
    Connection connect(const std::string& signal, F receiver) const;

    template <class T>
    T property(const std::string& name) const;
    template <class T>
    void setProperty(const std::string& name, const T& value) const;
    /// Follows a property as connect() follows a signal.
    template <class T>
    Connection follow(const std::string& name, std::function<void(T)> receiver) const;

    const std::shared_ptr<ServiceObject>& object() const { return object_; }

private:
    ServiceObject& checked() const;
    template <class R>
    R callWith(const std::string& method, const std::vector<Value>& arguments) const;
    template <class R>
    R resultOf(const std::string& method, const Value& result) const;

    std::shared_ptr<ServiceObject> object_;
};

/// A handle travels as the object that it means, a null one too.
template <>
struct Convert<AnyObject> {
    static Value to(const AnyObject& v) { return Value(v.object()); }
    static AnyObject from(const Value& v);
};

}  // namespace vo

#include "platform/vo/AnyObject.hxx"
