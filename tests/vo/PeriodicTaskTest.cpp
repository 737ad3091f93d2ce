#include <future>
#include <optional>
#include <thread>

#include "platform/vo/Application.h"
#include "platform/vo/Log.h"
#include "platform/vo/PeriodicTask.h"
#include "platform/vo/VirtualClock.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"

using namespace std::chrono_literals;

namespace {

struct PeriodicTaskTest : testing::Test {
    PeriodicTaskTest()
    {
        task->setName("poll");
        task->setCallback([this] {
            times.push_back(static_cast<int>(clock->uptime().count()));
            if (body)
                body();
        });
        task->setUsPeriod(10);
    }

    const Deadline deadline;
    vo::LogCapture log;
    std::shared_ptr<vo::VirtualClock> clock = std::make_shared<vo::VirtualClock>(vo::TimePoint());
    std::optional<vo::Application> application{std::in_place, clock};
    std::vector<int> times;
    std::function<void()> body;
    std::unique_ptr<vo::PeriodicTask> task = std::make_unique<vo::PeriodicTask>();
};

// Virtual time stands still during a run, so when the next one is put in line tells from what its
// period counts.
TEST_F(PeriodicTaskTest, a_period_counts_from_the_end_of_a_run_or_its_start_and_runs_may_throw)
{
    std::vector<std::optional<vo::Duration>> next;
    body = [&] {
        next.push_back(clock->untilNextTask());
        throw std::runtime_error("no reading");
    };
    for (const bool compensate : {false, true}) {
        task->compensateCallbackTime(compensate);
        task->start(!compensate);
        task->start(compensate);  // runs already
        clock->advance(20us);
        EXPECT_EQ(clock->untilNextTask(), 10us);
        task->stop();
        EXPECT_EQ(clock->untilNextTask(), std::nullopt);
    }
    EXPECT_THAT(times, ElementsAre(0, 10, 20, 30, 40)) << "at once, or after a period";
    EXPECT_THAT(next, ElementsAre(std::nullopt, std::nullopt, std::nullopt, 10us, 10us));
    EXPECT_THAT(log.lines(vo::LogLevel::error), testing::Each("PeriodicTask/poll: no reading"));
    EXPECT_EQ(log.count(vo::LogLevel::error, "no reading"), 5u);
}

TEST_F(PeriodicTaskTest, set_up_is_checked_and_closed_to_a_running_task)
{
    vo::PeriodicTask bare;
    EXPECT_THROW(bare.start(), std::logic_error);
    bare.setCallback([] {});
    EXPECT_THROW(bare.start(), std::logic_error);
    EXPECT_THROW(bare.setUsPeriod(0), std::invalid_argument);

    const std::function<void()> setters[] = {
        [&] { task->setName("other"); },
        [&] { task->setCallback([] {}); },
        [&] { task->setUsPeriod(5); },
        [&] { task->compensateCallbackTime(true); },
    };
    task->start();
    for (const auto& set : setters)
        EXPECT_EQ(errorOf<std::logic_error>(set), "periodic task 'poll' is running");
    task->stop();
    task->stop();
    for (const auto& set : setters)
        set();
    clock->advance(20us);
    EXPECT_THAT(times, IsEmpty());
    EXPECT_THROW(vo::Application second(clock), std::logic_error) << "there is one at a time";
    application.reset();
    EXPECT_THAT(errorOf<std::logic_error>([&] { task->start(); }), HasSubstr("no Application"));
    EXPECT_FALSE(task->isRunning());
}

TEST_F(PeriodicTaskTest, run_may_stop_replace_restart_or_destroy_its_own_task)
{
    for (const bool compensate : {false, true}) {
        times.clear();
        body = [&] {
            task->stop();
            task->setUsPeriod(7);
            if (times.size() < 3)
                task->start(times.size() == 2);
        };
        task->compensateCallbackTime(compensate);
        const auto begin = static_cast<int>(clock->uptime().count());
        task->start();
        clock->advance(100us);
        EXPECT_THAT(times, ElementsAre(begin, begin + 7, begin + 7));
        EXPECT_EQ(clock->untilNextTask(), std::nullopt);
    }

    body = [this] { task.reset(); };
    task->start();
    clock->advance(100us);
    EXPECT_EQ(times.size(), 4u);
}

// The rest needs real threads: stopping is about a run in progress on another one.
struct PeriodicTaskThreadsTest : testing::Test {
    PeriodicTaskThreadsTest() { task.setUsPeriod(1); }
    void awaitStop() const
    {
        while (task.isRunning())
            std::this_thread::yield();
    }
    const Deadline deadline;
    vo::Application application{vo::makeRealClock()};
    vo::PeriodicTask task;
};

TEST_F(PeriodicTaskThreadsTest, every_stop_waits_for_the_run_in_progress_but_its_own)
{
    std::promise<void> begun;
    std::promise<void> trying;
    bool inRun = true;  // unprotected: a stop that does not wait races with the run
    task.setCallback([&] {
        begun.set_value();
        awaitStop();
        task.stop();
        await("the second stop", trying);
        letOthersRun();
        inRun = false;
    });
    const auto stop = [&] {
        task.stop();
        return inRun;
    };
    task.start();
    await("the run", begun);
    auto other = std::async(std::launch::async, stop);
    letOthersRun();
    trying.set_value();
    EXPECT_FALSE(stop());
    EXPECT_FALSE(await("the other stop", other));
}

TEST_F(PeriodicTaskThreadsTest, start_during_a_stop_begins_anew_after_the_run_in_progress)
{
    std::promise<void> begun[2];
    std::promise<void> mayEnd[2];
    int runs = 0;  // unprotected: two runs at a time are a race
    bool inRun = false;
    task.setCallback([&] {
        EXPECT_FALSE(std::exchange(inRun, true));
        if (const int run = runs++; run < 2) {
            begun[run].set_value();
            await(run == 0 ? "the start" : "the stop, which is not for it", mayEnd[run]);
            letOthersRun();
        }
        inRun = false;
    });
    task.start();
    await("the run", begun[0]);
    const auto stop = std::async(std::launch::async, [&] {
        task.stop();
        mayEnd[1].set_value();
    });
    awaitStop();
    task.start(false);
    mayEnd[0].set_value();
    await("the run after the start", begun[1]);
    EXPECT_TRUE(task.isRunning());
    task.stop();
}

}  // namespace
