#pragma once

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <functional>
#include <memory>
#include <thread>

namespace KR {

/// The thread on which the outside world is waited for, whatever the robot's clock: programs that
/// print and end, folders that change. There is one for all who need it, while somebody does.
/// What runs on it is short, and throws nothing.
///
/// Thread-safe. Let go of on another thread than this one.
class IoThread {
public:
    static std::shared_ptr<IoThread> shared();
    ~IoThread();
    IoThread(const IoThread&) = delete;
    IoThread& operator=(const IoThread&) = delete;

    boost::asio::io_context& context() { return context_; }

    /// Runs a function on the thread, and returns when it and what was ready to run before it have
    /// ended. Not to be called on the thread.
    void call(const std::function<void()>& function);

private:
    IoThread();

    boost::asio::io_context context_;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_;
    std::thread thread_;
};

}  // namespace KR
