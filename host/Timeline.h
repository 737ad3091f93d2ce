#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/RunStatistics.h"
#include "host/TimelineEvent.h"
#include "platform/kr/KRBroker.h"
#include "platform/kr/MemoryFeed.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// Records what happens in a run: shows it through a renderer, and counts it.
///
/// Thread-safe. Events are shown in the order recorded, a change of memory before everything that
/// is recorded after it. The renderer is called with the mutex held; it must not come back.
class Timeline {
public:
    Timeline(std::shared_ptr<vo::Clock> clock, std::unique_ptr<TimelineRenderer> renderer);
    ~Timeline();
    Timeline(const Timeline&) = delete;
    Timeline& operator=(const Timeline&) = delete;

    void begin(const RunHeader& header);
    /// Stamps an event with now and records it.
    void record(TimelineEvent event);
    /// Records the changes of these keys from now on, until unfollow(), which comes before the
    /// broker goes. A write of the value that a key has already is none.
    void follow(const boost::shared_ptr<KRBroker>& broker, const std::vector<std::string>& keys);
    void unfollow();
    void end(bool interrupted);

private:
    void drain();
    void drainLocked() VO_REQUIRES(mutex_);
    void emit(const TimelineEvent& event) VO_REQUIRES(mutex_);

    // Constant after construction.
    const std::shared_ptr<vo::Clock> clock_;
    // Set by follow() and unfollow(), which one thread calls.
    boost::shared_ptr<KRBroker> broker_;
    std::shared_ptr<vo::Executor> executor_;

    vo::Mutex mutex_;
    const std::unique_ptr<TimelineRenderer> renderer_ VO_GUARDED_BY(mutex_);
    RunStatistics statistics_ VO_GUARDED_BY(mutex_);
    std::shared_ptr<MemoryFeed> feed_ VO_GUARDED_BY(mutex_);
    std::vector<std::string> keys_ VO_GUARDED_BY(mutex_);  ///< by tag
    std::vector<KRValue> values_ VO_GUARDED_BY(mutex_);    ///< by tag, as last shown
    std::vector<MemoryChange> changes_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
