#include "life/ServiceCalls.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <limits>
#include <map>
#include <utility>

#include "life/Deadline.h"
#include "platform/kr/KRError.h"
#include "platform/vo/Application.h"
#include "platform/vo/CallbackGate.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Mutex.h"

namespace KR {

std::string overdueText(vo::Duration deadline)
{
    return "it has not ended within " +
           std::to_string(std::chrono::duration_cast<std::chrono::seconds>(deadline).count()) +
           " s";
}

std::exception_ptr overdueError(vo::Duration deadline, const std::string& module,
                                const std::string& method)
{
    return std::make_exception_ptr(KRError(module, method, overdueText(deadline)));
}

struct ServiceCalls::Call {
    vo::AnyObject service;
    std::string method;
    std::vector<vo::Value> arguments;
    std::size_t maxBefore;  ///< calls that may wait before it
    vo::Promise<vo::Value> promise = {};
    std::atomic<bool> isClaimed{false};  ///< by who makes it, or by who cancels it

    Call(vo::AnyObject theService, std::string theMethod, std::vector<vo::Value> theArguments,
         std::size_t theMaxBefore)
        : service(std::move(theService)),
          method(std::move(theMethod)),
          arguments(std::move(theArguments)),
          maxBefore(theMaxBefore)
    {
    }

    bool isWanted() const { return promise.future().isRunning(); }
    void fail(const std::string& reason) const
    {
        promise.setError(std::make_exception_ptr(KRError(service.name(), method, reason)));
    }
    vo::Future<vo::Value> make() const { return service.object()->start(method, arguments); }
};

/// What workers need: it outlives the calls that they are in.
struct ServiceCalls::State : std::enable_shared_from_this<ServiceCalls::State> {
    explicit State(vo::EventLoop& eventLoop) : loop(eventLoop) {}

    using Waiting = std::deque<std::shared_ptr<Call>>;

    void work(const vo::ServiceObject* service);
    std::shared_ptr<Call> next(const vo::ServiceObject* service);
    void tellLater(const vo::Promise<vo::Value>& promise, const vo::Future<vo::Value>& result);
    void drop(const vo::ServiceObject* service);

    /// Held by who is about to use the loop, which is gone when it is closed.
    vo::CallbackGate gate;
    vo::EventLoop& loop;

    vo::Mutex mutex;
    /// By service, while its worker is there.
    std::map<const vo::ServiceObject*, Waiting> waiting VO_GUARDED_BY(mutex);
};

void ServiceCalls::State::work(const vo::ServiceObject* service)
{
    while (const auto call = next(service))
        tellLater(call->promise, call->make());
}

/// For the worker: the next call, or nothing, which ends it.
std::shared_ptr<ServiceCalls::Call> ServiceCalls::State::next(const vo::ServiceObject* service)
{
    Waiting unwanted;  // and what they hold, to be freed without the lock
    const vo::Lock lock(mutex);
    const auto found = waiting.find(service);
    if (found == waiting.end())
        return nullptr;
    Waiting& calls = found->second;
    while (!calls.empty()) {
        const auto call = std::move(calls.front());
        calls.pop_front();
        if (call->isWanted() && !call->isClaimed.exchange(true))
            return call;
        unwanted.push_back(call);
    }
    waiting.erase(found);
    return nullptr;
}

/// Those who wait for the promise are told on the event loop, whoever ends the call.
void ServiceCalls::State::tellLater(const vo::Promise<vo::Value>& promise,
                                    const vo::Future<vo::Value>& result)
{
    result.then([state = shared_from_this(), promise](const vo::Future<vo::Value>& ended) {
        const vo::CallbackGate::Pass pass(state->gate);
        if (pass)
            state->loop.async([promise, ended] { promise.endAs(ended); });
    });
}

void ServiceCalls::State::drop(const vo::ServiceObject* service)
{
    Waiting dropped;
    const vo::Lock lock(mutex);
    const auto found = waiting.find(service);
    if (found == waiting.end())
        return;
    dropped.swap(found->second);
    waiting.erase(found);
}

ServiceCalls::ServiceCalls(const boost::shared_ptr<KRBroker>& broker)
    : broker_(broker), state_(std::make_shared<State>(broker->application().eventLoop()))
{
}

ServiceCalls::~ServiceCalls()
{
    state_->gate.close();
    std::map<const vo::ServiceObject*, State::Waiting> dropped;
    const vo::Lock lock(state_->mutex);
    dropped.swap(state_->waiting);
}

vo::Future<vo::Value> ServiceCalls::call(const vo::AnyObject& service, const std::string& method,
                                         std::vector<vo::Value> arguments,
                                         std::optional<vo::Duration> deadline)
{
    const auto call = std::make_shared<Call>(service, method, std::move(arguments), kMaxWaiting);
    make(call);
    if (deadline)
        failAfter(call->promise, *deadline, service.name(), method);
    return call->promise.future();
}

vo::Future<vo::Value> ServiceCalls::callAnyway(const vo::AnyObject& service,
                                               const std::string& method,
                                               std::vector<vo::Value> arguments)
{
    const auto call = std::make_shared<Call>(service, method, std::move(arguments),
                                             std::numeric_limits<std::size_t>::max());
    make(call);
    return call->promise.future();
}

void ServiceCalls::make(const std::shared_ptr<Call>& call)
{
    const vo::Promise<vo::Value>& promise = call->promise;
    // Weak, as the call holds the promise.
    promise.setCanceler([weak = std::weak_ptr<Call>(call)] {
        const auto waiting = weak.lock();
        return waiting && !waiting->isClaimed.exchange(true);
    });
    if (broker_->clock()->hasThreads()) {
        enqueue(call);
        return;
    }
    call->isClaimed = true;
    const vo::Future<vo::Value> result = call->make();
    if (result.isRunning())
        state_->tellLater(promise, result);
    else
        promise.endAs(result);
}

/// Those that nobody wants any more take nobody's place.
void ServiceCalls::enqueue(const std::shared_ptr<Call>& call)
{
    const vo::ServiceObject* const service = call->service.object().get();
    State::Waiting unwanted;
    {
        const vo::Lock lock(state_->mutex);
        const auto [line, isNew] = state_->waiting.try_emplace(service);
        State::Waiting& calls = line->second;
        const auto end = std::stable_partition(calls.begin(), calls.end(),
                                               [](const auto& each) { return each->isWanted(); });
        unwanted.assign(end, calls.end());
        calls.erase(end, calls.end());
        if (calls.size() >= call->maxBefore) {
            call->fail("the service is busy: " + std::to_string(kMaxWaiting) +
                       " calls wait for it");
            return;
        }
        calls.push_back(call);
        if (!isNew)
            return;
    }
    try {
        broker_->clock()->runWithin(vo::Duration::zero(),
                                    [state = state_, service] { state->work(service); });
    } catch (const std::exception& e) {
        state_->drop(service);
        call->fail(std::string("there is no thread for it: ") + e.what());
    }
}

}  // namespace KR
