#include "platform/vo/ServiceObject.h"

#include <algorithm>
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

    Connection connect(const Connect& connector, Receiver receiver, bool queued);
    void disconnectAll();

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
    struct Delivery final : detail::Link {
        Delivery(std::weak_ptr<Impl> impl, Receiver function)
            : owner(std::move(impl)), receiver(std::move(function))
        {
        }

        void run(const std::vector<Value>& values);
        bool disconnect() override;
        bool isConnected() const override { return !gate.isClosed(); }

        // Constant once others know of it.
        const std::weak_ptr<Impl> owner;
        const Receiver receiver;
        Connection source;  ///< to the signal, which keeps this
        // Synchronised by itself.
        CallbackGate gate;
    };

    static Receiver queued(Receiver deliver);
    void forget(const Delivery& delivery);

    mutable Mutex mutex_;
    std::vector<std::shared_ptr<Delivery>> deliveries_ VO_GUARDED_BY(mutex_);
};

Connection ServiceObject::Impl::connect(const Connect& connector, Receiver receiver, bool queue)
{
    const auto added = std::make_shared<Delivery>(weak_from_this(), std::move(receiver));
    const Receiver direct = [added](const std::vector<Value>& values) { added->run(values); };
    // Runs may begin at once, and use neither the list nor `source`. It is listed when it is
    // complete: who finds it there may disconnect it.
    added->source = connector(queue ? queued(direct) : direct);
    const Lock<Mutex> lock(mutex_);
    deliveries_.push_back(added);
    return Connection(added);
}

void ServiceObject::Impl::Delivery::run(const std::vector<Value>& values)
{
    const CallbackGate::Pass pass(gate);
    if (!pass)
        return;
    try {
        receiver(values);
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

bool ServiceObject::Impl::Delivery::disconnect()
{
    const bool first = gate.close();
    source.disconnect();
    if (const auto impl = first ? owner.lock() : nullptr)
        impl->forget(*this);
    return first;
}

void ServiceObject::Impl::disconnectAll()
{
    std::vector<std::shared_ptr<Delivery>> all;
    {
        const Lock<Mutex> lock(mutex_);
        all = deliveries_;
    }
    for (const std::shared_ptr<Delivery>& delivery : all)
        delivery->disconnect();
}

/// The caller keeps the delivery alive: what its receiver holds is not destroyed under the lock.
void ServiceObject::Impl::forget(const Delivery& delivery)
{
    const Lock<Mutex> lock(mutex_);
    const auto isIt = [&delivery](const auto& other) { return other.get() == &delivery; };
    deliveries_.erase(std::remove_if(deliveries_.begin(), deliveries_.end(), isIt),
                      deliveries_.end());
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

Connection ServiceObject::connect(const std::string& signal, Receiver receiver) const
{
    const Impl::Use use(impl_);
    const Connect& connector = impl_->find(impl_->signals, "signal", signal);
    return impl_->connect(connector, std::move(receiver), false);
}

Connection ServiceObject::connectQueued(const std::string& signal, Receiver receiver) const
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

Connection ServiceObject::followProperty(const std::string& name,
                                         std::function<void(const Value&)> receiver) const
{
    const Impl::Use use(impl_);
    const Connect& connector = impl_->find(impl_->properties, "property", name).connect;
    auto first = [receiver = std::move(receiver)](const std::vector<Value>& values) {
        receiver(values.front());
    };
    return impl_->connect(connector, std::move(first), false);
}

Connection ServiceObject::followQueued(const std::string& property, Receiver receiver) const
{
    Application::current();
    const Impl::Use use(impl_);
    const Connect& connector = impl_->find(impl_->properties, "property", property).connect;
    return impl_->connect(connector, std::move(receiver), true);
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
