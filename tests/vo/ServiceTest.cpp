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
using vo::Connection;
using vo::ServiceObject;
using vo::Value;

namespace {

struct Battery {
    Battery()
    {
        object->method("add", [](int a, const std::string& b) { return std::to_string(a) + b; })
            .method("fail", [] { throw std::domain_error("no power"); })
            .signal("onEmpty", onEmpty)
            .property("charge", charge)
            .readOnlyProperty("lid", charge);
    }

    vo::Signal<int> onEmpty;
    vo::Property<int> charge{50};
    std::shared_ptr<ServiceObject> object = std::make_shared<ServiceObject>("Battery");
};

struct ServiceTest : testing::Test {
    std::function<void(int)> note()
    {
        return [this](int v) { got.push_back(v); };
    }

    const Deadline deadline;
    vo::LogCapture log;
    Battery battery;  // outlives the session that may hold its object
    std::shared_ptr<vo::VirtualClock> clock =
        std::make_shared<vo::VirtualClock>(vo::TimePoint(std::chrono::hours(1)));
    vo::Application application{clock};
    vo::Session& session = application.session();
    AnyObject handle{battery.object};
    std::vector<int> got;
};

TEST_F(ServiceTest, aWrongUseNamesServiceMemberAndArgument)
{
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[&] { handle.call("none"); }, " has no method 'none'"},
        {[&] { handle.call("add", 1); }, ", method 'add': expected 2 arguments, got 1"},
        {[&] { handle.call("add", 1, 2); }, ", method 'add': argument 2: expected text, got int"},
        {[&] { handle.call<int>("add", 1, ""); },
         ", result of method 'add': expected int, got text"},
        {[&] { const Connection c = handle.connect("none", [] {}); }, " has no signal 'none'"},
        {[&] { handle.property<int>("none"); }, " has no property 'none'"},
        {[&] { handle.property<bool>("charge"); }, ", property 'charge': expected bool, got int"},
        {[&] { handle.setProperty("charge", ""); }, ", property 'charge': expected int, got text"},
        {[&] { handle.setProperty("lid", 1); }, ", property 'lid' can only be read"},
        {[&] { battery.object->method("add", [] {}); }, " already has a method 'add'"},
    };
    for (const auto& [use, error] : cases)
        EXPECT_EQ(errorOf(use), "service 'Battery'" + error);
    EXPECT_EQ(errorOf<std::domain_error>([&] { handle.call("fail"); }), "no power");
}

TEST_F(ServiceTest, everyUseOfAHandleThatIsNullOrWhoseObjectIsGoneSaysSo)
{
    const std::function<void(const AnyObject&)> uses[] = {
        [](const AnyObject& o) { o.call("fail"); },
        [](const AnyObject& o) { const Connection c = o.connect("onEmpty", [] {}); },
        [](const AnyObject& o) { const Connection c = o.follow<int>("charge", [](int) {}); },
        [](const AnyObject& o) { o.property<int>("charge"); },
        [](const AnyObject& o) { o.setProperty("charge", 1); },
    };
    const AnyObject null;
    battery.object->close();
    for (const auto& use : uses) {
        EXPECT_EQ(errorOf([&] { use(null); }), "This object is null");
        EXPECT_EQ(errorOf([&] { use(handle); }), "service 'Battery' is gone");
    }
    EXPECT_EQ(null.async("fail").error(), "This object is null");
    EXPECT_EQ(errorOf([&] { session.registerService(nullptr); }), "This object is null");
    EXPECT_ANY_THROW(const Connection c = battery.object->connect("onEmpty", [](const auto&) {}));
    EXPECT_ANY_THROW(const Connection c =
                         battery.object->followProperty("charge", [](const auto&) {}));
}

TEST_F(ServiceTest, methodsAreCalledByNameNowOrOnTheEventLoop)
{
    EXPECT_EQ(handle.call<std::string>("add", 1, "x"), "1x");
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

TEST_F(ServiceTest, aMethodThatReturnsAFutureIsWaitedForOnlyWhereItCanEndMeanwhile)
{
    const vo::Promise<int> one;
    const vo::Promise<void> none;
    battery.object->method("one", [&] { return one.future(); }).method("none", [&] {
        return none.future();
    });
    const auto start = [&](const std::string& method) { return battery.object->start(method, {}); };
    const vo::Future<Value> started = start("one");
    const vo::Future<Value> canceled = start("none");
    const vo::Future<int> asynchronous = handle.async<int>("one");
    const vo::Future<std::string> wrong = handle.async<std::string>("one");
    clock->runPending();
    EXPECT_TRUE(started.isRunning() && asynchronous.isRunning() && wrong.isRunning());
    EXPECT_THAT(errorOf<std::logic_error>([&] { handle.call("one"); }),
                HasSubstr("cannot be waited"));
    one.setValue(1);
    none.setCanceled();
    EXPECT_EQ(started.value(), Value(std::int64_t{1}));
    EXPECT_TRUE(canceled.isCanceled());
    EXPECT_EQ(asynchronous.value(), 1);
    EXPECT_THAT(wrong.error(), HasSubstr("result of method 'one': expected text, got int"));
    EXPECT_EQ(handle.call<int>("one"), 1);
    EXPECT_EQ(start("fail").error(), "no power");
    EXPECT_THAT(start("add").error(), HasSubstr("expected 2 arguments, got 0"));
    const vo::Future<int> dropped = handle.async<int>("one");
    dropped.cancel();
    EXPECT_TRUE(dropped.isCanceled());
}

TEST_F(ServiceTest, deliveriesStandOnTheSignalQueueInTheirOrderAndOneThatFailsIsLogged)
{
    const Connection others[] = {
        handle.connect("onEmpty", [](const std::string&) {}),
        handle.connect("onEmpty", [](int) { throw std::runtime_error("broken"); }),
        handle.connect<int>("onEmpty", std::bind(note(), std::placeholders::_1))};
    Connection charge = handle.follow<int>("charge", note());
    const Connection lid = handle.follow<int>("lid", [&](int v) { got.push_back(-v); });
    battery.onEmpty(1);
    handle.setProperty("charge", 2);
    handle.setProperty("charge", 2);
    EXPECT_THAT(got, IsEmpty());
    clock->runPending();
    EXPECT_TRUE(charge.disconnect());
    handle.setProperty("charge", 4);
    battery.onEmpty(3);
    clock->runPending();
    EXPECT_THAT(got, ElementsAre(1, 2, -2, -4, 3));
    const std::string place = "ServiceObject/receiver: ";
    const std::string wrong = place +
                              "service 'Battery', signal 'onEmpty': argument 1: expected "
                              "text, got int";
    EXPECT_THAT(log.lines(vo::LogLevel::error),
                ElementsAre(wrong, place + "broken", wrong, place + "broken"));
}

TEST_F(ServiceTest, disconnectAlsoDropsWhatIsOnItsWay)
{
    auto link = std::make_optional<Connection>(handle.connect("onEmpty", note()));
    Connection once;
    once = handle.connect("onEmpty", [&](int v) {
        got.push_back(v * 10);
        EXPECT_TRUE(once.disconnect());
    });
    battery.onEmpty(1);
    battery.onEmpty(2);
    link.reset();
    clock->runPending();
    EXPECT_THAT(got, ElementsAre(10));
    EXPECT_FALSE(once.disconnect());
}

TEST_F(ServiceTest, aClosedObjectRefusesCallsAndDropsItsConnections)
{
    const auto zero = [&](const auto&) { got.push_back(0); };
    const Connection queued = handle.connect("onEmpty", note());
    Connection direct = battery.object->connect("onEmpty", zero);
    const Connection charge = battery.object->followProperty("charge", zero);
    battery.charge.set(2);
    battery.onEmpty(1);
    battery.object->close();
    battery.onEmpty(2);
    battery.charge.set(3);
    clock->runPending();
    EXPECT_THAT(got, ElementsAre(0, 0)) << "only what ran on the emitting thread before";
    EXPECT_FALSE(queued.isConnected() || direct.isConnected() || charge.isConnected());
    battery.object.reset();
    handle = AnyObject();
    EXPECT_FALSE(direct.disconnect());
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
    const auto reach = [] { return vo::import("Arm").call<int>("reach"); };
    std::promise<void> begun;
    bool ended = false;  // no atomic: closing alone orders the accesses
    add([&] {
        begun.set_value();
        while (session.findService("Arm"))
            std::this_thread::yield();
        add([] { return 2; });
        letOthersRun();
        ended = true;
        return reach();
    });
    auto call = std::async(std::launch::async, reach);
    await("the call", begun);
    EXPECT_TRUE(session.unregisterService("Arm") && ended);
    EXPECT_EQ(call.get(), 2);
}

TEST_F(ServiceTest, theSessionFindsServicesByNameOrWaitsForThem)
{
    const auto first = session.waitForService("Battery");
    const auto canceled = session.waitForService("Battery");
    const auto second = session.waitForService("Battery");
    const auto other = session.waitForService("Arm");
    first.then([&](const vo::Future<AnyObject>& found) {
        got.push_back(static_cast<int>(session.services().size()));
        EXPECT_EQ(found.value().name(), "Battery");
    });
    second.then([&](const auto&) { got.push_back(2); });
    canceled.cancel();
    session.registerService(battery.object);
    EXPECT_TRUE(canceled.isCanceled() && other.isRunning());
    EXPECT_THAT(got, ElementsAre(1, 2));
    EXPECT_EQ(session.waitForService("Battery").value().object(), battery.object);
    EXPECT_EQ(vo::import("Battery").object(), battery.object);
    session.registerService(std::make_shared<ServiceObject>("Arm"));
    EXPECT_THAT(session.services(), ElementsAre("Arm", "Battery"));
    EXPECT_EQ(errorOf([&] { session.registerService(battery.object); }),
              "there is a service named 'Battery' already");
    EXPECT_ANY_THROW(session.registerService(std::make_shared<ServiceObject>("")));
    EXPECT_TRUE(session.unregisterService("Battery") && battery.object->isClosed());
    EXPECT_FALSE(session.unregisterService("Battery"));
    EXPECT_EQ(errorOf([&] { session.service("Battery"); }), "no service named 'Battery'");
}

TEST(SessionTest, itsEndClosesServicesAndCancelsWaitsAndRefusesOthers)
{
    auto owner = std::make_unique<vo::Session>();
    vo::Session& session = *owner;
    std::vector<std::shared_ptr<ServiceObject>> objects;
    for (const char* name : {"Arm", "Hand", "Knee"})
        session.registerService(objects.emplace_back(std::make_shared<ServiceObject>(name)));
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
