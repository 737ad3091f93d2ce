
#include "platform/vo/Future.h"
#include "platform/vo/Log.h"
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
    EXPECT_FALSE(Future<int>().isValid());
    EXPECT_THROW(Future<int>().wait(), std::logic_error);
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
