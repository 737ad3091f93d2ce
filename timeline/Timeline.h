#pragma once

#include <memory>

#include "life/EventStream.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"
#include "timeline/RunStatistics.h"
#include "timeline/TimelineRenderer.h"

namespace KR {

/// Follows a run: shows what happens through a renderer, and counts it.
///
/// Thread-safe. The renderer is called with the mutex held; it must not come back.
class Timeline {
public:
    /// Follows the stream, which outlives it, from now on until end().
    Timeline(std::shared_ptr<vo::Clock> clock, EventStream& events,
             std::unique_ptr<TimelineRenderer> renderer);
    ~Timeline();
    Timeline(const Timeline&) = delete;
    Timeline& operator=(const Timeline&) = delete;

    void begin(const RunHeader& header);
    /// Shows what has happened so far to its end, and then the summary.
    void end(bool interrupted);

private:
    void show(const Event& event);

    // Constant after construction.
    const std::shared_ptr<vo::Clock> clock_;
    EventStream& events_;

    vo::Mutex mutex_;
    const std::unique_ptr<TimelineRenderer> renderer_ VO_GUARDED_BY(mutex_);
    RunStatistics statistics_ VO_GUARDED_BY(mutex_);

    /// Until end(). Last, as events may come from then on.
    vo::Connection connection_;
};

}  // namespace KR
