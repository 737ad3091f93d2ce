
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
    }
    const Promise<void> odd;
    odd.setError(std::make_exception_ptr(5));
    EXPECT_EQ(odd.future().error(), "unknown exception");
    EXPECT_THROW(Future<int>().wait(), std::logic_error);
}

TEST(FutureTest, what_never_comes_is_cancelled_only_where_it_can_be_prevented)
{
    for (const bool preventable : {false, true}) {
        int asked = 0;
        const Promise<int> promise;
        promise.setCanceler([&] { return ++asked == 1 && preventable; });
        promise.future().cancel();
        promise.future().cancel();
        EXPECT_EQ(outcome(promise.future()), preventable ? "canceled" : "running");
        EXPECT_EQ(asked, 1);
    }
    const Promise<int> promise;
    promise.future().cancel();
    EXPECT_TRUE(promise.setValue(1));
    promise.setCanceler([] { return true; });
    promise.future().cancel();
    EXPECT_EQ(outcome(promise.future()), "value 1");
}

TEST(FutureTest, all_who_wait_go_on_and_callbacks_run_in_order_or_at_once_after_the_end)
{
    const vo::LogCapture log;
    std::vector<int> seen;
    const Promise<int> promise;
    const auto future = promise.future();
    future.then([&](const auto& ended) { seen.push_back(ended.value()); });
    future.then([](const auto&) { throw std::runtime_error("careless"); });
    future.then([&](const auto&) { seen.push_back(2); });
    const auto wait = [future] { return future.value(); };
    std::future<int> waits[] = {std::async(std::launch::async, wait),
                                std::async(std::launch::async, wait)};
    letOthersRun();
    promise.setValue(1);
    future.then([&](const auto&) { seen.push_back(3); });
    EXPECT_EQ(await("the first wait", waits[0]) + await("the second wait", waits[1]), 2);
    EXPECT_THAT(seen, ElementsAre(1, 2, 3));
    EXPECT_THAT(log.lines(vo::LogLevel::error), ElementsAre("Future/then: careless"));
}

}  // namespace
