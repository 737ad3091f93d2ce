#include <atomic>
#include <thread>

#include "life/ServiceCalls.h"
#include "platform/kr/KRError.h"
#include "tests/support/Happenings.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using std::chrono::seconds;

vo::AnyObject makeService(const std::string& name, std::function<int(int)> method)
{
    const auto object = std::make_shared<vo::ServiceObject>(name);
    object->method("m", std::move(method));
    return vo::AnyObject(object);
}

/// Notes how a call ends: "x 1", or "x" and the error.
void noteEnd(Happenings& ends, const std::string& name, const vo::Future<vo::Value>& call)
{
    call.then([&ends, name](const vo::Future<vo::Value>& end) {
        ends.add(name + " " +
                 (end.hasValue() ? std::to_string(vo::fromValue<int>(end.value())) : end.error()));
    });
}

TEST(ServiceCallsTest, OnVirtualTimeCallsAreMadeAtOnceAndFuturesEndWhenTheyEndOrExpire)
{
    VirtualPlatform platform;
    std::vector<vo::Promise<int>> promises;
    platform.addService("Later", "m", [&] {
        promises.emplace_back();
        return promises.back().future();
    });
    platform.addService("Now", "m",
                        [](int i) { return i > 0 ? i : throw KRError("a", "b", "no"); });
    ServiceCalls calls(platform.broker);
    Happenings ends;
    const auto call = [&](const std::string& name, const std::string& of, const std::string& method,
                          std::vector<vo::Value> arguments, vo::Duration deadline) {
        noteEnd(ends, name, calls.call(vo::import(of), method, std::move(arguments), deadline));
    };
    call("now", "Now", "m", {vo::toValue(1)}, seconds(1));
    call("error", "Now", "m", {vo::toValue(0)}, seconds(1));
    call("none", "Now", "n", {}, seconds(1));
    EXPECT_THAT(ends.take(3), ElementsAre("now 1", "error a::b: no",
                                          HasSubstr("none service 'Now' has no method 'n'")));
    for (const char* name : {"in time", "too late", "never"})
        call(name, "Later", "m", {}, seconds(2));
    platform.advance(std::chrono::milliseconds(1999));
    promises[0].setValue(2);
    platform.advance(std::chrono::milliseconds(1));
    promises[1].setValue(3);
    platform.runPending();
    const std::string overdue = " Later::m: it has not ended within 2 s";
    EXPECT_THAT(ends.take(3), ElementsAre("in time 2", "too late" + overdue, "never" + overdue));
}

/// Real threads, as only they can hang.
TEST(ServiceCallsTest, AServiceThatHangsHoldsUpItsOwnCallsAloneAndRefusesMoreThanItsLimit)
{
    vo::Application application(vo::makeRealClock());
    const auto broker = KRBroker::create(application);
    auto calls = std::make_unique<ServiceCalls>(broker);
    Happenings ends;
    Happenings begun;
    std::promise<void> release;
    const auto released = release.get_future().share();
    std::atomic<int> made{0};
    const auto hang = [&](int i) {
        ++made;
        begun.add("begun");
        released.wait();
        return i;
    };
    const vo::AnyObject hanging = makeService("Hang", hang);
    const vo::AnyObject quick = makeService("Quick", [](int i) { return i; });
    const auto call = [&](const vo::AnyObject& service, int i) {
        const auto future = calls->call(service, "m", {vo::toValue(i)});
        noteEnd(ends, service.name(), future);
        return future;
    };
    call(hanging, 0);
    begun.take(1);
    std::vector<vo::Future<vo::Value>> waiting;
    for (int i = 1; i <= int{ServiceCalls::kMaxWaiting}; ++i)
        waiting.push_back(call(hanging, i));
    call(hanging, 99);
    EXPECT_THAT(ends.wait("Hang Hang::m: the service is busy"), HasSubstr("16 calls wait"));
    const auto anyway = calls->callAnyway(hanging, "m", {vo::toValue(100)});
    EXPECT_TRUE(anyway.isRunning());
    call(quick, 7);
    ends.wait("Quick 7");
    for (auto& each : waiting) {
        each.cancel();
        EXPECT_TRUE(each.isCanceled());
    }
    const auto another = call(hanging, 50);  // those that nobody wants take nobody's place
    EXPECT_TRUE(another.isRunning());

    call(makeService("Hang", [](int i) { return -i; }), 8);  // which has taken its place
    ends.wait("Hang -8");
    calls.reset();
    release.set_value();
    hanging.object()->close();  // waits for the call in progress
    application.eventLoop().close();
    EXPECT_EQ(made, 1) << "what was cancelled or is left over is never made";
    EXPECT_TRUE(another.isRunning()) << "nobody is told";
}

}  // namespace
}  // namespace KR
