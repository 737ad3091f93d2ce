#include "timeline/Timeline.h"

namespace KR {

Timeline::Timeline(std::shared_ptr<vo::Clock> clock, EventStream& events,
                   std::unique_ptr<TimelineRenderer> renderer)
    : clock_(std::move(clock)),
      events_(events),
      renderer_(std::move(renderer)),
      connection_(events.happened.connect([this](const Event& event) { show(event); }))
{
}

Timeline::~Timeline() = default;

void Timeline::begin(const RunHeader& header)
{
    const vo::Lock lock(mutex_);
    statistics_.begin(header);
    renderer_->begin(header);
}

void Timeline::show(const Event& event)
{
    const vo::Lock lock(mutex_);
    statistics_.count(event);
    renderer_->event(event);
}

void Timeline::end(bool interrupted)
{
    events_.flush();
    connection_.disconnect();
    const vo::Lock lock(mutex_);
    renderer_->end(statistics_.summary(clock_->now(), interrupted));
}

}  // namespace KR
