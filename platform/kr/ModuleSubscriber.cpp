#include "platform/kr/ModuleSubscriber.h"

#include <map>
#include <utility>

#include "platform/vo/Log.h"
#include "platform/vo/Mutex.h"

namespace KR {

namespace {

const vo::Logger moduleSubscriberLog("KRMemory");

struct Subscription {
    std::string key;
    std::string message;
    std::string method;
};

}  // namespace

struct ModuleSubscriber::Table {
    explicit Table(std::shared_ptr<vo::ServiceObject> object) : module(std::move(object)) {}

    void deliver(const MemoryChange& change);
    std::shared_ptr<const Subscription> find(std::uint32_t tag);

    // Constant after construction.
    const std::shared_ptr<vo::ServiceObject> module;

    vo::Mutex mutex;
    std::map<std::string, std::uint32_t> tags VO_GUARDED_BY(mutex);
    std::map<std::uint32_t, std::shared_ptr<const Subscription>> subscriptions VO_GUARDED_BY(mutex);
    std::uint32_t lastTag VO_GUARDED_BY(mutex) = 0;
};

ModuleSubscriber::ModuleSubscriber(KRMemory& memory, std::shared_ptr<vo::ServiceObject> module,
                                   vo::Clock& clock)
    : table_(std::make_shared<Table>(std::move(module))),
      pump_(memory, clock, "KRMemory to " + table_->module->name(),
            [table = table_](const MemoryChange& change) { table->deliver(change); })
{
}

const std::shared_ptr<vo::ServiceObject>& ModuleSubscriber::module() const
{
    return table_->module;
}

std::optional<std::uint32_t> ModuleSubscriber::add(const std::string& key,
                                                   const std::string& message,
                                                   const std::string& method)
{
    auto subscription = std::make_shared<const Subscription>(Subscription{key, message, method});
    const vo::Lock lock(table_->mutex);
    const auto [place, isNew] = table_->tags.try_emplace(key, table_->lastTag + 1);
    table_->subscriptions[place->second] = std::move(subscription);
    if (!isNew)
        return std::nullopt;
    return ++table_->lastTag;
}

std::optional<std::uint32_t> ModuleSubscriber::remove(const std::string& key)
{
    const vo::Lock lock(table_->mutex);
    const auto place = table_->tags.find(key);
    if (place == table_->tags.end())
        return std::nullopt;
    const std::uint32_t tag = place->second;
    table_->tags.erase(place);
    table_->subscriptions.erase(tag);
    return tag;
}

std::shared_ptr<const Subscription> ModuleSubscriber::Table::find(std::uint32_t tag)
{
    const vo::Lock lock(mutex);
    const auto place = subscriptions.find(tag);
    return place == subscriptions.end() ? nullptr : place->second;
}

void ModuleSubscriber::Table::deliver(const MemoryChange& change)
{
    const auto to = find(change.tag);
    if (!to || module->isClosed())
        return;
    std::string error;
    try {
        module->call(to->method,
                     {vo::toValue(to->key), vo::toValue(change.value), vo::toValue(to->message)});
        return;
    } catch (const std::exception& e) {
        error = e.what();
    } catch (...) {
        error = "unknown error";
    }
    // A module that was closed meanwhile refuses the call, which is no fault of its own.
    if (!module->isClosed())
        moduleSubscriberLog.error("deliver", module->name() + "::" + to->method +
                                                 " failed for key '" + to->key + "': " + error);
}

}  // namespace KR
