#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "life/EventStream.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Executor.h"
#include "platform/vo/Mutex.h"
#include "record/RecordQueue.h"
#include "record/RecordRing.h"

namespace KR {

/// Writes down every event of a robot's life, on a thread of its own.
///
///     recording --error, or close()--> ended (final)
///
/// What happens is with the operating system a second later: that much is lost when the process is
/// killed. An error of the disk is logged once and ends the recording with what is whole.
///
/// take() is called by one thread at a time, as EventStream does; the rest by the owner.
class RecordWriter {
public:
    struct Options {
        std::string path;     ///< see RecordFile and RecordRing
        std::string program;  ///< its version
        RecordRing::Limits limits = {};
        /// Whether take() waits for the disk when events come faster, instead of leaving some out:
        /// for a life that is played as fast as it can be. Not under a clock without threads.
        bool waits = false;
        /// What a reader needs that begins here, as JSON on one line; "" for nothing. Later files
        /// begin with it. Called by take() between two events, with no lock held; it does not come
        /// back.
        std::function<std::string()> checkpoint = {};
        /// Within a file a checkpoint comes after this many events, or after the first event that
        /// comes this much later than the last one, whichever is first; 0 for neither. One for
        /// which the queue has no room is left out.
        std::uint64_t checkpointEvents = 0;
        vo::Duration checkpointTime{};
    };

    /// Events are written this long after they came, or sooner. Below the second that is promised
    /// by as much as writing may take.
    static constexpr vo::Duration kDelay = std::chrono::milliseconds(750);

    /// `clock` gives the thread, and the times of the files: the real one in earnest.
    RecordWriter(std::shared_ptr<vo::Clock> clock, const Options& options);
    /// Closes.
    ~RecordWriter();
    RecordWriter(const RecordWriter&) = delete;
    RecordWriter& operator=(const RecordWriter&) = delete;

    /// Takes the events of a stream from now on, until this is closed. The stream outlives it.
    void follow(EventStream& events);
    /// The next event. Never waits, unless the options say so. After the end it does nothing.
    void take(const Event& event);
    /// Writes what was taken, and ends. Idempotent.
    void close();

    /// Whether everything that was taken is recorded, so far.
    bool isComplete() const { return !hasFailed_ && !hasGap_; }

private:
    using Batch = std::vector<RecordQueue::Entry>;

    bool isCheckpointDue(const Event& next) const;
    RecordCheckpoint makeCheckpoint(const Event& next);
    template <class Entry>
    void awaitRoomFor(const Entry& entry) VO_REQUIRES(mutex_);
    void post() VO_REQUIRES(mutex_);
    void drain();
    void write(const Batch& batch);
    void write(const Event& event);
    void write(const RecordGap& gap);
    void write(const RecordCheckpoint& checkpoint);
    void write(const RecordQueue::NextFile& next);
    void keep(const Event& event);
    void fail(const std::string& what);

    // Constant after construction.
    const std::function<std::string()> checkpoint_;
    const std::uint64_t checkpointEvents_;
    const vo::Duration checkpointTime_;
    const bool waits_;
    const std::shared_ptr<vo::Executor> executor_;

    // Synchronised by themselves.
    std::atomic<bool> hasEnded_ = false;
    std::atomic<bool> hasFailed_ = false;
    std::atomic<bool> hasGap_ = false;
    std::atomic<bool> wantsFile_ = false;
    vo::Condition taken_;

    // Of who tells events.
    std::uint64_t eventsSince_ = 0;      ///< that came since the last checkpoint
    std::optional<vo::Duration> since_;  ///< the uptime of the first of them

    // Of the writing thread; of who closes, when that has gone.
    std::optional<RecordRing> ring_;
    bool isAsked_ = false;             ///< take() for the next file
    bool hasBadCheckpoint_ = false;    ///< one could not be written, which was told
    std::optional<Event> run_;         ///< the latest RunBegan
    std::optional<Event> monitoring_;  ///< the latest MonitoringSwitched

    vo::Mutex mutex_;
    RecordQueue queue_ VO_GUARDED_BY(mutex_);
    bool isPosted_ VO_GUARDED_BY(mutex_) = false;   ///< a drain after the delay
    bool isHurried_ VO_GUARDED_BY(mutex_) = false;  ///< one right away

    /// Last, as events may come from then on.
    vo::Connection connection_;
};

}  // namespace KR
