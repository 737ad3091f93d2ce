#pragma once

#include <chrono>
#include <memory>

#include "platform/kr/KRBroker.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/Application.h"
#include "platform/vo/Log.h"
#include "platform/vo/VirtualClock.h"

/// A platform on virtual time, for one test: nothing happens until the clock is advanced.
struct VirtualPlatform {
    vo::LogCapture log;
    std::shared_ptr<vo::VirtualClock> clock =
        std::make_shared<vo::VirtualClock>(vo::TimePoint(std::chrono::hours(24 * 20000)));
    vo::Application application{clock};
    boost::shared_ptr<KR::KRBroker> broker = KR::KRBroker::create(application);

    /// Registers a service with one method, and returns it.
    template <class Method>
    std::shared_ptr<vo::ServiceObject> addService(const std::string& name,
                                                  const std::string& method, Method&& call)
    {
        auto object = std::make_shared<vo::ServiceObject>(name);
        object->method(method, std::forward<Method>(call));
        application.session().registerService(object);
        return object;
    }
    KR::KRMemory& memory() { return broker->memory(); }
    void advance(vo::Duration duration) { clock->advance(duration); }
    void runPending() { clock->runPending(); }
};
