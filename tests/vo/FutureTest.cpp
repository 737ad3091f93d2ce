
#include "platform/vo/Future.h"
#include "platform/vo/Log.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"

using vo::Future;
using vo::Promise;

namespace {

std::string outcome(const Future<int>& future)
{
    if (future.isRunning())
        return "running";
    try {
        return "value " + std::to_string(future.value());
    } catch (const vo::FutureCanceled&) {
        return "canceled";
    } catch (const std::exception& error) {
        return std::string("error ") + error.what();
    }
}

TEST(FutureTest, first_ending_is_final)
{
    const auto lost = std::make_exception_ptr(std::runtime_error("lost"));
    const std::pair<const char*, std::function<bool(const Promise<int>&)>> endings[] = {
        {"value 7", [](const auto& promise) { return promise.setValue(7); }},
        {"error lost", [&](const auto& promise) { return promise.setError(lost); }},
        {"canceled", [](const auto& promise) { return promise.setCanceled(); }},
    };
    for (const auto& [expected, end] : endings) {
        SCOPED_TRACE(expected);
        const Promise<int> promise;
        EXPECT_EQ(outcome(promise.future()), "running");
        EXPECT_TRUE(end(promise));
        for (const auto& late : endings)
            EXPECT_FALSE(late.second(promise));
        EXPECT_EQ(outcome(promise.future()), expected);
        EXPECT_EQ(promise.future().error(), promise.future().hasError() ? "lost" : "");
    }
    const Promise<void> odd;
    odd.setError(std::make_exception_ptr(5));
    EXPECT_EQ(odd.future().error(), "unknown exception");
    EXPECT_FALSE(Future<int>().isValid());
    EXPECT_THROW(Future<int>().wait(), std::logic_error);
}

TEST(FutureTest, what_never_comes_is_cancelled_only_where_it_can_be_prevented)
{
    int asked = 0;
    const std::pair<std::function<bool()>, const char*> rows[] = {
        {nullptr, "running"},
        {[&] { return ++asked == 0; }, "running"},
        {[&] { return ++asked == 1; }, "canceled"}};
    for (const auto& [canceler, expected] : rows) {
        asked = 0;
        const Promise<int> promise;
        if (canceler)
            promise.setCanceler(canceler);
        promise.future().cancel();
        promise.future().cancel();
        EXPECT_EQ(outcome(promise.future()), expected);
        EXPECT_EQ(asked, canceler ? 1 : 0);
    }
    const Promise<int> ended;
    ended.setValue(1);
    ended.setCanceler(rows[2].first);
    ended.future().cancel();
    EXPECT_EQ(outcome(ended.future()), "value 1");
}

// Real threads: that somebody waits cannot be seen with one.
TEST(FutureTest, all_who_wait_go_on_when_it_ends)
{
    const Deadline deadline("the end of both waits");
    const Promise<int> promise;
    std::promise<void> begun[2];
    std::future<int> waits[2];
    for (int i = 0; i < 2; ++i)
        waits[i] = std::async(std::launch::async, [&promise, &begun = begun[i]] {
            begun.set_value();
            return promise.future().value();
        });
    for (std::promise<void>& each : begun)
        each.get_future().get();
    letOthersRun();
    EXPECT_TRUE(promise.setValue(5));
    EXPECT_EQ(waits[0].get() + waits[1].get(), 10);
}

TEST(FutureTest, callbacks_run_at_the_end_in_order_and_after_it_at_once)
{
    const vo::LogCapture log;
    std::vector<std::string> seen;
    const Promise<int> promise;
    const auto future = promise.future();
    future.then([&](const auto& f) { seen.push_back("first " + std::to_string(f.value())); });
    future.then([](const auto&) { throw std::runtime_error("careless"); });
    future.then([&](const auto&) { seen.push_back("second"); });
    EXPECT_TRUE(seen.empty());
    promise.setValue(3);
    future.then([&](const auto&) { seen.push_back("late"); });
    EXPECT_THAT(seen, ElementsAre("first 3", "second", "late"));
    EXPECT_THAT(log.lines(vo::LogLevel::error), ElementsAre("Future/then: careless"));
}

}  // namespace
