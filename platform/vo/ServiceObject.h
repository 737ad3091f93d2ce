#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/vo/Connection.h"
#include "platform/vo/Convert.h"
#include "platform/vo/Future.h"
#include "platform/vo/Property.h"
#include "platform/vo/Signal.h"

namespace vo {

/// The callable face of a service: methods, signals and properties by name, in terms of Value.
///
/// A service builds one, keeps itself alive as long as the object answers, and hands it to a
/// Session:
///
///     auto object = std::make_shared<ServiceObject>("KRBattery");
///     object->method("getBatteryCharge", [this] { return charge(); }, "Charge in percent")
///            .signal("onEmpty", onEmpty);
///     session.registerService(object);
///     ...
///     object->close();   // before what the functions use is destroyed
///
/// Methods, signals and properties are added before the object is registered; from then on it is
/// thread-safe. Functions run on the caller's thread, several at once if several callers come.
class ServiceObject {
public:
    using Method = std::function<Value(const std::vector<Value>&)>;
    /// A method that returns before it has ended.
    using AsyncMethod = std::function<Future<Value>(const std::vector<Value>&)>;
    /// Receives a signal's arguments.
    using Receiver = std::function<void(const std::vector<Value>&)>;
    using Connect = std::function<Connection(Receiver)>;

    struct MethodInfo {
        std::string name;
        std::string description;
        std::size_t parameters;
    };

    explicit ServiceObject(std::string name);
    ~ServiceObject();

    const std::string& name() const;

    /// Adds a method whose argument and result types convert (see Convert); one that takes its time
    /// may return a Future of a type that does. Adding a name twice raises std::invalid_argument;
    /// so it is for signals and properties.
    template <class F>
    ServiceObject& method(const std::string& name, F function, const std::string& description = {});
    /// Adds a method in terms of Value, for objects that are described at run time.
    ServiceObject& dynamicMethod(MethodInfo info, Method function);
    ServiceObject& dynamicMethod(MethodInfo info, AsyncMethod function);
    /// Adds a signal; it must live until close().
    template <class... Args>
    ServiceObject& signal(const std::string& name, Signal<Args...>& signal);
    /// Adds a property; it must live until close(). Readable, followable, and settable.
    template <class T>
    ServiceObject& property(const std::string& name, Property<T>& property);
    /// The same, but setting it by name raises std::runtime_error: it tells of something that
    /// others cannot change.
    template <class T>
    ServiceObject& readOnlyProperty(const std::string& name, Property<T>& property);

    /// In ascending order of name.
    std::vector<MethodInfo> methods() const;

    /// Calls a method. Errors: std::runtime_error when the object is closed ("service 'X' is
    /// gone"), has no such method ("service 'X' has no method 'm'") or the number of arguments is
    /// wrong; ConversionError, naming service, method and argument, for a wrong type; whatever the
    /// method throws. One that returns a future is waited for, except where that would never end,
    /// on the event loop or under a clock without threads: std::logic_error then, while the method
    /// goes on. Those use start().
    Value call(const std::string& method, const std::vector<Value>& arguments) const;
    /// Calls a method, and waits for nothing that it returns as a future. Any other method has
    /// ended when this returns. Errors, those of call(), come in the future.
    Future<Value> start(const std::string& method, const std::vector<Value>& arguments) const;
    /// Connects to a signal; the receiver runs on the emitting thread.
    Connection connect(const std::string& signal, Receiver receiver) const;
    Value getProperty(const std::string& name) const;
    void setProperty(const std::string& name, const Value& value) const;
    /// Follows a property as connect() follows a signal.
    Connection followProperty(const std::string& name,
                              std::function<void(const Value&)> receiver) const;

    /// Refuses new calls, drops every connection, and waits for the calls in progress (not for
    /// one that this is called from). Idempotent; the destructor calls it.
    void close();
    bool isClosed() const;

private:
    friend class AnyObject;

    struct PropertyAccess {
        std::function<Value()> get;
        std::function<void(const Value&)> set;
        Connect connect;
    };
    class Impl;

    template <class R, class... Args>
    void addMethod(MethodInfo info, std::function<R(Args...)> function);
    void addSignal(const std::string& name, Connect connect);
    void addProperty(const std::string& name, PropertyAccess access);
    std::string place(const char* kind, const std::string& name) const;

    // For handles: the receiver runs on the signal queue of the current application.
    Connection connectQueued(const std::string& signal, Receiver receiver) const;
    Connection followQueued(const std::string& property, Receiver receiver) const;

    // Constant after construction. Shared with the calls in progress.
    std::shared_ptr<Impl> impl_;
};

}  // namespace vo

#include "platform/vo/ServiceObject.hxx"
