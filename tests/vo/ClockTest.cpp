#include <algorithm>
#include <future>

#include "platform/vo/Executor.h"
#include "platform/vo/Log.h"
#include "platform/vo/VirtualClock.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"

using namespace std::chrono_literals;
using vo::Clock;
using vo::Duration;
using vo::TimePoint;
using vo::VirtualClock;

namespace {

const TimePoint kStart{std::chrono::hours(24 * 20000)};

// What every executor promises. The real ones need real threads to prove their wiring; their tests
// wait for what tasks signal, and for nothing longer than a millisecond's timer.
class ExecutorTest : public testing::TestWithParam<std::string> {
protected:
    std::shared_ptr<vo::Executor> makeExecutor(const std::string& name = "tested")
    {
        return clock->makeExecutor(
            name, GetParam() == "own" ? Clock::Threading::own : Clock::Threading::shared);
    }

    // Lets virtual time pass on a thread of its own, as real time does.
    std::future<void> letTimePass(Duration duration = 0us)
    {
        return std::async(std::launch::async, [this, duration] {
            if (virtualClock)
                virtualClock->advance(duration);
        });
    }

    // Runs everything that is due now.
    void finish(vo::Executor& executor)
    {
        std::promise<void> last;
        executor.post([&] { last.set_value(); });
        letTimePass().get();
        await("the last task", last);
    }

    const Deadline deadline;
    std::shared_ptr<VirtualClock> virtualClock =
        GetParam() == "virtual" ? std::make_shared<VirtualClock>(kStart) : nullptr;
    std::shared_ptr<Clock> clock =
        virtualClock ? std::shared_ptr<Clock>(virtualClock) : vo::makeRealClock();
};

INSTANTIATE_TEST_SUITE_P(Clocks, ExecutorTest, testing::Values("virtual", "shared", "own"),
                         [](const auto& world) { return world.param; });

TEST_P(ExecutorTest, tasks_of_many_posters_run_one_at_a_time_and_in_each_posters_order)
{
    const auto executor = makeExecutor();
    std::vector<int> seen;  // unprotected: a second task at the same time is a race
    const auto post = [&](int from) {
        for (int i = from; i < from + 333; ++i) {
            executor->post([&seen, i] { seen.push_back(i); });
            if (from == 0 && i % 10 == 0)
                finish(*executor);
        }
    };
    auto other = std::async(std::launch::async, post, 999);
    post(0);
    other.get();
    finish(*executor);
    ASSERT_EQ(seen.size(), 666U);
    std::stable_partition(seen.begin(), seen.end(), [](int i) { return i < 999; });
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
}

TEST_P(ExecutorTest, delayed_tasks_run_when_due_whatever_else_waits)
{
    const auto executor = makeExecutor();
    std::promise<Duration> ran;
    std::promise<Duration> next;
    executor->post([] { FAIL() << "eternity has not passed"; }, Duration::max());
    const auto late = executor->post([] { FAIL() << "an hour has not passed"; }, 1h);
    const Duration before = clock->uptime();
    const Duration rough = clock->roughUptime();
    const Duration due = clock->uptime() + 1ms;
    EXPECT_TRUE(before - 500ms < rough && rough + 1ms <= due) << "a little late, never early";
    executor->post([&] { ran.set_value(clock->uptime()); }, 1ms);
    executor->post([&] { next.set_value(clock->uptime()); }, 2ms);
    const auto passing = letTimePass(2ms);
    EXPECT_GE(await("the first task", ran), due);
    EXPECT_GE(await("the task behind it", next), due + 1ms);
    EXPECT_FALSE(makeExecutor("other")->cancel(late));
    EXPECT_TRUE(executor->cancel(late));
    EXPECT_FALSE(executor->cancel(late));
}

TEST_P(ExecutorTest, cancelled_tasks_leave_those_around_them_alone)
{
    const auto executor = makeExecutor();
    std::vector<vo::Executor::TaskId> tasks;
    std::vector<int> seen;
    std::promise<void> cancelled;
    executor->post([&] { await("the cancelling", cancelled); });
    for (int i = 0; i < 300; ++i)
        tasks.push_back(executor->post([&, i] {
            seen.push_back(i);
            if (i == 200) {
                EXPECT_TRUE(!executor->cancel(tasks[200]) && executor->cancel(tasks[202]));
            }
        }));
    for (const int i : {0, 100, 299})
        EXPECT_TRUE(executor->cancel(tasks[i])) << i;
    EXPECT_FALSE(executor->cancel(tasks[100]));
    const auto passing = letTimePass();
    cancelled.set_value();
    finish(*executor);
    EXPECT_EQ(seen.size(), 296U);
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
    EXPECT_FALSE(executor->cancel(tasks[1])) << "it has run";
}

TEST_P(ExecutorTest, close_drops_what_waits_and_waits_for_what_runs)
{
    const auto executor = makeExecutor();
    std::promise<void> begun;
    std::promise<void> dropped;
    bool ended = false;
    executor->post([&] {
        begun.set_value();
        await("the drop of what waits", dropped);
        ended = true;
    });
    // Their last holder is the queue: when close() drops them all, the running task may end.
    std::shared_ptr<void> signal(nullptr, [&](void*) { dropped.set_value(); });
    for (int i = 0; i < 1000; ++i)
        executor->post([signal] { FAIL() << "dropped"; });
    signal.reset();
    const auto passing = letTimePass();
    await("the task's begin", begun);
    EXPECT_FALSE(executor->isCurrent());
    executor->close();
    EXPECT_TRUE(ended);
    EXPECT_EQ(executor->post([] { FAIL() << "refused"; }), 0u);
    executor->close();
}

TEST_P(ExecutorTest, task_may_throw_or_close_and_destroy_its_own_executor)
{
    const vo::LogCapture log;
    auto executor = makeExecutor("arms");
    std::promise<void> destroyed;
    executor->post([] { throw std::runtime_error("out of reach"); });
    executor->post([] { throw 5; });
    executor->post([] { FAIL() << "dropped"; }, 1h);
    executor->post([&] {
        EXPECT_TRUE(executor->isCurrent());
        executor->close();
        executor.reset();
        destroyed.set_value();
    });
    letTimePass().get();
    await("the executor's end", destroyed);
    EXPECT_THAT(log.lines(vo::LogLevel::error),
                ElementsAre("Executor/arms: out of reach", "Executor/arms: unknown exception"));
}

TEST(RealClockTest, work_without_end_is_waited_for_no_longer_than_its_limit)
{
    const Deadline deadline("the end of the waits");
    const auto clock = vo::makeRealClock();
    const auto released = std::make_shared<std::promise<void>>();
    std::promise<void> ended;
    EXPECT_FALSE(clock->runWithin(1ms, [&ended, end = released->get_future().share()] {
        end.wait();
        ended.set_value();
    }));
    released->set_value();
    await("the end of the work that goes on", ended);
    EXPECT_TRUE(clock->runWithin(1h, [] {}));
}

struct VirtualClockTest : testing::Test {
    // A task that notes its name and when it ran.
    vo::Executor::Task note(const std::string& name)
    {
        return [=] { seen.push_back(name + "@" + std::to_string(clock.uptime().count())); };
    }
    std::vector<std::string> seen;
    VirtualClock clock{kStart, 100};
    std::shared_ptr<vo::Executor> first = clock.makeExecutor("first", Clock::Threading::own);
    std::shared_ptr<vo::Executor> second = clock.makeExecutor("second", Clock::Threading::shared);
};

TEST_F(VirtualClockTest, all_executors_run_in_order_of_due_time_then_of_posting)
{
    first->post(note("c"), 30us);
    second->post(note("a"), 10us);
    second->post(note("d"), 30us);
    first->post(note("b"), 10us);
    first->post(note("past"), -5us);
    first->post(
        [&] {
            first->post(note("later"), 5us);
            second->post(note("same instant"));
            EXPECT_TRUE(first->isCurrent() && !second->isCurrent());
            note("a'")();
        },
        10us);
    second->post(note("b'"), 10us);
    clock.advance(30us);
    EXPECT_THAT(seen, ElementsAre("past@0", "a@10", "b@10", "a'@10", "b'@10", "same instant@10",
                                  "later@15", "c@30", "d@30"));
}

TEST_F(VirtualClockTest, what_an_executor_or_the_clock_drops_is_gone_and_the_rest_runs)
{
    const auto held = std::make_shared<int>();
    for (const auto& executor : {first, second, first}) {
        executor->post([this, held] { note("now")(); });
        executor->post([this, held] { note("later")(); }, 1us);
    }
    first->close();
    EXPECT_EQ(held.use_count(), 3);
    clock.advance(1us);
    EXPECT_THAT(seen, ElementsAre("now@0", "later@1"));

    auto other = std::make_unique<VirtualClock>(kStart);
    const auto executor = other->makeExecutor("its own", Clock::Threading::own);
    executor->post([executor, held] {});
    other.reset();
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(VirtualClockTest, advance_includes_its_last_instant_and_nothing_after)
{
    EXPECT_EQ(clock.untilNextTask(), std::nullopt);
    first->post(note("at"), 10us);
    first->post(note("after"), 11us);
    first->post([&] { EXPECT_THROW(clock.advance(1us), std::logic_error); });
    EXPECT_THROW(clock.advance(-1us), std::invalid_argument);
    clock.advance(4us);
    clock.jumpWallClock(-1h);  // of no concern to delays
    EXPECT_EQ(clock.untilNextTask(), 6us);
    clock.advance(6us);
    EXPECT_THAT(seen, ElementsAre("at@10"));
    EXPECT_EQ(clock.now(), kStart + 10us - 1h);
}

TEST_F(VirtualClockTest, more_tasks_than_are_allowed_at_one_instant_end_the_advance)
{
    int ran = 0;
    const auto post = [&](int tasks, Duration delay) {
        for (int i = 0; i < tasks; ++i)
            first->post([&] { ++ran; }, delay);
    };
    post(101, 0us);
    EXPECT_THROW(clock.runPending(), std::runtime_error);
    EXPECT_EQ(ran, 100);
    post(99, 0us);
    EXPECT_NO_THROW(clock.runPending()) << "each advance counts anew";
    for (const Duration delay : {0us, 1us, 2us})
        post(100, delay);
    EXPECT_NO_THROW(clock.advance(2us)) << "and each instant";
    EXPECT_EQ(ran, 500);
}

}  // namespace
