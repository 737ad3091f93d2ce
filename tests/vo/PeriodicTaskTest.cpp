#include <future>
#include <map>
#include <thread>

#include "platform/vo/Application.h"
#include "platform/vo/EventLoop.h"
#include "platform/vo/Executor.h"
#include "platform/vo/Log.h"
#include "platform/vo/PeriodicTask.h"
#include "platform/vo/VirtualClock.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"

using namespace std::chrono_literals;
using testing::Each;

namespace {

// A clock whose tasks take time, by moving it on: a virtual one stands still while a task runs.
class BusyClock : public vo::Clock,
                  public vo::Executor,
                  public std::enable_shared_from_this<BusyClock> {
public:
    vo::TimePoint now() const override { return vo::TimePoint(time); }
    vo::Duration uptime() const override { return time; }
    std::shared_ptr<vo::Executor> makeExecutor(const std::string&, Threading) override
    {
        return shared_from_this();
    }
    bool runWithin(vo::Duration, std::function<void()> work) override
    {
        work();
        return true;
    }
    TaskId post(Task task, vo::Duration delay) override
    {
        tasks_.emplace(time + delay, std::move(task));
        return 1;
    }
    bool cancel(TaskId) override { return false; }
    bool isCurrent() const override { return false; }
    void close() override {}

    void run()
    {
        while (!tasks_.empty()) {
            const auto task = tasks_.extract(tasks_.begin());
            time = std::max(time, task.key());
            task.mapped()();
        }
    }

    vo::Duration time{0};

private:
    std::multimap<vo::Duration, Task> tasks_;
};

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
    vo::Application application{clock};
    std::vector<int> times;
    std::function<void()> body;
    std::unique_ptr<vo::PeriodicTask> task = std::make_unique<vo::PeriodicTask>();
};

TEST(PeriodicTaskTimingTest, next_run_is_a_period_after_the_start_or_the_end_of_the_last)
{
    struct Row {
        const char* description;
        bool compensate;
        std::vector<int> lengths;
        std::vector<int> starts;
    };
    const Row rows[] = {
        {"from the end", false, {3, 3, 0}, {0, 13, 26}},
        {"from the start", true, {3, 9, 0}, {0, 10, 20}},
        {"overrun delays, and is not made up for", true, {35, 3, 0}, {0, 35, 45}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.description);
        const auto clock = std::make_shared<BusyClock>();
        vo::Application application(clock);
        std::vector<int> starts;
        vo::PeriodicTask task;
        task.setUsPeriod(10);
        task.compensateCallbackTime(row.compensate);
        task.setCallback([&] {
            starts.push_back(static_cast<int>(clock->uptime().count()));
            clock->time += vo::Duration(row.lengths[starts.size() - 1]);
            if (starts.size() == row.lengths.size())
                task.stop();
        });
        task.start();
        clock->run();
        EXPECT_EQ(starts, row.starts);
    }
}

TEST_F(PeriodicTaskTest, starts_at_once_or_after_a_period_and_survives_its_exceptions)
{
    body = [] { throw std::runtime_error("no reading"); };
    task->start();
    task->start(false);  // runs already
    EXPECT_TRUE(times.empty());
    clock->advance(20us);
    EXPECT_THAT(times, ElementsAre(0, 10, 20));
    EXPECT_THAT(log.lines(vo::LogLevel::error), Each("PeriodicTask/poll: no reading"));
    EXPECT_EQ(log.count(vo::LogLevel::error, "no reading"), 3u);
    task->stop();
    clock->advance(5us);
    task->start(false);
    clock->advance(10us);
    EXPECT_THAT(times, ElementsAre(0, 10, 20, 35));
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
    EXPECT_TRUE(task->isRunning());
    task->stop();
    task->stop();
    EXPECT_FALSE(task->isRunning());
    for (const auto& set : setters)
        set();
    clock->advance(20us);
    EXPECT_THAT(times, IsEmpty());
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

TEST(PeriodicTaskWithoutApplicationTest, cannot_start)
{
    vo::PeriodicTask task;
    task.setCallback([] {});
    task.setUsPeriod(1);
    EXPECT_THAT(errorOf<std::logic_error>([&] { task.start(); }), HasSubstr("no Application"));
    EXPECT_FALSE(task.isRunning());
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
        await("the other thread", trying);
        letOthersRun();
        inRun = false;
    });
    const auto stop = [&] {
        task.stop();
        return inRun;
    };
    task.start();
    await("the run", begun);
    auto other = std::async(std::launch::async, [&] {
        trying.set_value();
        return stop();
    });
    EXPECT_FALSE(stop());
    EXPECT_FALSE(await("the other stop", other));
}

TEST_F(PeriodicTaskThreadsTest, start_during_a_stop_begins_anew_after_the_run_in_progress)
{
    std::promise<void> begun;
    std::promise<void> started;
    std::promise<void> stopped;
    std::promise<void> again;
    int runs = 0;  // unprotected: two runs at a time are a race
    bool inRun = false;
    task.setCallback([&] {
        EXPECT_FALSE(std::exchange(inRun, true));
        if (++runs == 1) {
            begun.set_value();
            await("the start", started);
            letOthersRun();
        } else if (runs == 2) {
            await("the stop, which is not for the new start", stopped);
            again.set_value();
        }
        inRun = false;
    });
    task.start();
    await("the run", begun);
    const auto stop = std::async(std::launch::async, [&] {
        task.stop();
        stopped.set_value();
    });
    awaitStop();
    task.start(false);
    started.set_value();
    await("the run after the start", again);
    EXPECT_TRUE(task.isRunning());
}

TEST_F(PeriodicTaskThreadsTest, task_restarted_by_its_own_run_has_one_run_at_a_time)
{
    int runs = 0;  // unprotected: two runs at a time are a race
    std::promise<void> done;
    task.setCallback([&] {
        task.stop();
        if (runs < 100)
            task.start();
        else
            done.set_value();
        ++runs;
    });
    task.start();
    await("the last run", done);
    task.stop();
    EXPECT_EQ(runs, 101);
}

}  // namespace
