#include "platform/vo/Session.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <utility>

#include "platform/vo/Application.h"
#include "platform/vo/Mutex.h"

namespace vo {

namespace {

struct Waiter {
    std::uint64_t id;
    std::string service;
    Promise<AnyObject> promise;
};

}  // namespace

class Session::Impl {
public:
    void add(std::shared_ptr<ServiceObject> object);
    AnyObject find(const std::string& name) const;
    /// Takes a service out of the register; null when there is none of that name.
    std::shared_ptr<ServiceObject> take(const std::string& name);
    std::vector<std::string> names() const;

    /// The waiter's id, or 0 when the promise was ended at once: the service is there, or the
    /// session closed.
    std::uint64_t wait(const std::string& name, const Promise<AnyObject>& promise);
    /// True when the waiter was still waiting.
    bool dropWaiter(std::uint64_t id);
    /// Refuses new services and waits, and hands over those that wait.
    std::vector<Waiter> close();

private:
    mutable Mutex mutex_;
    std::map<std::string, std::shared_ptr<ServiceObject>> services_ VO_GUARDED_BY(mutex_);
    std::vector<Waiter> waiters_ VO_GUARDED_BY(mutex_);
    std::uint64_t lastWaiter_ VO_GUARDED_BY(mutex_) = 0;
    bool closed_ VO_GUARDED_BY(mutex_) = false;
};

void Session::Impl::add(std::shared_ptr<ServiceObject> object)
{
    std::vector<Waiter> served;
    {
        const Lock<Mutex> lock(mutex_);
        if (closed_)
            throw std::runtime_error("the session is closed");
        if (!services_.emplace(object->name(), object).second)
            throw std::runtime_error("there is a service named '" + object->name() + "' already");
        const auto others = std::stable_partition(
            waiters_.begin(), waiters_.end(),
            [&](const Waiter& waiter) { return waiter.service == object->name(); });
        served.assign(waiters_.begin(), others);
        waiters_.erase(waiters_.begin(), others);
    }
    for (const Waiter& waiter : served)
        waiter.promise.setValue(AnyObject(object));
}

AnyObject Session::Impl::find(const std::string& name) const
{
    const Lock<Mutex> lock(mutex_);
    const auto found = services_.find(name);
    return found == services_.end() ? AnyObject() : AnyObject(found->second);
}

std::shared_ptr<ServiceObject> Session::Impl::take(const std::string& name)
{
    const Lock<Mutex> lock(mutex_);
    const auto found = services_.find(name);
    if (found == services_.end())
        return nullptr;
    std::shared_ptr<ServiceObject> object = std::move(found->second);
    services_.erase(found);
    return object;
}

std::vector<std::string> Session::Impl::names() const
{
    const Lock<Mutex> lock(mutex_);
    std::vector<std::string> names;
    for (const auto& [name, object] : services_)
        names.push_back(name);
    return names;
}

std::uint64_t Session::Impl::wait(const std::string& name, const Promise<AnyObject>& promise)
{
    AnyObject present;
    {
        const Lock<Mutex> lock(mutex_);
        const auto found = services_.find(name);
        if (found != services_.end()) {
            present = AnyObject(found->second);
        } else if (!closed_) {
            waiters_.push_back({++lastWaiter_, name, promise});
            return lastWaiter_;
        }
    }
    if (present)
        promise.setValue(present);
    else
        promise.setCanceled();
    return 0;
}

bool Session::Impl::dropWaiter(std::uint64_t id)
{
    const Lock<Mutex> lock(mutex_);
    const auto found = std::find_if(waiters_.begin(), waiters_.end(),
                                    [id](const Waiter& waiter) { return waiter.id == id; });
    if (found == waiters_.end())
        return false;
    waiters_.erase(found);
    return true;
}

std::vector<Waiter> Session::Impl::close()
{
    const Lock<Mutex> lock(mutex_);
    closed_ = true;
    return std::exchange(waiters_, {});
}

Session::Session() : impl_(std::make_shared<Impl>()) {}

Session::~Session()
{
    close();
}

void Session::close()
{
    for (const Waiter& waiter : impl_->close())
        waiter.promise.setCanceled();
    // One by one, since closing one may make it take others out.
    for (const std::string& name : impl_->names())
        unregisterService(name);
}

void Session::registerService(std::shared_ptr<ServiceObject> object)
{
    if (!object)
        throw std::runtime_error("This object is null");
    if (object->name().empty())
        throw std::runtime_error("a service needs a name");
    impl_->add(object);
    registered_(AnyObject(std::move(object)));
}

bool Session::unregisterService(const std::string& name)
{
    const std::shared_ptr<ServiceObject> object = impl_->take(name);
    if (object)
        object->close();
    return object != nullptr;
}

AnyObject Session::service(const std::string& name) const
{
    if (AnyObject object = findService(name))
        return object;
    throw std::runtime_error("no service named '" + name + "'");
}

AnyObject Session::findService(const std::string& name) const
{
    return impl_->find(name);
}

Future<AnyObject> Session::waitForService(const std::string& name)
{
    const Promise<AnyObject> promise;
    const std::uint64_t id = impl_->wait(name, promise);
    if (id != 0) {
        promise.setCanceler([impl = std::weak_ptr<Impl>(impl_), id] {
            const auto session = impl.lock();
            return session && session->dropWaiter(id);
        });
    }
    return promise.future();
}

std::vector<std::string> Session::services() const
{
    return impl_->names();
}

AnyObject import(const std::string& name)
{
    return Application::current().session().service(name);
}

}  // namespace vo
