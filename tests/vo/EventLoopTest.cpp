#include <future>
#include <limits>
#include <optional>
#include <thread>

#include "platform/vo/Application.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Session.h"
#include "platform/vo/VirtualClock.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"

using namespace std::chrono_literals;

namespace {

struct EventLoopTest : testing::Test {
    vo::VirtualClock clock{vo::TimePoint()};
    vo::EventLoop loop{clock.makeExecutor("loop", vo::Clock::Threading::own)};
};

TEST_F(EventLoopTest, function_runs_after_its_delay_and_ends_its_future_with_the_result)
{
    std::vector<int> order;
    loop.async([&] { order.push_back(2); }, 10);
    const auto inside = loop.async([&] { return loop.isInEventLoopThread(); }, 10);
    const auto owned = loop.async([number = std::make_unique<int>(4)] { return *number; }, 10);
    loop.async([&] { order.push_back(1); });
    const auto never = loop.async([] {}, std::numeric_limits<std::uint64_t>::max());
    clock.advance(9us);
    EXPECT_THAT(order, ElementsAre(1));
    EXPECT_TRUE(inside.isRunning());
    clock.advance(1us);
    EXPECT_THAT(order, ElementsAre(1, 2));
    EXPECT_TRUE(inside.value() && !loop.isInEventLoopThread());
    EXPECT_EQ(owned.value(), 4);
    EXPECT_TRUE(never.isRunning());
}

TEST_F(EventLoopTest, cancel_prevents_what_has_not_begun_and_leaves_the_rest_alone)
{
    const auto held = std::make_shared<int>();
    std::vector<int> ran;
    std::vector<vo::Future<void>> ends;
    for (int i = 0; i < 3; ++i)
        ends.push_back(loop.async([&ran, held, i] { ran.push_back(i); }, 5));
    ends[1].cancel();
    EXPECT_TRUE(ends[1].isCanceled());
    EXPECT_EQ(held.use_count(), 3);
    vo::Future<int> self;
    self = loop.async([&self] {
        self.cancel();
        return 1;
    });
    clock.advance(5us);
    EXPECT_EQ(self.value(), 1);
    EXPECT_THAT(ran, ElementsAre(0, 2));
}

TEST_F(EventLoopTest, closing_cancels_and_every_function_is_gone_when_its_future_ends)
{
    const auto held = std::make_shared<int>();
    std::vector<long> holders;
    const auto note = [&](const auto&) { holders.push_back(held.use_count()); };
    loop.async([held] { return 1; }).then(note);
    const auto failed = loop.async([held] { throw std::runtime_error("no power"); });
    failed.then(note);
    const auto waiting = loop.async([held] {}, 10);
    waiting.then(note);
    clock.runPending();
    loop.close();
    EXPECT_EQ(failed.error(), "no power");
    EXPECT_TRUE(waiting.isCanceled());
    EXPECT_THAT(holders, ElementsAre(3, 2, 1));  // this test, and the functions still to come
    EXPECT_TRUE(loop.async([] { return 1; }).isCanceled());
}

// Real threads: its end finds both queues at work.
TEST(ApplicationTest, services_are_there_until_the_queues_have_ended)
{
    const Deadline deadline("the application's end");
    std::optional<vo::Application> application(std::in_place, vo::makeRealClock());
    auto arm = std::make_shared<vo::ServiceObject>("Arm");
    arm->method("length", [] { return 7; });
    application->session().registerService(arm);
    std::promise<void> begun[2];
    std::vector<int> lengths;  // unprotected: the loop's end comes first
    const auto work = [&](std::promise<void>& promise, const auto& isOpen) {
        promise.set_value();
        while (isOpen())
            std::this_thread::yield();
        letOthersRun();
        lengths.push_back(vo::import("Arm").call<int>("length"));
    };
    vo::EventLoop& loop = application->eventLoop();
    vo::Executor& signals = application->signalExecutor();
    loop.async([&] { work(begun[0], [&] { return !loop.async([] {}).isCanceled(); }); });
    signals.post([&] { work(begun[1], [&] { return signals.post([] {}) != 0; }); });
    for (std::promise<void>& each : begun)
        await("the work", each);
    application.reset();
    EXPECT_THAT(lengths, ElementsAre(7, 7));
}

}  // namespace
