#include <future>
#include <memory>
#include <optional>
#include <thread>

#include "platform/vo/CallbackGate.h"
#include "platform/vo/Connection.h"
#include "platform/vo/Log.h"
#include "platform/vo/Property.h"
#include "platform/vo/ServiceObject.h"
#include "platform/vo/Signal.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"

using vo::CallbackGate;
using vo::Connection;
using vo::Property;
using vo::Signal;

namespace {

// Real threads: that somebody waits for another thread cannot be seen with one.
TEST(CallbackGateTest, closeWaitsForTheRunsInProgressButItsOwnAndThoseThatCloseItToo)
{
    const Deadline deadline("the gate's closing");
    for (const bool bothClose : {false, true}) {
        CallbackGate gate;
        std::promise<void> begun;
        bool ended = false;  // no atomic: the gate alone orders the accesses
        const auto run = std::async(std::launch::async, [&] {
            const CallbackGate::Pass pass(gate);
            begun.set_value();
            while (!gate.isClosed())
                std::this_thread::yield();
            if (bothClose)
                gate.close();
            letOthersRun();
            ended = true;
        });
        await("the run", begun);
        EXPECT_FALSE(gate.isInside());
        const CallbackGate::Pass own(gate);
        EXPECT_TRUE(gate.close());
        EXPECT_TRUE(bothClose || ended);
        EXPECT_TRUE(!gate.close() && gate.isInside());
        EXPECT_FALSE(CallbackGate::Pass(gate));
    }
}

struct SignalTest : testing::Test {
    Signal<int>::Callback note(const std::string& name)
    {
        return [this, name](int v) { calls.push_back(name + std::to_string(v)); };
    }

    const Deadline deadline;
    vo::LogCapture log;
    std::vector<std::string> calls;
    Signal<int> signal;
};

TEST_F(SignalTest, callsComeInOrderThoughOneFailsAndMayDisconnectAndConnectReceivers)
{
    const auto held = std::make_shared<int>();
    Connection self;
    Connection next;
    Connection added;
    EXPECT_FALSE(added.isConnected() || added.disconnect());
    self = signal.connect([&, held](int v) {
        note("self")(v);
        EXPECT_TRUE(self.disconnect());
        EXPECT_FALSE(self.disconnect() || self.isConnected());
        next = Connection();
        added = signal.connect(note("new"));
        signal(v + 1);
    });
    next = signal.connect(note("next"));
    Connection taken = signal.connect([](int) { throw std::runtime_error("broken"); });
    const Connection broken = std::move(taken);
    const Connection last = signal.connect(note("last"));
    signal(1);
    EXPECT_THAT(calls, ElementsAre("self1", "last2", "new2", "last1"));
    EXPECT_EQ(held.use_count(), 1) << "nothing of it is kept";
    EXPECT_FALSE(self.disconnect() || next.isConnected());
    EXPECT_TRUE(added.isConnected());
    EXPECT_EQ(log.count(vo::LogLevel::error, "broken"), 2u);
}

TEST_F(SignalTest, aSignalThatIsDestroyedInACallCallsNobodyElse)
{
    auto doomed = std::make_optional<Signal<int>>();
    const Connection first = doomed->connect([&](int) { doomed.reset(); });
    Connection next = doomed->connect(note("next"));
    (*doomed)(1);
    EXPECT_FALSE(first.isConnected() || next.isConnected() || next.disconnect());
    EXPECT_THAT(calls, IsEmpty());
}

// Real threads, as above. The receiver sees that it was disconnected when a call that it makes
// itself does not reach it.
TEST_F(SignalTest, everyDisconnectReturnsAfterTheCallInProgress)
{
    vo::ServiceObject object("Battery");
    object.signal("onEmpty", signal);
    for (const bool byName : {false, true}) {
        std::promise<void> begun;
        bool reached = false;
        bool ended = false;
        bool first = true;
        std::future<bool> second;
        Connection connection;
        const auto call = [&](const auto&) {
            reached = true;
            if (!std::exchange(first, false))
                return;
            begun.set_value();
            do {
                reached = false;
                signal(0);
            } while (reached);
            connection.disconnect();  // its own waits for nobody
            std::promise<void> trying;
            second = std::async(std::launch::async, [&] {
                trying.set_value();
                connection.disconnect();
                return ended;
            });
            await("the second thread", trying);
            letOthersRun();
            ended = true;
        };
        connection = byName ? object.connect("onEmpty", call) : signal.connect(call);
        auto emission = std::async(std::launch::async, [&] { signal(1); });
        await("the call", begun);
        connection.disconnect();
        EXPECT_TRUE(ended);
        emission.get();
        EXPECT_TRUE(second.get());
    }
}

TEST(PropertyTest, followersAreToldOfChangesAndOfOneInAFollowerAfterTheOneInProgress)
{
    Property<int> property(0);
    vo::Future<void> nested;
    std::vector<int> told;
    const Connection setter = property.connect([&](int v) {
        if (v == 1) {
            nested = property.set(2);
            EXPECT_TRUE(nested.isRunning());
            EXPECT_EQ(property.get(), 2);
        }
    });
    Connection teller = property.connect([&](int v) { told.push_back(v); });
    for (const int value : {0, 1, 2})
        EXPECT_TRUE(property.set(value).hasValue());
    EXPECT_TRUE(nested.hasValue());
    EXPECT_TRUE(teller.disconnect());
    property.set(3);
    EXPECT_THAT(told, ElementsAre(1, 2));
}

}  // namespace
