#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <future>
#include <gtest/gtest.h>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

/// Bounds a wait. One that goes on for longer than anything in a test can take ends the program and
/// names what did not come: a thread that waits in vain can be neither stopped nor left behind.
class Deadline {
public:
    explicit Deadline(std::string awaited = "the end of the test")
        : awaited_(std::move(awaited)), watch_([this] { watch(); })
    {
    }
    ~Deadline()
    {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            met_ = true;
        }
        changed_.notify_one();
        watch_.join();
    }
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

private:
    static constexpr std::chrono::seconds kLimit{60};

    void watch()
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (changed_.wait_for(lock, kLimit, [this] { return met_; }))
            return;
        const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
        std::cerr << (test ? std::string(test->test_suite_name()) + "." + test->name() : "")
                  << ": this did not come within " << kLimit.count() << " s: " << awaited_
                  << std::endl;
        std::_Exit(EXIT_FAILURE);
    }

    const std::string awaited_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool met_ = false;
    std::thread watch_;
};

/// Some turns of the other threads: a wait that is missing then shows.
inline void letOthersRun()
{
    for (int i = 0; i < 1000; ++i)
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
