#include <future>
#include <memory>
#include <optional>
#include <thread>

#include "platform/vo/CallbackGate.h"
#include "platform/vo/Log.h"
#include "platform/vo/Property.h"
#include "platform/vo/ServiceObject.h"
#include "platform/vo/Signal.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"

using vo::CallbackGate;
using vo::Property;
using vo::Signal;

namespace {

// Real threads: that somebody waits for another thread cannot be seen with one.
TEST(CallbackGateTest, closeReturnsAfterTheRunsInProgressButItsOwn)
{
    const Deadline deadline("the gate's closing");
    for (const bool fromInside : {false, true}) {
        SCOPED_TRACE(fromInside);
        CallbackGate gate;
        std::promise<void> begun;
        bool ended = false;  // no atomic: the gate alone orders the accesses
        const auto run = std::async(std::launch::async, [&] {
            const CallbackGate::Pass pass(gate);
            begun.set_value();
            while (!gate.isClosed())
                std::this_thread::yield();
            letOthersRun();
            ended = true;
        });
        await("the run", begun);
        std::optional<CallbackGate::Pass> own;
        if (fromInside)
            own.emplace(gate);

        EXPECT_TRUE(gate.close());
        EXPECT_TRUE(ended);
        EXPECT_FALSE(gate.close());
        EXPECT_EQ(gate.isInside(), fromInside);
        EXPECT_FALSE(CallbackGate::Pass(gate));
    }
}

class SignalTest : public testing::Test {
protected:
    Signal<int>::Callback note(const std::string& name)
    {
        return [this, name](int v) { calls.push_back(name + std::to_string(v)); };
    }

    const Deadline deadline;
    vo::LogCapture log;
    std::vector<std::string> calls;
    Signal<int> signal;
};

TEST_F(SignalTest, receiversAreCalledInOrderOfConnectionAndAFailingOneStopsNoOther)
{
    signal.connect(note("a"));
    signal.connect([](int) { throw std::runtime_error("broken"); });
    const vo::SignalLink last = signal.connect(note("c"));
    signal(1);
    EXPECT_TRUE(signal.disconnect(last));
    EXPECT_FALSE(signal.disconnect(last));
    EXPECT_FALSE(signal.disconnect(vo::kInvalidSignalLink));
    signal(2);
    EXPECT_THAT(calls, ElementsAre("a1", "c1", "a2"));
    EXPECT_EQ(log.count(vo::LogLevel::error, "broken"), 2u);
}

TEST_F(SignalTest, aCallMayDisconnectWhoIsNotCalledThenAndConnectWhoIsCalledNextTime)
{
    const auto held = std::make_shared<int>();
    vo::SignalLink self = 0;
    vo::SignalLink next = 0;
    self = signal.connect([&, held](int v) {
        note("self")(v);
        EXPECT_TRUE(signal.disconnect(self));
        EXPECT_FALSE(signal.disconnect(self));
        EXPECT_TRUE(signal.disconnect(next));
        signal.connect(note("new"));
        signal(v + 1);
    });
    next = signal.connect(note("next"));
    signal.connect(note("last"));
    signal(1);
    EXPECT_THAT(calls, ElementsAre("self1", "last2", "new2", "last1"));
    EXPECT_EQ(held.use_count(), 1) << "nothing of it is kept";
    EXPECT_FALSE(signal.disconnect(self));
}

TEST_F(SignalTest, aSignalThatIsDestroyedInACallCallsNobodyElse)
{
    auto doomed = std::make_optional<Signal<int>>();
    doomed->connect([&](int) { doomed.reset(); });
    const auto undo = doomed->connectWithUndo(note("next"));
    (*doomed)(1);
    undo();
    EXPECT_THAT(calls, IsEmpty());

    const auto undoFirst = signal.connectWithUndo(note("first"));
    signal.connect(note("second"));
    undoFirst();
    undoFirst();
    signal(2);
    EXPECT_THAT(calls, ElementsAre("second2"));
}

// Real threads, as above. The receiver sees that it was disconnected when a call that it makes
// itself does not reach it.
TEST_F(SignalTest, everyDisconnectReturnsAfterTheCallInProgress)
{
    vo::ServiceObject object("Battery");
    object.signal("onEmpty", signal);
    using Undo = std::function<void()>;
    const std::function<Undo(const std::function<void()>&)> connectors[] = {
        [&](const auto& call) { return signal.connectWithUndo([call](int) { call(); }); },
        [&](const auto& call) {
            return object.connect("onEmpty", [call](const auto&) { call(); });
        },
    };
    for (const auto& connect : connectors) {
        std::promise<void> begun;
        bool reached = false;
        bool ended = false;
        bool first = true;
        std::future<bool> second;
        Undo undo;
        undo = connect([&] {
            if (!std::exchange(first, false)) {
                reached = true;
                return;
            }
            begun.set_value();
            do {
                reached = false;
                signal(0);
            } while (reached);
            undo();  // its own waits for nobody
            std::promise<void> trying;
            second = std::async(std::launch::async, [&] {
                trying.set_value();
                undo();
                return ended;
            });
            await("the second thread", trying);
            letOthersRun();
            ended = true;
        });
        auto emission = std::async(std::launch::async, [&] { signal(1); });
        await("the call", begun);
        undo();
        EXPECT_TRUE(ended);
        emission.get();
        EXPECT_TRUE(second.get());
    }
}

TEST_F(SignalTest, destructionReturnsAfterTheCallsInProgress)
{
    auto doomed = std::make_optional<Signal<int>>();
    std::promise<void> begun;
    bool ended = false;
    doomed->connect([&](int) {
        begun.set_value();
        letOthersRun();
        ended = true;
    });
    const auto emission = std::async(std::launch::async, [&] { (*doomed)(1); });
    await("the call", begun);
    doomed.reset();
    EXPECT_TRUE(ended);
}

TEST(PropertyTest, followersAreToldOfChangesOnly)
{
    Property<std::string> property("a");
    std::vector<std::string> told;
    const vo::SignalLink link = property.connect([&](const std::string& v) { told.push_back(v); });
    EXPECT_TRUE(property.set("a").hasValue());
    EXPECT_TRUE(property.set("b").hasValue());
    EXPECT_TRUE(property.disconnect(link));
    property.set("c");
    EXPECT_THAT(told, ElementsAre("b"));
    EXPECT_EQ(property.get(), "c");
}

TEST(PropertyTest, aSetInAFollowerIsToldToAllAfterTheOneInProgress)
{
    Property<int> property(0);
    vo::Future<void> nested;
    std::vector<int> told;
    property.connect([&](int v) {
        if (v == 1) {
            nested = property.set(2);
            EXPECT_TRUE(nested.isRunning());
            EXPECT_EQ(property.get(), 2);
        }
    });
    property.connect([&](int v) { told.push_back(v); });
    EXPECT_TRUE(property.set(1).hasValue());
    EXPECT_THAT(told, ElementsAre(1, 2));
    EXPECT_TRUE(nested.hasValue());
}

// Real threads: one sets while another tells.
TEST(PropertyTest, setsOfTwoThreadsAreToldInTheirOrderOneAtATime)
{
    const Deadline deadline("the end of all sets");
    constexpr int kSets = 2000;
    Property<int> property(0);
    std::vector<int> told;  // no lock: the property tells one at a time
    property.connect([&](int v) { told.push_back(v); });
    const auto setAll = [&](int sign) {
        vo::Future<void> last;
        for (int i = 1; i <= kSets; ++i)
            last = property.set(sign * i);
        last.wait();
    };
    auto other = std::async(std::launch::async, setAll, -1);
    setAll(1);
    other.get();

    ASSERT_EQ(told.size(), 2u * kSets);
    EXPECT_EQ(told.back(), property.get());
    int up = 0;
    int down = 0;
    for (const int v : told) {
        int& last = v > 0 ? up : down;
        EXPECT_EQ(std::abs(v), std::abs(last) + 1);
        last = v;
    }
}

}  // namespace
