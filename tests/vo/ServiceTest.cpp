#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>

#include "platform/vo/Application.h"
#include "platform/vo/Log.h"
#include "platform/vo/Session.h"
#include "platform/vo/VirtualClock.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"

using vo::AnyObject;
using vo::ServiceObject;
using vo::Value;

namespace {

struct Battery {
    Battery()
    {
        object
            ->method(
                "add", [](int a, const std::string& b) { return std::to_string(a) + b; }, "joins")
            .method("fail", [] { throw std::domain_error("no power"); })
            .signal("onEmpty", onEmpty)
            .property("charge", charge)
            .readOnlyProperty("lid", charge);
    }
    ~Battery()
    {
        if (object)
            object->close();
    }

    vo::Signal<int> onEmpty;
    vo::Property<int> charge{50};
    std::shared_ptr<ServiceObject> object = std::make_shared<ServiceObject>("Battery");
};

class ServiceTest : public testing::Test {
protected:
    std::function<void(int)> note()
    {
        return [this](int v) { got.push_back(v); };
    }

    const Deadline deadline;
    vo::LogCapture log;
    std::shared_ptr<vo::VirtualClock> clock =
        std::make_shared<vo::VirtualClock>(vo::TimePoint(std::chrono::hours(1)));
    vo::Application application{clock};
    vo::Session& session = application.session();
    Battery battery;
    AnyObject handle{battery.object};
    std::vector<int> got;
};

TEST_F(ServiceTest, aWrongUseNamesServiceMemberAndArgument)
{
    const struct {
        std::function<void()> use;
        const char* error;
    } cases[] = {
        {[&] { handle.call("none"); }, "service 'Battery' has no method 'none'"},
        {[&] { handle.call("add", 1); },
         "service 'Battery', method 'add': expected 2 arguments, got 1"},
        {[&] { handle.call("add", 1, 2); },
         "service 'Battery', method 'add': argument 2: expected text, got int"},
        {[&] { handle.call<int>("add", 1, "x"); },
         "service 'Battery', result of method 'add': expected int, got text"},
        {[&] { handle.call("fail"); }, "no power"},
        {[&] { handle.connect("none", [] {}); }, "service 'Battery' has no signal 'none'"},
        {[&] { handle.property<int>("none"); }, "service 'Battery' has no property 'none'"},
        {[&] { handle.property<std::string>("charge"); },
         "service 'Battery', property 'charge': expected text, got int"},
        {[&] { handle.setProperty("charge", true); },
         "service 'Battery', property 'charge': expected int, got bool"},
        {[&] { handle.setProperty("lid", 1); },
         "service 'Battery', property 'lid' can only be read"},
        {[&] { battery.object->method("add", [] {}); },
         "service 'Battery' already has a method 'add'"},
        {[&] { battery.object->signal("onEmpty", battery.onEmpty); },
         "service 'Battery' already has a signal 'onEmpty'"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(errorOf(c.use), c.error);
    EXPECT_THROW(handle.call("fail"), std::domain_error);
}

TEST_F(ServiceTest, everyUseOfANullHandleSaysSo)
{
    const AnyObject null;
    const std::function<void()> uses[] = {
        [&] { null.call("m"); },           [&] { null.connect("s", [] {}); },
        [&] { null.disconnect(1); },       [&] { null.property<int>("p"); },
        [&] { null.setProperty("p", 1); }, [&] { null.follow<int>("p", note()); },
        [&] { null.async("m").value(); },  [&] { session.registerService(nullptr); },
    };
    for (const auto& use : uses)
        EXPECT_EQ(errorOf(use), "This object is null");
}

TEST_F(ServiceTest, methodsAreCalledByNameNowOrOnTheEventLoop)
{
    battery.object->dynamicMethod({"echo", "", 1},
                                  [](const std::vector<Value>& values) { return values[0]; });
    EXPECT_EQ(handle.call<std::string>("add", 1, "x"), "1x");
    EXPECT_EQ(handle.call<int>("echo", 7), 7);
    std::string methods;
    for (const ServiceObject::MethodInfo& method : battery.object->methods())
        methods += method.name + " " + std::to_string(method.parameters) + method.description + ";";
    EXPECT_EQ(methods, "add 2joins;echo 1;fail 0;");

    const vo::Future<std::string> later = handle.async<std::string>("add", 2, "y");
    const vo::Future<void> failing = handle.async("fail");
    EXPECT_TRUE(later.isRunning());
    clock->runPending();
    EXPECT_EQ(later.value(), "2y");
    EXPECT_EQ(failing.error(), "no power");
    const vo::Future<void> late = handle.async("fail");
    battery.object->close();
    clock->runPending();
    EXPECT_EQ(late.error(), "service 'Battery' is gone");
}

TEST_F(ServiceTest, deliveriesStandOnTheSignalQueueInTheOrderOfTheEmissions)
{
    handle.connect("onEmpty", note());
    handle.connect<int>("onEmpty", std::bind(note(), std::placeholders::_1));
    const vo::SignalLink charge = handle.follow<int>("charge", note());
    handle.follow<int>("lid", [&](int v) { got.push_back(-v); });
    battery.onEmpty(1);
    handle.setProperty("charge", 2);
    handle.setProperty("charge", 2);
    battery.onEmpty(3);
    EXPECT_THAT(got, IsEmpty());
    clock->runPending();
    EXPECT_THAT(got, ElementsAre(1, 1, 2, -2, 3, 3));
    EXPECT_EQ(handle.property<int>("charge"), 2);
    EXPECT_EQ(handle.property<int>("lid"), 2);
    EXPECT_TRUE(handle.disconnect(charge));
    handle.setProperty("charge", 4);
    clock->runPending();
    EXPECT_EQ(got.back(), -4);
    EXPECT_EQ(got.size(), 7U);
}

TEST_F(ServiceTest, aReceiverThatFailsIsLoggedAndTheOthersGoOn)
{
    handle.connect("onEmpty", [](const std::string&) {});
    handle.connect("onEmpty", [](int, int) {});
    handle.connect("onEmpty", [](int) { throw std::runtime_error("broken"); });
    handle.connect("onEmpty", note());
    battery.onEmpty(1);
    clock->runPending();
    EXPECT_THAT(got, ElementsAre(1));
    EXPECT_THAT(
        log.lines(vo::LogLevel::error),
        ElementsAre("ServiceObject/receiver: service 'Battery', signal 'onEmpty': argument 1: "
                    "expected text, got int",
                    "ServiceObject/receiver: service 'Battery', signal 'onEmpty': "
                    "expected 2 arguments, got 1",
                    "ServiceObject/receiver: broken"));
}

TEST_F(ServiceTest, disconnectAlsoDropsWhatIsOnItsWay)
{
    const vo::SignalLink link = handle.connect("onEmpty", note());
    vo::SignalLink once = 0;
    once = handle.connect("onEmpty", [&](int v) {
        got.push_back(v * 10);
        EXPECT_TRUE(handle.disconnect(once));
    });
    battery.onEmpty(1);
    battery.onEmpty(2);
    EXPECT_TRUE(AnyObject(battery.object).disconnect(link));
    clock->runPending();
    EXPECT_THAT(got, ElementsAre(10));
    EXPECT_FALSE(handle.disconnect(link));
    EXPECT_FALSE(handle.disconnect(once));
}

TEST_F(ServiceTest, aClosedObjectRefusesCallsAndDropsItsConnections)
{
    handle.connect("onEmpty", note());
    const auto undo = battery.object->connect("onEmpty", [&](const auto&) { got.push_back(0); });
    battery.object->followProperty("charge", [&](const Value&) { got.push_back(0); });
    const auto undoFollowing =
        battery.object->followProperty("charge", [&](const Value&) { got.push_back(9); });
    undoFollowing();
    battery.charge.set(2);
    battery.onEmpty(1);
    battery.object->close();
    battery.onEmpty(2);
    battery.charge.set(3);
    clock->runPending();
    EXPECT_THAT(got, ElementsAre(0, 0)) << "only what ran on the emitting thread before";
    for (const auto use :
         {+[](const AnyObject& o) { o.call("fail"); },
          +[](const AnyObject& o) { o.connect("onEmpty", [] {}); },
          +[](const AnyObject& o) { o.object()->connect("onEmpty", [](const auto&) {}); },
          +[](const AnyObject& o) { o.follow<int>("charge", [](int) {}); },
          +[](const AnyObject& o) { o.object()->followProperty("charge", [](const auto&) {}); },
          +[](const AnyObject& o) { o.property<int>("charge"); },
          +[](const AnyObject& o) { o.setProperty("charge", 1); }})
        EXPECT_EQ(errorOf([&] { use(handle); }), "service 'Battery' is gone");
    battery.object.reset();
    handle = AnyObject();
    undo();
}

TEST_F(ServiceTest, aMethodMayCloseAndDropItsOwnObject)
{
    auto object = std::make_shared<ServiceObject>("Short");
    object->method("end", [&] {
        object->close();
        object.reset();
        return 1;
    });
    EXPECT_EQ(object->call("end", {}), Value(std::int64_t{1}));
}

// Real threads: the call is in progress on another one.
TEST_F(ServiceTest, aServiceIsReplacedWhileItIsCalledAndItsCallEndsFirst)
{
    const auto add = [&](const std::function<int()>& reach) {
        const auto object = std::make_shared<ServiceObject>("Arm");
        object->method("reach", reach);
        session.registerService(object);
    };
    std::promise<void> begun;
    bool ended = false;  // no atomic: closing alone orders the accesses
    add([&] {
        const AnyObject self = session.service("Arm");
        begun.set_value();
        while (!self.object()->isClosed() || !session.findService("Arm"))
            std::this_thread::yield();
        EXPECT_EQ(vo::import("Arm").call<int>("reach"), 2);
        letOthersRun();
        ended = true;
        return 1;
    });
    auto call =
        std::async(std::launch::async, [&] { return vo::import("Arm").call<int>("reach"); });
    await("the call", begun);
    auto removal =
        std::async(std::launch::async, [&] { return session.unregisterService("Arm") && ended; });
    while (session.findService("Arm"))
        std::this_thread::yield();
    add([] { return 2; });
    EXPECT_EQ(call.get(), 1);
    EXPECT_TRUE(removal.get());
    EXPECT_EQ(vo::import("Arm").call<int>("reach"), 2);
}

// Real threads: both runs of the receiver are in progress when each undoes it.
TEST_F(ServiceTest, twoRunsOfAReceiverThatUndoItDoNotWaitForEachOther)
{
    std::promise<void> inside[2];
    ServiceObject::Disconnect undo =
        battery.object->connect("onEmpty", [&](const std::vector<Value>& values) {
            const auto self = *values[0].get<std::int64_t>();
            inside[self].set_value();
            await("the other run", inside[1 - self]);
            undo();
        });
    auto other = std::async(std::launch::async, [&] { battery.onEmpty(0); });
    battery.onEmpty(1);
    other.get();
}

TEST_F(ServiceTest, theSessionFindsServicesByName)
{
    session.registerService(battery.object);
    session.registerService(std::make_shared<ServiceObject>("Arm"));
    EXPECT_THAT(session.services(), ElementsAre("Arm", "Battery"));
    EXPECT_EQ(vo::import("Battery").object(), battery.object);
    EXPECT_EQ(errorOf([&] { session.registerService(std::make_shared<ServiceObject>("Arm")); }),
              "there is a service named 'Arm' already");
    EXPECT_THROW(session.registerService(std::make_shared<ServiceObject>("")), std::runtime_error);

    EXPECT_TRUE(session.unregisterService("Battery"));
    EXPECT_FALSE(session.unregisterService("Battery"));
    EXPECT_TRUE(battery.object->isClosed());
    EXPECT_FALSE(session.findService("Battery"));
    EXPECT_EQ(errorOf([&] { session.service("Battery"); }), "no service named 'Battery'");
}

TEST_F(ServiceTest, aWaitEndsWithTheServiceOrWithItsCancelling)
{
    const auto first = session.waitForService("Battery");
    const auto second = session.waitForService("Battery");
    const auto canceled = session.waitForService("Battery");
    const auto other = session.waitForService("Arm");
    first.then([&](const vo::Future<AnyObject>& found) {
        got.push_back(static_cast<int>(session.services().size()));
        EXPECT_EQ(found.value().name(), "Battery");
    });
    second.then([&](const auto&) { got.push_back(2); });
    canceled.cancel();
    EXPECT_TRUE(canceled.isCanceled());

    session.registerService(battery.object);
    EXPECT_THAT(got, ElementsAre(1, 2));
    EXPECT_TRUE(other.isRunning());
    EXPECT_EQ(session.waitForService("Battery").value().object(), battery.object);
    first.cancel();
    EXPECT_TRUE(first.hasValue());
}

TEST(SessionTest, itsEndClosesServicesAndCancelsWaitsAndRefusesOthers)
{
    auto owner = std::make_unique<vo::Session>();
    vo::Session& session = *owner;
    std::vector<std::shared_ptr<ServiceObject>> objects;
    for (const char* name : {"Arm", "Hand", "Knee"}) {
        objects.push_back(std::make_shared<ServiceObject>(name));
        session.registerService(objects.back());
    }
    const vo::Future<AnyObject> waits[] = {session.waitForService("Leg"),
                                           session.waitForService("Eye")};
    std::string seen;
    waits[0].then([&](const auto&) {
        seen = errorOf([&] { session.registerService(std::make_shared<ServiceObject>("Leg")); });
        EXPECT_TRUE(session.waitForService("Leg").isCanceled());
        EXPECT_TRUE(session.unregisterService("Hand")) << "services may still use it";
    });
    owner.reset();
    EXPECT_EQ(seen, "the session is closed");
    for (const auto& object : objects)
        EXPECT_TRUE(object->isClosed()) << object->name();
    EXPECT_TRUE(waits[0].isCanceled() && waits[1].isCanceled());
}

}  // namespace
