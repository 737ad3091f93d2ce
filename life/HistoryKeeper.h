#pragma once

#include <memory>
#include <string>

#include "launchpad/NimbraLaunchpad.h"
#include "life/EventStream.h"
#include "life/ResumeLimits.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Executor.h"

namespace KR {

/// Has the holds and counts of a launchpad's conditions survive a restart, by the wall clock, in a
/// file of a folder:
///
///     {"version": 1, "saved": MICROSECONDS,
///      "parts": {TEXT: {"true": BOOL, "instants": [MICROSECONDS]}}}
///
/// Times are microseconds since the Unix epoch; `saved` is the latest at which it was so. While the
/// launchpad monitors the file is written every ten seconds, and at the end, so that a program that
/// is killed loses no more; on virtual time at the end only.
///
/// A file that is damaged is set aside (see DurableFile.h), and all begins anew. What cannot be
/// written is reported once, until it can be again.
///
/// start() and stop() are called by one thread.
class HistoryKeeper {
public:
    /// Makes the folder; std::runtime_error when that cannot be. Launchpad and stream outlive it.
    HistoryKeeper(const std::shared_ptr<vo::Clock>& clock, NimbraLaunchpad& launchpad,
                  EventStream& events, const std::string& folder, const ResumeLimits& limits);
    /// Writes no more.
    ~HistoryKeeper();
    HistoryKeeper(const HistoryKeeper&) = delete;
    HistoryKeeper& operator=(const HistoryKeeper&) = delete;

    /// Goes on with what the file says; before monitoring starts. A file that cannot be read is
    /// reported and left as it is: nothing is kept then.
    void start();
    /// Writes for the last time, if it was started; while the launchpad still monitors.
    void stop();

private:
    void resume();
    void tell(const ConditionChecker::Histories& histories);
    void keepOn();
    void save();

    const std::shared_ptr<vo::Clock> clock_;
    NimbraLaunchpad& launchpad_;
    EventStream& events_;
    const std::string path_;
    const ResumeLimits limits_;
    const std::shared_ptr<vo::Executor> executor_;

    bool isStarted_ = false;
    // Of the executor's tasks, and of stop() once it is closed.
    bool hasFailed_ = false;
    bool isEmpty_ = false;  ///< nothing is remembered, and the file says so
};

}  // namespace KR
