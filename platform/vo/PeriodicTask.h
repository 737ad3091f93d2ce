#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace vo {

/// Runs a callback again and again.
///
///     stopped --start()--> running --stop()--> stopped
///
/// One run at a time; an exception that leaves a run is logged and the task goes on. Set it up
/// while it is stopped: a setter on a running task raises std::logic_error.
///
/// Thread-safe. Destruction stops the task.
class PeriodicTask {
public:
    PeriodicTask();
    ~PeriodicTask();
    PeriodicTask(const PeriodicTask&) = delete;
    PeriodicTask& operator=(const PeriodicTask&) = delete;

    /// The name is for logs.
    void setName(const std::string& name);
    void setCallback(std::function<void()> callback);
    /// Period in microseconds, at least 1; std::invalid_argument for 0.
    void setUsPeriod(std::uint64_t microseconds);
    /// Whether the period is measured from start to start of the runs (true) or from the end of a
    /// run to the start of the next (false, the default). A run that takes longer than the period
    /// delays the next one; missed runs are not made up for.
    void compensateCallbackTime(bool compensate);

    /// Starts on the current Application's clock; the first run comes at once (as soon as a
    /// platform thread takes it up) or after one period. A running task is left as it is.
    /// std::logic_error without callback, period or Application.
    void start(bool immediate = true);

    /// Stops. No run begins afterwards, and the run in progress has ended when this returns,
    /// except when it is called from that very run. A stopped task is left as it is.
    void stop();

    bool isRunning() const;

private:
    class Impl;
    std::shared_ptr<Impl> impl_;
};

}  // namespace vo
