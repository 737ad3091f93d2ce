#include "host/KnownRobot.h"

#include "host/Host.h"
#include "platform/vo/VirtualClock.h"

namespace KR {

KnownRobot::KnownRobot()
{
    const auto clock = std::make_shared<vo::VirtualClock>(vo::TimePoint());
    events_ = std::make_unique<EventStream>(clock);
    Host::Options options;
    options.plugins = NimbraLaunchpad::addableModulePlugins();
    host_ = std::make_unique<Host>(clock, *events_, options);
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
