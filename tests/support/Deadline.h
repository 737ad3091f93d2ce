#pragma once

#include <chrono>
#include <cstdlib>
#include <future>
#include <gtest/gtest.h>
#include <iostream>
#include <string>
#include <thread>

/// Bounds a wait. One that goes on for longer than anything in a test can take ends the program and
/// names what did not come: a thread that waits in vain can be neither stopped nor left behind.
class Deadline {
public:
    explicit Deadline(const std::string& awaited = "the end of the test")
        : watch_([awaited, came = came_.get_future()] {
              if (came.wait_for(kLimit) == std::future_status::ready)
                  return;
              const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
              std::cerr << (test ? std::string(test->test_suite_name()) + "." + test->name() : "")
                        << ": this did not come within " << kLimit.count() << " s: " << awaited
                        << std::endl;
              std::_Exit(EXIT_FAILURE);
          })
    {
    }
    ~Deadline()
    {
        came_.set_value();
        watch_.join();
    }

private:
    static constexpr std::chrono::seconds kLimit{60};

    std::promise<void> came_;
    std::thread watch_;
};

/// Some turns of the other threads: a wait that is missing then shows.
inline void letOthersRun()
{
    for (int i = 0; i < 100; ++i)
        std::this_thread::yield();
}

/// Waits for a value, with a deadline.
template <class T>
T await(const std::string& awaited, std::future<T>& future)
{
    const Deadline deadline(awaited);
    return future.get();
}
template <class T>
T await(const std::string& awaited, std::promise<T>& promise)
{
    auto future = promise.get_future();
    return await(awaited, future);
}
