#pragma once

#include <memory>
#include <set>
#include <string>

#include "life/EventStream.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"
#include "timeline/RunStatistics.h"
#include "timeline/TimelineRenderer.h"

namespace KR {

/// Shows a run, from its first event to its last, through a renderer, and counts what happens.
///
/// Of the writes of memory those are shown that change a key which the rules read or the run names,
/// unless the key only repeats what events tell better or ticks like a clock. What decisions are
/// made of, as found hits and answers, is not shown.
///
/// Thread-safe. The renderer is called with the mutex held; it must not come back.
class Timeline {
public:
    explicit Timeline(std::unique_ptr<TimelineRenderer> renderer);
    ~Timeline();
    Timeline(const Timeline&) = delete;
    Timeline& operator=(const Timeline&) = delete;

    /// Takes the events of a stream from now on, until this goes. The stream outlives it.
    void follow(EventStream& events);
    /// The next event of the run. It ends with RunEnded: what comes later is not shown.
    void take(const Event& event);
    /// For a run whose end is not known: the same as if it had been interrupted after the last
    /// event. Does nothing when it has ended.
    void end();

private:
    void finish(vo::TimePoint time, bool interrupted) VO_REQUIRES(mutex_);
    bool isShown(const KeyWritten& write) const VO_REQUIRES(mutex_);
    bool isShown(const Happening& what) const VO_REQUIRES(mutex_);

    vo::Mutex mutex_;
    const std::unique_ptr<TimelineRenderer> renderer_ VO_GUARDED_BY(mutex_);
    RunStatistics statistics_ VO_GUARDED_BY(mutex_);
    std::set<std::string> named_ VO_GUARDED_BY(mutex_);  ///< keys that the run names
    std::set<std::string> read_ VO_GUARDED_BY(mutex_);   ///< keys that the rules read
    vo::TimePoint last_ VO_GUARDED_BY(mutex_){};         ///< the time of the last event
    bool hasEnded_ VO_GUARDED_BY(mutex_) = false;

    /// Last, as events may come from then on.
    vo::Connection connection_;
};

}  // namespace KR
