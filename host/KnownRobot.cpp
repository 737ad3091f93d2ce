#include "host/KnownRobot.h"

#include "host/Host.h"
#include "host/NoTimeline.h"
#include "platform/vo/VirtualClock.h"

namespace KR {

KnownRobot::KnownRobot()
{
    const auto clock = std::make_shared<vo::VirtualClock>(vo::TimePoint());
    timeline_ = std::make_unique<Timeline>(clock, std::make_unique<NoTimeline>());
    Host::Options options;
    options.plugins = NimbraLaunchpad::addableModulePlugins();
    host_ = std::make_unique<Host>(clock, *timeline_, options);
}

KnownRobot::~KnownRobot() = default;

const KeyCatalogue& KnownRobot::keys() const
{
    return host_->keys();
}

void KnownRobot::addReader(const std::string& key, const std::string& reader)
{
    const auto entry = host_->keys().find(key);
    host_->keys().addRead(entry ? entry->description.key : key, reader);
}

}  // namespace KR
