#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "life/EventStream.h"
#include "life/Life.h"
#include "life/LifeDriver.h"
#include "platform/kr/KRBroker.h"
#include "platform/vo/Application.h"
#include "platform/vo/PackageInfo.h"
#include "platform/vo/VirtualClock.h"
#include "record/ReplayServices.h"
#include "record/TemporaryFile.h"

namespace KR {

/// Where a recorded life is lived again: a platform on virtual time, without a robot, and a life
/// under a driver. Used by one thread; there is no other application in this process meanwhile.
class ReplayStage {
public:
    /// `start` is of the recording (RunBegan). `rules` are the text of a configuration, `packages`
    /// those that are there at the beginning. The driver outlives it.
    ReplayStage(const Event& start, const std::string& rules, std::vector<vo::PackageInfo> packages,
                LifeDriver& driver, const std::function<void(const Event&)>& happened);
    /// Ends the life.
    ~ReplayStage();
    ReplayStage(const ReplayStage&) = delete;
    ReplayStage& operator=(const ReplayStage&) = delete;

    vo::VirtualClock& clock() { return *clock_; }
    EventStream& events() { return events_; }
    Life& life() { return *life_; }
    ReplayServices& services() { return services_; }

    /// Brings the clock to where it was at an event, unless it is later already, and the wall clock
    /// too.
    void moveTime(const Event& event);
    /// Makes a write of memory again.
    void write(const Event& event, const KeyWritten& write);
    /// Makes one that was not made before, now.
    void writeNow(const std::string& key, const KRValue& value);
    /// Has holds and counts go on as they did there.
    void resume(const Event& event, const HistoriesResumed& resumed);
    /// Everything that is on its way arrives, and is told.
    void settle();

private:
    // In the order of who needs whom.
    const TemporaryFile rules_;
    const std::shared_ptr<vo::VirtualClock> clock_;
    vo::Application application_;
    const boost::shared_ptr<KRBroker> broker_;
    ReplayServices services_;
    EventStream events_;
    vo::Connection connection_;
    std::optional<Life> life_;
};

/// What a recording begins with, as far as it is needed to live it again.
struct ReplayBeginning {
    Event start;
    std::vector<vo::PackageInfo> packages;
    std::vector<Event> events;  ///< up to the begin of monitoring, all of them
};

/// std::runtime_error for a recording that does not tell how it began.
ReplayBeginning readBeginning(const std::function<std::optional<Event>()>& next);

/// Whether the life service writes a key.
bool isLifesKey(const std::string& key);
/// Whether monitoring ends with it.
bool isMonitoringsEnd(const Happening& what);

}  // namespace KR
