#include <csignal>
#include <ctime>

#include "host/CommandLine.h"
#include "host/ConfigurationCheck.h"
#include "host/KeysCommand.h"
#include "host/PackageCommand.h"
#include "host/PermissionsCommand.h"
#include "host/PluginsCommand.h"
#include "host/ReplayCommand.h"
#include "host/RunCommand.h"
#include "host/TimelineCommand.h"
#include "host/WhyCommand.h"

int main(int argc, char** argv)
{
    // A reader that goes away is noticed by the write that fails.
    std::signal(SIGPIPE, SIG_IGN);
    // So is a file that may not become larger.
    std::signal(SIGXFSZ, SIG_IGN);
    // The time zone is read while there is one thread only.
    ::tzset();
    KR::CommandLine line(
        "nimbra", NIMBRA_VERSION, "Decides what a social robot does on its own initiative.",
        "Exit codes: 0 all went well; 1 problems were found, or the run failed; 2 wrong usage, or "
        "(for\n"
        "check, timeline, replay and why) a file that cannot be read; 128 + signal when a signal "
        "ended a scenario early.");
    for (const auto addCommand :
         {KR::addRunCommand, KR::addTimelineCommand, KR::addReplayCommand, KR::addWhyCommand,
          KR::addCheckCommand, KR::addPluginsCommand, KR::addKeysCommand, KR::addPackageCommand,
          KR::addPermissionsCommand})
        addCommand(line.root());
    return line.run(argc, argv);
}
