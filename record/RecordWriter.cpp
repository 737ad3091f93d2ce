#include "record/RecordWriter.h"

#include <stdexcept>
#include <utility>

#include "platform/vo/Log.h"

namespace KR {

namespace {

const vo::Logger recordLog("Recording");

}  // namespace

RecordWriter::RecordWriter(std::shared_ptr<vo::Clock> clock, const Options& options)
    : checkpoint_(options.checkpoint),
      checkpointEvents_(options.checkpointEvents),
      checkpointTime_(options.checkpointTime),
      waits_(options.waits && clock->hasThreads()),
      executor_(clock->makeExecutor("Recording", vo::Clock::Threading::own))
{
    try {
        ring_.emplace(std::move(clock), options.path, options.program, options.limits);
        ring_->begin();
    } catch (const std::exception& e) {
        fail(e.what());
    }
}

RecordWriter::~RecordWriter()
{
    close();
}

void RecordWriter::follow(EventStream& events)
{
    connection_ = events.happened.connect([this](const Event& event) { take(event); });
}

void RecordWriter::take(const Event& event)
{
    if (hasEnded_)
        return;
    const bool beginsFile = wantsFile_.exchange(false);
    RecordCheckpoint checkpoint;
    if (checkpoint_ && (beginsFile || isCheckpointDue(event)))
        checkpoint = makeCheckpoint(event);
    ++eventsSince_;
    if (!since_)
        since_ = event.uptime;
    const vo::Lock lock(mutex_);
    if (beginsFile) {
        queue_.add(RecordQueue::NextFile{std::move(checkpoint)});
    } else if (!checkpoint.state.empty()) {
        awaitRoomFor(checkpoint);
        queue_.add(std::move(checkpoint));
    }
    awaitRoomFor(event);
    if (!queue_.add(event) && !hasGap_.exchange(true))
        recordLog.warning("take",
                          "events come faster than they can be written; what is left out "
                          "stands in the recording as a gap");
    post();
}

template <class Entry>
void RecordWriter::awaitRoomFor(const Entry& entry)
{
    while (waits_ && !queue_.hasRoomFor(entry) && !hasEnded_) {
        post();
        taken_.wait(mutex_);
    }
}

bool RecordWriter::isCheckpointDue(const Event& next) const
{
    return (checkpointEvents_ != 0 && eventsSince_ >= checkpointEvents_) ||
           (checkpointTime_ != vo::Duration::zero() && since_ &&
            next.uptime - *since_ >= checkpointTime_);
}

RecordCheckpoint RecordWriter::makeCheckpoint(const Event& next)
{
    eventsSince_ = 0;
    since_.reset();
    return {next.number, next.time, checkpoint_()};
}

void RecordWriter::post()
{
    if (!std::exchange(isPosted_, true)) {
        executor_->post(
            [this] {
                {
                    const vo::Lock lock(mutex_);
                    isPosted_ = false;
                }
                drain();
            },
            kDelay);
    }
    if (queue_.isQuarterFull() && !std::exchange(isHurried_, true))
        executor_->post([this] { drain(); });
}

void RecordWriter::drain()
{
    Batch batch;
    {
        const vo::Lock lock(mutex_);
        batch = queue_.take();
        isHurried_ = false;
        taken_.notifyAll();
    }
    if (hasEnded_)
        return;
    try {
        write(batch);
    } catch (const std::exception& e) {
        fail(e.what());
    }
}

void RecordWriter::write(const Batch& batch)
{
    for (const RecordQueue::Entry& entry : batch)
        std::visit([this](const auto& each) { write(each); }, entry);
    ring_->file().flush();
    ring_->removeOld();
    if (ring_->isFull() && !std::exchange(isAsked_, true))
        wantsFile_ = true;
}

void RecordWriter::write(const Event& event)
{
    keep(event);
    try {
        ring_->file().add(RecordedEvent{event});
    } catch (const std::length_error&) {
        hasGap_ = true;
        recordLog.warning("write", "an event is too large to be recorded");
        write(RecordGap{RecordGap::Why::tooBig, 1, event.number, event.number});
    }
}

void RecordWriter::write(const RecordGap& gap)
{
    ring_->file().add(gap);
}

/// A recording lacks nothing without it.
void RecordWriter::write(const RecordCheckpoint& checkpoint)
{
    try {
        ring_->file().add(checkpoint);
    } catch (const std::logic_error& e) {
        if (!std::exchange(hasBadCheckpoint_, true))
            recordLog.error("checkpoint", e.what());
    }
}

void RecordWriter::write(const RecordQueue::NextFile& next)
{
    ring_->begin();
    RecordFile& file = ring_->file();
    for (const auto* event : {&run_, &monitoring_})
        if (*event)
            file.add(RecordedEvent{**event, true});
    if (!next.checkpoint.state.empty())
        write(next.checkpoint);
    ring_->beginAnew();
    isAsked_ = false;
}

/// A later file repeats what it takes to show it alone.
void RecordWriter::keep(const Event& event)
{
    if (std::holds_alternative<RunBegan>(event.what)) {
        run_ = event;
        monitoring_.reset();
    } else if (std::holds_alternative<MonitoringSwitched>(event.what)) {
        monitoring_ = event;
    }
}

void RecordWriter::fail(const std::string& what)
{
    hasFailed_ = hasEnded_ = true;
    ring_.reset();
    recordLog.error("write", "the recording ends here: " + what);
    const vo::Lock lock(mutex_);
    taken_.notifyAll();
}

void RecordWriter::close()
{
    connection_.disconnect();
    executor_->close();
    drain();
    if (hasEnded_.exchange(true))
        return;
    try {
        ring_->end();
    } catch (const std::exception& e) {
        fail(e.what());
    }
}

}  // namespace KR
