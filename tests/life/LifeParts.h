#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "life/EventStream.h"
#include "life/FocusQueue.h"
#include "life/FrozenChains.h"
#include "life/LifeService.h"
#include "life/LifeStatus.h"
#include "life/Responder.h"
#include "life/ServiceCalls.h"

namespace KR {

/// Runs nothing; notes what it is told to do.
class FakeRunner : public ActivityRunner {
public:
    vo::Future<void> check(const std::string& activity) override
    {
        return answer("check " + activity);
    }
    vo::Future<void> start(const std::string& activity, FocusId) override
    {
        return note("start " + activity);
    }
    vo::Future<void> stop() override { return note("stop"); }

    std::vector<std::string> calls;  ///< guarded by the turns of the queue
    std::function<void(const std::string& call)> react = [](const std::string&) {};
    std::map<std::string, vo::Promise<void>> later;  ///< calls that end when the test wants it

private:
    vo::Future<void> note(const std::string& call)
    {
        calls.push_back(call);
        return answer(call);
    }
    vo::Future<void> answer(const std::string& call)
    {
        if (later.count(call))
            return later.at(call).future();
        const vo::Promise<void> promise;
        promise.endWith([&] { react(call); });
        return promise.future();
    }
};

/// A robot's life without its launchpad. Its event loop is closed before it goes.
struct LifeParts {
    explicit LifeParts(const boost::shared_ptr<KRBroker>& theBroker) : broker(theBroker) {}
    ~LifeParts()
    {
        responder.exit();
        focus.exit();
        broker->application().eventLoop().close();
    }

    const boost::shared_ptr<KRBroker> broker;
    FakeRunner runner;
    EventStream events{broker->clock()};
    Turns turns{events, *broker->clock()};
    Requests requests{events, turns};
    LifeStatus status{broker};
    std::optional<FrozenChains> chains{
        std::in_place, broker->clock(), turns, std::set<std::string>{"Arms", "Head", "Legs"},
        [this](const ChainChanged& change) { status.changed(change); }};
    ServiceCalls calls{broker};
    RequestedActivities requested{requests, runner};
    FocusQueue focus{broker->clock(), turns, status, &requested};
    Responder responder{status, *chains, focus, calls, requests, turns, events};
    boost::shared_ptr<LifeService> life =
        KRModule::createModule<LifeService>(broker, turns, status, *chains, focus, responder);
};

}  // namespace KR
