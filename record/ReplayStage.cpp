#include "record/ReplayStage.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "launchpad/NimbraLaunchpad.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/SharedKeys.h"

namespace KR {

namespace {

/// A clock that stands where the recorded one stood.
std::shared_ptr<vo::VirtualClock> clockAt(const Event& event)
{
    auto clock = std::make_shared<vo::VirtualClock>(event.time - event.uptime);
    clock->advance(event.uptime);
    return clock;
}

/// A package takes the place of the one of the same name.
void apply(const PackageChanged& change, std::vector<vo::PackageInfo>& packages)
{
    packages.erase(
        std::remove_if(packages.begin(), packages.end(),
                       [&](const auto& each) { return each.uuid() == change.package.uuid(); }),
        packages.end());
    if (change.installed)
        packages.push_back(change.package);
}

Life::Options optionsOf(const RunBegan& run, const std::string& rules)
{
    Life::Options options;
    options.config = rules;
    options.chains = {run.chains.begin(), run.chains.end()};
    return options;
}

}  // namespace

ReplayStage::ReplayStage(const Event& start, const std::string& rules,
                         std::vector<vo::PackageInfo> packages, LifeDriver& driver,
                         const std::function<void(const Event&)>& happened)
    : rules_(rules),
      clock_(clockAt(start)),
      application_(clock_),
      broker_(KRBroker::create(application_)),
      services_(broker_, std::move(packages)),
      events_(clock_),
      connection_(events_.happened.connect(happened))
{
    life_.emplace(broker_, events_, optionsOf(std::get<RunBegan>(start.what), rules_.path()),
                  &driver);
    clock_->runPending();
}

ReplayStage::~ReplayStage()
{
    connection_.disconnect();
    life_->stop();
}

void ReplayStage::moveTime(const Event& event)
{
    if (event.uptime > clock_->uptime())
        clock_->advance(event.uptime - clock_->uptime());
    if (clock_->now() != event.time)
        clock_->jumpWallClock(event.time - clock_->now());
}

void ReplayStage::write(const Event& event, const KeyWritten& write)
{
    KRMemory& memory = broker_->memory();
    memory.raiseEventAgain(write.key, write.value, memory.writer(write.writer),
                           {event.time, event.uptime, write.number});
}

void ReplayStage::writeNow(const std::string& key, const KRValue& value)
{
    broker_->memory().raiseEvent(key, value);
}

void ReplayStage::resume(const Event& event, const HistoriesResumed& resumed)
{
    moveTime(event);
    ConditionChecker::Histories histories;
    for (const ResumedHistory& each : resumed.histories) {
        ConditionChecker::History& history = histories[each.part];
        history.isTrue = each.isTrue;
        for (const vo::Duration instant : each.instants)
            history.instants.emplace_back(instant);
    }
    life_->launchpad().resumeConditionHistories(histories, resumed.within);
}

void ReplayStage::settle()
{
    clock_->runPending();
    events_.flush();
}

ReplayBeginning readBeginning(const std::function<std::optional<Event>()>& next)
{
    ReplayBeginning beginning;
    bool hasStart = false;
    bool monitors = false;
    while (!monitors) {
        std::optional<Event> event = next();
        if (!event)
            break;
        if (std::holds_alternative<RunBegan>(event->what)) {
            beginning.start = *event;
            hasStart = true;
        } else if (const auto* const change = std::get_if<PackageChanged>(&event->what)) {
            apply(*change, beginning.packages);
        }
        const auto* const move = std::get_if<CheckerMoved>(&event->what);
        monitors =
            (move && move->kind == CheckerMove::Kind::started) || isMonitoringsEnd(event->what);
        beginning.events.push_back(std::move(*event));
    }
    if (!hasStart)
        throw std::runtime_error("the recording does not tell how the run began");
    return beginning;
}

bool isLifesKey(const std::string& key)
{
    return key == keys::kState || key == keys::kAsleep || key == keys::kFocusedActivity;
}

bool isMonitoringsEnd(const Happening& what)
{
    const auto* const monitoring = std::get_if<MonitoringSwitched>(&what);
    return monitoring && !monitoring->on;
}

}  // namespace KR
