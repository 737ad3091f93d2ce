#include <algorithm>
#include <utility>

#include "platform/kr/KRError.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/KRMemoryImpl.h"
#include "platform/vo/ServiceObject.h"
#include "platform/vo/Session.h"

namespace KR {

namespace {

bool hasMethod(const vo::ServiceObject& object, const std::string& name)
{
    const auto methods = object.methods();
    return std::any_of(methods.begin(), methods.end(),
                       [&](const auto& method) { return method.name == name; });
}

[[noreturn]] void failToSubscribe(const std::string& description)
{
    throw KRError("KRMemory", "subscribeToMicroEvent", description);
}

}  // namespace

// The methods capture the memory, which is still being made; nobody can call them before the
// object is registered.
KRMemory::Impl::Impl(KRMemory& memory, vo::Application& application)
    : owner(memory),
      session(application.session()),
      clock(application.clock()),
      start(clock->roughUptime()),
      service(std::make_shared<vo::ServiceObject>("KRMemory")),
      keySignals(memory, *clock)
{
    using Text = const std::string&;
    KRMemory* m = &memory;
    service->method(
        "getData", [m](Text key) { return m->getData(key); }, "The value of a key.");
    service->method(
        "getListData", [m](const std::vector<std::string>& keys) { return m->getListData(keys); },
        "The values of several keys, as of one moment.");
    service->method(
        "getDataList", [m](Text prefix) { return m->getDataList(prefix); },
        "The written keys that begin with a prefix.");
    service->method(
        "getEventHistory", [m](Text key) { return m->getEventHistory(key); },
        "The last values of a key, each with the second it was raised in.");
    service->method(
        "declareEvent", [m](Text key, Text declarer) { m->declareEvent(key, declarer); },
        "Says that a module will raise a key.");
    service->method(
        "raiseEvent", [m](Text key, const KRValue& value) { m->raiseEvent(key, value); },
        "Writes a value and delivers it.");
    service->method(
        "subscribeToMicroEvent",
        [m](Text key, Text module, Text message, Text method) {
            m->subscribeToMicroEvent(key, module, message, method);
        },
        "Has a module's method called for every write of a key.");
    service->method(
        "unsubscribeToMicroEvent",
        [m](Text key, Text module) { m->unsubscribeToMicroEvent(key, module); },
        "Ends a module's subscription to a key.");
    service->method(
        "subscriber",
        [this](Text key) {
            checkKey("subscriber", key);
            return keySignals.subscriber(key);
        },
        "An object whose signal \"signal\" carries each new value of a key.");
}

std::shared_ptr<vo::ServiceObject> KRMemory::serviceObject()
{
    return impl_->service;
}

ModuleSubscriber& KRMemory::Impl::subscriberOf(const std::shared_ptr<vo::ServiceObject>& module,
                                               std::unique_ptr<ModuleSubscriber>& replaced)
{
    std::unique_ptr<ModuleSubscriber>& subscriber = subscribers[module->name()];
    if (!subscriber || subscriber->module() != module) {
        replaced = std::move(subscriber);
        subscriber = std::make_unique<ModuleSubscriber>(owner, module, *clock);
    }
    return *subscriber;
}

void KRMemory::subscribeToMicroEvent(const std::string& key, const std::string& module,
                                     const std::string& message, const std::string& method)
{
    checkKey("subscribeToMicroEvent", key);
    const auto object = impl_->session.findService(module).object();
    if (!object)
        failToSubscribe("no module named '" + module + "'");
    if (!hasMethod(*object, method))
        failToSubscribe("module '" + module + "' has no method '" + method + "'");

    // Dropped after the lock is released: that waits for its call in progress.
    std::unique_ptr<ModuleSubscriber> replaced;
    {
        const vo::Lock lock(impl_->subscribersMutex);
        ModuleSubscriber& subscriber = impl_->subscriberOf(object, replaced);
        if (const auto tag = subscriber.add(key, message, method))
            watch(subscriber.feed(), {{key, *tag}});
    }
    // A module that exited meanwhile may have ended its subscriptions before this one was there.
    if (object->isClosed()) {
        endSubscriptions(*object);
        failToSubscribe("no module named '" + module + "'");
    }
}

void KRMemory::unsubscribeToMicroEvent(const std::string& key, const std::string& module)
{
    const vo::Lock lock(impl_->subscribersMutex);
    const auto place = impl_->subscribers.find(module);
    const auto tag = place == impl_->subscribers.end() ? std::nullopt : place->second->remove(key);
    if (!tag)
        throw KRError("KRMemory", "unsubscribeToMicroEvent",
                      "module '" + module + "' is not subscribed to key '" + key + "'");
    unwatch(place->second->feed(), key, *tag);
}

vo::Future<void> KRMemory::delivered()
{
    const vo::Promise<void> promise;
    // Held by each subscriber's task until that has run or was dropped; the last one tells.
    const std::shared_ptr<void> waiting(nullptr, [promise](void*) { promise.setValue(); });
    const vo::Lock lock(impl_->subscribersMutex);
    for (const auto& entry : impl_->subscribers)
        entry.second->afterDelivery([waiting] {});
    return promise.future();
}

void KRMemory::endSubscriptions(const vo::ServiceObject& module)
{
    std::unique_ptr<ModuleSubscriber> ended;  // dropped after the lock, as above
    const vo::Lock lock(impl_->subscribersMutex);
    const auto place = impl_->subscribers.find(module.name());
    if (place == impl_->subscribers.end() || place->second->module().get() != &module)
        return;
    ended = std::move(place->second);
    impl_->subscribers.erase(place);
}

}  // namespace KR
