#include "timeline/Timeline.h"

namespace KR {

namespace {

/// Keys that change every minute or more often, whatever happens.
const std::set<std::string> kTimes{"Launchpad/LifeTime", "Launchpad/Minute",
                                   "Launchpad/MinuteOfDay"};

/// Keys of the first kind change as what they stand for changes, which is an event of its own.
bool isWorthSeeing(const std::string& key)
{
    return key.rfind("Nimbra/", 0) != 0 && kTimes.count(key) == 0;
}

}  // namespace

Timeline::Timeline(std::unique_ptr<TimelineRenderer> renderer) : renderer_(std::move(renderer)) {}

Timeline::~Timeline()
{
    connection_.disconnect();
}

void Timeline::follow(EventStream& events)
{
    connection_ = events.happened.connect([this](const Event& event) { take(event); });
}

bool Timeline::isShown(const KeyWritten& write) const
{
    if (!write.isChange || write.isEarlier)
        return false;
    return named_.count(write.key) != 0 ||
           (read_.count(write.key) != 0 && isWorthSeeing(write.key));
}

bool Timeline::isShown(const Happening& what) const
{
    return std::visit(
        Cases{[this](const KeyWritten& write) VO_REQUIRES(mutex_) { return isShown(write); },
              [](const RunBegan&) { return false; }, [](const RunEnded&) { return false; },
              [](const MonitoringSwitched&) { return false; },
              [](const HistoriesResumed&) { return false; },
              [](const PackageChanged&) { return false; },
              [](const CheckerMoved&) { return false; }, [](const HitsFound&) { return false; },
              [](const HitsTaken&) { return false; }, [](const TimerFired&) { return false; },
              [](const WaitingSeen&) { return false; }, [](const ActivityEnded&) { return false; },
              [](const LifeAsked&) { return false; }, [](const RequestMade&) { return false; },
              [](const RequestAnswered&) { return false; }, [](const TruthsRead&) { return false; },
              [](const auto&) { return true; }},
        what);
}

void Timeline::take(const Event& event)
{
    const vo::Lock lock(mutex_);
    if (hasEnded_)
        return;
    last_ = event.time;
    if (const auto* const begin = std::get_if<RunBegan>(&event.what)) {
        const RunHeader header{begin->title, begin->config, begin->rules, event.time};
        named_ = {begin->keys.begin(), begin->keys.end()};
        statistics_.begin(header);
        renderer_->begin(header);
    } else if (const auto* const end = std::get_if<RunEnded>(&event.what)) {
        finish(event.time, end->interrupted);
    } else if (const auto* const monitoring = std::get_if<MonitoringSwitched>(&event.what)) {
        if (monitoring->on)
            read_ = {monitoring->keys.begin(), monitoring->keys.end()};
    } else if (isShown(event.what)) {
        statistics_.count(event);
        renderer_->event(event);
    }
}

void Timeline::end()
{
    const vo::Lock lock(mutex_);
    if (!hasEnded_)
        finish(last_, true);
}

void Timeline::finish(vo::TimePoint time, bool interrupted)
{
    hasEnded_ = true;
    renderer_->end(statistics_.summary(time, interrupted));
}

}  // namespace KR
