#include <atomic>
#include <functional>
#include <future>
#include <thread>

#include "platform/kr/KRError.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/KRModule.h"
#include "platform/kr/KRProxy.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

/// What the test sees of a listener; it outlives the module.
struct Trace {
    std::vector<std::string> calls;
    int inits = 0;
    int exits = 0;
    bool registeredAtInit = false;
    bool fails = false;  ///< in init() and exit()
    /// Done inside each call, after it was noted.
    std::function<void()> inside;
};

class Listener : public KRModule {
public:
    Listener(boost::shared_ptr<KRBroker> broker, const std::string& name, Trace& trace)
        : KRModule(std::move(broker), name), trace_(trace)
    {
        setModuleDescription("Listens.");
        bindMethod("onEvent", &Listener::onEvent, this, "Notes an event.",
                   {{"key", "which key"}, {"value", "what it holds"}});
        bindMethod("sum", &Listener::sum, this, "Adds.");
        if (name == "Refusing")
            throw std::domain_error("refused");
    }
    ~Listener() override { trace_.calls.push_back("~"); }

    void init() override
    {
        ++trace_.inits;
        trace_.registeredAtInit = bool(getParentBroker()->session().findService(getName()));
        if (trace_.fails)
            throw std::domain_error("no init");
    }
    void exit() override
    {
        ++trace_.exits;
        KRModule::exit();
        if (trace_.fails)
            throw std::domain_error("no exit");
    }
    void onEvent(const std::string& key, const KRValue& value, const std::string& message)
    {
        trace_.calls.push_back(key + "=" + value.toDisplayString() + " " + message);
        if (trace_.inside)
            trace_.inside();
    }
    int sum(int a, const int& b) const { return a + b; }

private:
    Trace& trace_;
};

struct ModuleTest : ::testing::Test {
    VirtualPlatform platform;
    KRMemory& memory = platform.memory();
    Trace trace;
    boost::shared_ptr<Listener> module = create("Ear", trace);

    boost::shared_ptr<Listener> create(const std::string& name, Trace& to)
    {
        return KRModule::createModule<Listener>(platform.broker, name, to);
    }
    bool isRegistered(const std::string& name)
    {
        return bool(platform.application.session().findService(name));
    }
    void subscribe(const std::string& key, const std::string& message = "m",
                   const std::string& name = "Ear")
    {
        memory.subscribeToMicroEvent(key, name, message, "onEvent");
    }
    void raiseAndRun(std::initializer_list<int> values)
    {
        for (int value : values)
            memory.raiseEvent("K", value);
        platform.runPending();
    }
};

TEST_F(ModuleTest, CreationRegistersAndInitialisesOnceAndIsRefusedForATakenName)
{
    subscribe("K");
    Trace other;
    EXPECT_THROW(create("Ear", other), KRError);
    EXPECT_EQ(other.inits + other.exits, 0);
    EXPECT_THAT(other.calls, ElementsAre("~"));
    raiseAndRun({1});
    EXPECT_THAT(trace.calls, ElementsAre("K=1 m")) << "the first module is not disturbed";

    EXPECT_EQ(trace.inits, 1);
    EXPECT_TRUE(trace.registeredAtInit);
    EXPECT_EQ(module->getModuleDescription(), "Listens.");
    const auto proxy = platform.broker->getProxy("Ear");
    EXPECT_EQ(proxy->call<int>("sum", 2, 3), 5);
    EXPECT_EQ(proxy->object().object()->methods().at(0).description,
              "Notes an event.\nkey: which key\nvalue: what it holds");
    // Errors of all kinds arrive as one, with what they are about.
    EXPECT_THAT(errorOf<KRError>([&] { proxy->call<int>("sum", "x", 3); }),
                testing::StartsWith("Ear::sum: "));
}

TEST_F(ModuleTest, EventsComeInTheOrderOfTheWritesEvenIfCallbacksThrow)
{
    subscribe("K", "toK");
    subscribe("L", "toL");
    trace.inside = [] { throw std::domain_error("ouch"); };
    memory.raiseEvent("K", 0);
    memory.raiseEvent("L", "x");
    EXPECT_THAT(trace.calls, IsEmpty()) << "never inside the raise";
    raiseAndRun({1});
    EXPECT_THAT(trace.calls, ElementsAre("K=0 toK", "L=\"x\" toL", "K=1 toK"));
    EXPECT_EQ(platform.log.count(vo::LogLevel::error, "Ear::onEvent failed for key 'K': ouch"), 2u);
}

TEST_F(ModuleTest, SubscriptionIsReplacedByAnotherAndEndedWithWhatIsQueued)
{
    subscribe("K", "old");
    memory.raiseEvent("K", 1);
    subscribe("K", "new");
    raiseAndRun({2});
    EXPECT_THAT(trace.calls, ElementsAre("K=1 new", "K=2 new"));

    memory.raiseEvent("K", 3);
    memory.unsubscribeToMicroEvent("K", "Ear");
    subscribe("K", "again");
    trace.inside = [&] { memory.unsubscribeToMicroEvent("K", "Ear"); };
    raiseAndRun({4, 5});
    EXPECT_THAT(trace.calls, ElementsAre("K=1 new", "K=2 new", "K=4 again"));

    // Another key, and another module's subscription to this one, stay.
    Trace other;
    const auto neighbour = create("Neighbour", other);
    subscribe("K", "m", "Neighbour");
    subscribe("K");
    subscribe("L");
    memory.unsubscribeToMicroEvent("K", "Ear");
    trace = {};
    memory.raiseEvent("L", 6);
    raiseAndRun({7});
    EXPECT_THAT(trace.calls, ElementsAre("L=6 m"));
    EXPECT_THAT(other.calls, ElementsAre("K=7 m"));

    EXPECT_THROW(memory.unsubscribeToMicroEvent("K", "Ear"), KRError);
    EXPECT_THROW(memory.subscribeToMicroEvent("K", "Ear", "m", "noMethod"), KRError);
}

TEST_F(ModuleTest, DeliveredTellsWhenEveryModuleHasBeenCalled)
{
    Trace other;
    auto neighbour = create("Neighbour", other);
    EXPECT_FALSE(memory.delivered().isRunning()) << "nobody subscribes";
    for (const char* name : {"Ear", "Neighbour"})
        subscribe("K", "m", name);
    memory.raiseEvent("K", 1);
    const auto delivered = memory.delivered();
    trace.inside = other.inside = [&] { EXPECT_TRUE(delivered.isRunning()); };
    platform.runPending();
    EXPECT_TRUE(delivered.hasValue());
    EXPECT_EQ(trace.calls.size() + other.calls.size(), 2U);
    memory.raiseEvent("K", 2);
    const auto again = memory.delivered();
    module.reset();
    EXPECT_TRUE(again.isRunning()) << "one has gone";
    neighbour.reset();
    EXPECT_TRUE(again.hasValue()) << "all have gone";
}

TEST_F(ModuleTest, ExitEndsEverythingAndIsIdempotentAndItsFailureIsLogged)
{
    Trace failing;
    auto neighbour = create("Neighbour", failing);
    subscribe("K", "m", "Neighbour");
    const auto proxy = platform.broker->getProxy("Ear");
    subscribe("K");
    memory.raiseEvent("K", 1);
    module->exit();
    EXPECT_FALSE(isRegistered("Ear"));
    EXPECT_THROW(proxy->call<int>("sum", 2, 3), KRError);
    EXPECT_THROW(memory.unsubscribeToMicroEvent("K", "Ear"), KRError);
    module->exit();
    failing.fails = true;
    neighbour.reset();
    EXPECT_FALSE(isRegistered("Neighbour"));
    platform.runPending();
    module.reset();
    EXPECT_THAT(trace.calls, ElementsAre("~"));
    EXPECT_THAT(failing.calls, ElementsAre("~"));
    EXPECT_EQ(trace.exits, 2) << "not a third time by the release";
    EXPECT_THAT(platform.log.lines(vo::LogLevel::error),
                ElementsAre(HasSubstr("Neighbour: no exit")));
}

TEST_F(ModuleTest, ServiceThatIsClosedIsLeftAloneAndItsSuccessorServed)
{
    int calls = 0;
    for (int round = 1; round <= 2; ++round) {
        auto object = std::make_shared<vo::ServiceObject>("Plain");
        object->method("onEvent",
                       [&](const vo::Value&, const vo::Value&, const vo::Value&) { ++calls; });
        platform.application.session().registerService(object);
        subscribe("K", "m", "Plain");
        raiseAndRun({1});
        memory.raiseEvent("K", 2);
        platform.application.session().unregisterService("Plain");
        raiseAndRun({3});
        EXPECT_EQ(calls, round);
    }
    EXPECT_THAT(platform.log.lines(vo::LogLevel::error), IsEmpty());
}

// The real clock from here on: what is tested is that modules may go while platform threads call.
struct RealModuleTest : ::testing::Test {
    Trace trace;
    std::promise<std::thread::id> called;
    vo::LogCapture log;
    vo::Application application{vo::makeRealClock()};
    boost::shared_ptr<KRBroker> broker = KRBroker::create(application);
    boost::shared_ptr<Listener> module;

    /// A module that waits for its first call, and then does `inside`.
    void listen(const std::function<void()>& inside)
    {
        trace.calls.clear();
        called = {};
        trace.inside = [this, inside] {
            if (trace.calls.size() > 1)
                return;
            inside();
            called.set_value(std::this_thread::get_id());
        };
        module = KRModule::createModule<Listener>(broker, "Ear", trace);
        broker->memory().subscribeToMicroEvent("K", "Ear", "m", "onEvent");
    }
};

TEST_F(RealModuleTest, ModuleDestroyedInARaiseStormIsNeverCalledAgain)
{
    std::atomic<bool> done{false};
    std::thread storm([&] {
        for (int i = 0; !done; ++i)
            broker->memory().raiseEvent("K", i);
    });
    for (int round = 0; round < 20; ++round) {
        listen([] {});
        called.get_future().wait();
        module.reset();
        EXPECT_EQ(trace.calls.back(), "~");
    }
    done = true;
    storm.join();
    EXPECT_THAT(log.lines(vo::LogLevel::error), IsEmpty());
}

TEST_F(RealModuleTest, ModuleMayBeDestroyedByItsOwnCallback)
{
    listen([this] { module.reset(); });
    auto thread = called.get_future();
    for (int i = 0; i < 3; ++i)
        broker->memory().raiseEvent("K", i);
    EXPECT_NE(thread.get(), std::this_thread::get_id());
    EXPECT_THAT(trace.calls, ElementsAre("K=0 m", "~"));
}

}  // namespace
}  // namespace KR
