#include <chrono>
#include <iostream>
#include <memory>

#include "launchpad/NimbraLaunchpad.h"
#include "platform/kr/KRMemory.h"
#include "platform/packages/PackageManager.h"
#include "platform/vo/VirtualClock.h"

namespace {

struct PrintingResponder : KR::NimbraLaunchpadResponder {
    void processActions(const std::list<KR::AutonomousAction>& actions,
                        const KR::PersistentValues&) override
    {
        for (const auto& action : actions) {
            std::cout << "hit: " << action.description << '\n';
            hits += action.description == "Say who is there";
        }
    }
    void onPluginsChanged() override {}

    int hits = 0;
};

}  // namespace

int main(int, char** argv)
{
    auto clock = std::make_shared<vo::VirtualClock>(vo::TimePoint(std::chrono::hours(24 * 20000)));
    vo::Application application(clock);
    auto broker = KR::KRBroker::create(application);
    KR::PackageManager packages(broker->session(), clock, "packages");
    PrintingResponder responder;
    KR::NimbraLaunchpad launchpad(broker, nullptr, &responder);

    // The default configuration of the prefix was found and loaded; this throws if it was not.
    launchpad.getAction("Greet who comes near");

    launchpad.loadConfigFile(argv[1]);
    launchpad.startMonitoringConditions();
    broker->memory().raiseEvent("Door/Bell", KR::KRValue(1));
    clock->runPending();
    launchpad.exit();
    return responder.hits == 1 ? 0 : 1;
}
