// A host of one behaviour, for tests that kill it: runs behaviour "stay" of the package in the
// folder that is its argument, until the end of its days.
#include <unistd.h>

#include "platform/packages/KRBehaviorManager.h"
#include "platform/vo/Application.h"

int main(int, char** arguments)
{
    const auto clock = vo::makeRealClock();
    vo::Application application(clock);
    vo::PackageInfo package("pkg", arguments[1]);
    package.addBehavior(vo::BehaviorInfo("stay"));
    KR::KRBehaviorManager manager(application.session(), clock,
                                  [&](const std::string&) { return package; });
    manager.startBehavior("pkg/stay");
    ::pause();
}
