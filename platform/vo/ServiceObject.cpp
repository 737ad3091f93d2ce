#include "platform/vo/ServiceObject.h"

#include <map>
#include <stdexcept>
#include <utility>

#include "platform/vo/Application.h"
#include "platform/vo/CallbackGate.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Executor.h"
#include "platform/vo/LogException.h"
#include "platform/vo/Mutex.h"

namespace vo {

namespace detail {

ConversionError at(const std::string& place, const ConversionError& error)
{
    return ConversionError(place + ": " + error.what());
}

void checkArgumentCount(std::size_t expected, std::size_t got)
{
    if (expected != got)
        throw ConversionError("expected " + std::to_string(expected) +
                              (expected == 1 ? " argument, got " : " arguments, got ") +
                              std::to_string(got));
}

}  // namespace detail

class ServiceObject::Impl : public std::enable_shared_from_this<ServiceObject::Impl> {
public:
    struct MethodEntry {
        MethodInfo info;
        Method function;
        AsyncMethod async;  ///< instead of the function
    };

    explicit Impl(std::string serviceName) : name(std::move(serviceName)) {}

    SignalLink connect(const Connect& connector, Receiver receiver, bool queued);
    /// See AnyObject::disconnect.
    bool disconnect(SignalLink link);
    void disconnectAll();

    /// A function that disconnects, and may outlive this.
    Disconnect undoOf(SignalLink link);

    /// What is said of an entry: "service 'X'<verb><kind> 'name'".
    std::string say(const char* verb, const char* kind, const std::string& entry) const
    {
        return "service '" + name + "'" + verb + kind + " '" + entry + "'";
    }

    template <class Entries>
    void add(Entries& entries, const char* kind, const std::string& entry,
             typename Entries::mapped_type content) const
    {
        if (!entries.emplace(entry, std::move(content)).second)
            throw std::invalid_argument(say(" already has a ", kind, entry));
    }

    template <class Entries>
    const typename Entries::mapped_type& find(const Entries& entries, const char* kind,
                                              const std::string& entry) const
    {
        const auto found = entries.find(entry);
        if (found == entries.end())
            throw std::runtime_error(say(" has no ", kind, entry));
        return found->second;
    }

    const MethodEntry& findMethod(const std::string& method,
                                  const std::vector<Value>& arguments) const
    {
        const MethodEntry& entry = find(methods, "method", method);
        try {
            detail::checkArgumentCount(entry.info.parameters, arguments.size());
        } catch (const ConversionError& error) {
            throw detail::at(say(", ", "method", method), error);
        }
        return entry;
    }

    /// Held by everything that uses what close() sets free; refuses a closed object. A method may
    /// drop the last handle of its own object, so it keeps this alive.
    class Use {
    public:
        explicit Use(std::shared_ptr<Impl> impl) : impl_(std::move(impl)), pass_(impl_->gate)
        {
            if (!pass_)
                throw std::runtime_error("service '" + impl_->name + "' is gone");
        }

    private:
        std::shared_ptr<Impl> impl_;
        CallbackGate::Pass pass_;
    };

    // Constant after construction.
    const std::string name;
    // Constant once the object is registered.
    std::map<std::string, MethodEntry> methods;
    std::map<std::string, Connect> signals;
    std::map<std::string, PropertyAccess> properties;
    // Synchronised by itself.
    CallbackGate gate;

private:
    /// One receiver. It ends with its own gate and not with the signal's, so that what stands on
    /// the signal queue ends with it too.
    struct Connection {
        CallbackGate gate;
        SignalLink link = kInvalidSignalLink;
        Receiver receiver;
        Disconnect undo;
    };
    using Connections = std::map<SignalLink, std::shared_ptr<Connection>>;

    Receiver deliver(std::shared_ptr<Connection> connection);
    static Receiver queued(Receiver deliver);
    static void run(Connection& connection, const std::vector<Value>& values);
    bool disconnect(Connection& connection);
    Connections connections() const;
    void forget(const Connection& connection);

    mutable Mutex mutex_;
    SignalLink lastLink_ VO_GUARDED_BY(mutex_) = kInvalidSignalLink;
    Connections connections_ VO_GUARDED_BY(mutex_);
};

SignalLink ServiceObject::Impl::connect(const Connect& connector, Receiver receiver, bool queue)
{
    auto added = std::make_shared<Connection>();
    added->receiver = std::move(receiver);
    {
        const Lock<Mutex> lock(mutex_);
        added->link = ++lastLink_;
    }
    const Receiver direct = deliver(added);
    // Deliveries may begin at once, and use neither the list nor `undo`. It is listed when it is
    // complete: who finds it there may undo it.
    added->undo = connector(queue ? queued(direct) : direct);
    const Lock<Mutex> lock(mutex_);
    connections_.emplace(added->link, added);
    return added->link;
}

ServiceObject::Receiver ServiceObject::Impl::deliver(std::shared_ptr<Connection> connection)
{
    return [weak = weak_from_this(),
            connection = std::move(connection)](const std::vector<Value>& values) {
        run(*connection, values);
        if (!connection->gate.hasEnded())
            return;
        if (const auto self = weak.lock())
            self->forget(*connection);
    };
}

void ServiceObject::Impl::run(Connection& connection, const std::vector<Value>& values)
{
    const CallbackGate::Pass pass(connection.gate);
    if (!pass)
        return;
    try {
        connection.receiver(values);
    } catch (...) {
        logCurrentException("ServiceObject", "receiver");
    }
}

/// Hands deliveries over to the signal queue. Without an application nobody is left to deliver to.
ServiceObject::Receiver ServiceObject::Impl::queued(Receiver deliver)
{
    return [deliver = std::move(deliver)](const std::vector<Value>& values) {
        if (Application* const application = Application::currentOrNull())
            application->signalExecutor().post([deliver, values] { deliver(values); });
    };
}

bool ServiceObject::Impl::disconnect(SignalLink link)
{
    std::shared_ptr<Connection> connection;
    {
        const Lock<Mutex> lock(mutex_);
        const auto found = connections_.find(link);
        if (found == connections_.end())
            return false;
        connection = found->second;
    }
    return disconnect(*connection);
}

bool ServiceObject::Impl::disconnect(Connection& connection)
{
    const bool first = connection.gate.close();
    connection.undo();
    // Listed until its run has ended, so that whoever else disconnects it meanwhile waits for it
    // too. One that disconnects itself is forgotten after its last run in progress.
    if (!connection.gate.isInside())
        forget(connection);
    return first;
}

void ServiceObject::Impl::disconnectAll()
{
    for (const auto& [link, connection] : connections())
        disconnect(*connection);
}

ServiceObject::Impl::Connections ServiceObject::Impl::connections() const
{
    const Lock<Mutex> lock(mutex_);
    return connections_;
}

ServiceObject::Disconnect ServiceObject::Impl::undoOf(SignalLink link)
{
    return [weak = weak_from_this(), link] {
        if (const auto self = weak.lock())
            self->disconnect(link);
    };
}

/// The caller keeps the connection alive: what its receiver holds is not destroyed under the lock.
void ServiceObject::Impl::forget(const Connection& connection)
{
    const Lock<Mutex> lock(mutex_);
    connections_.erase(connection.link);
}

namespace {

/// Whether what a future waits for can happen while this thread waits.
bool mayWait()
{
    Application* const application = Application::currentOrNull();
    return !application ||
           (application->clock()->hasThreads() && !application->eventLoop().isInEventLoopThread());
}

}  // namespace

ServiceObject::ServiceObject(std::string name) : impl_(std::make_shared<Impl>(std::move(name))) {}

ServiceObject::~ServiceObject()
{
    close();
}

const std::string& ServiceObject::name() const
{
    return impl_->name;
}

ServiceObject& ServiceObject::dynamicMethod(MethodInfo info, Method function)
{
    const std::string entry = info.name;
    impl_->add(impl_->methods, "method", entry, {std::move(info), std::move(function), {}});
    return *this;
}

ServiceObject& ServiceObject::dynamicMethod(MethodInfo info, AsyncMethod function)
{
    const std::string entry = info.name;
    impl_->add(impl_->methods, "method", entry, {std::move(info), {}, std::move(function)});
    return *this;
}

void ServiceObject::addSignal(const std::string& name, Connect connect)
{
    impl_->add(impl_->signals, "signal", name, std::move(connect));
}

void ServiceObject::addProperty(const std::string& name, PropertyAccess access)
{
    impl_->add(impl_->properties, "property", name, std::move(access));
}

std::string ServiceObject::place(const char* kind, const std::string& name) const
{
    return impl_->say(", ", kind, name);
}

std::vector<ServiceObject::MethodInfo> ServiceObject::methods() const
{
    std::vector<MethodInfo> infos;
    for (const auto& [name, entry] : impl_->methods)
        infos.push_back(entry.info);
    return infos;
}

Value ServiceObject::call(const std::string& method, const std::vector<Value>& arguments) const
{
    Future<Value> result;
    {
        const Impl::Use use(impl_);
        const Impl::MethodEntry& entry = impl_->findMethod(method, arguments);
        if (entry.function)
            return entry.function(arguments);
        result = entry.async(arguments);
    }
    if (result.isRunning() && !mayWait())
        throw std::logic_error(place("method", method) +
                               " takes its time, and cannot be waited for here");
    return result.value();
}

Future<Value> ServiceObject::start(const std::string& method,
                                   const std::vector<Value>& arguments) const
{
    Future<Value> result;
    const Promise<Value> ended;
    ended.endWith([&] {
        const Impl::Use use(impl_);
        const Impl::MethodEntry& entry = impl_->findMethod(method, arguments);
        if (entry.function)
            return entry.function(arguments);
        result = entry.async(arguments);
        return Value();
    });
    return result.isValid() ? result : ended.future();
}

ServiceObject::Disconnect ServiceObject::connect(const std::string& signal, Receiver receiver) const
{
    const Impl::Use use(impl_);
    const Connect& connector = impl_->find(impl_->signals, "signal", signal);
    return impl_->undoOf(impl_->connect(connector, std::move(receiver), false));
}

SignalLink ServiceObject::connectQueued(const std::string& signal, Receiver receiver) const
{
    Application::current();
    const Impl::Use use(impl_);
    const Connect& connector = impl_->find(impl_->signals, "signal", signal);
    return impl_->connect(connector, std::move(receiver), true);
}

Value ServiceObject::getProperty(const std::string& name) const
{
    const Impl::Use use(impl_);
    return impl_->find(impl_->properties, "property", name).get();
}

void ServiceObject::setProperty(const std::string& name, const Value& value) const
{
    const Impl::Use use(impl_);
    impl_->find(impl_->properties, "property", name).set(value);
}

ServiceObject::Disconnect ServiceObject::followProperty(
    const std::string& name, std::function<void(const Value&)> receiver) const
{
    const Impl::Use use(impl_);
    const Connect& connector = impl_->find(impl_->properties, "property", name).connect;
    auto first = [receiver = std::move(receiver)](const std::vector<Value>& values) {
        receiver(values.front());
    };
    return impl_->undoOf(impl_->connect(connector, std::move(first), false));
}

SignalLink ServiceObject::followQueued(const std::string& property, Receiver receiver) const
{
    Application::current();
    const Impl::Use use(impl_);
    const Connect& connector = impl_->find(impl_->properties, "property", property).connect;
    return impl_->connect(connector, std::move(receiver), true);
}

bool ServiceObject::disconnectQueued(SignalLink link) const
{
    return impl_->disconnect(link);
}

void ServiceObject::close()
{
    const auto impl = impl_;
    impl->gate.close();
    impl->disconnectAll();
}

bool ServiceObject::isClosed() const
{
    return impl_->gate.isClosed();
}

}  // namespace vo
