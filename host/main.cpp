#include <CLI/CLI.hpp>
#include <csignal>
#include <functional>

#include "host/ConfigurationCheck.h"
#include "host/KeysCommand.h"
#include "host/Output.h"
#include "host/PackageCommand.h"
#include "host/PermissionsCommand.h"
#include "host/PluginsCommand.h"
#include "host/RunCommand.h"
#include "launchpad/NimbraLaunchpad.h"
#include "platform/vo/Log.h"

namespace {

constexpr int kUsage = 2;

/// Slower or faster than this nobody can follow, and times would leave their range.
constexpr double kMinSpeed = 1e-3;
constexpr double kMaxSpeed = 1e9;

constexpr const char* kExitCodes =
    "Exit codes: 0 all went well; 1 problems were found, or the run failed; 2 wrong usage, or "
    "(for\n"
    "check) a file that cannot be read; 128 + signal when a signal ended a scenario early.";

struct CommandLine {
    KR::RunOptions run;
    double speed = 1;
    bool fast = false;
    std::string logLevel = "warning";
    std::vector<std::string> checked;
    std::function<int()> command;  ///< one of those that keep their options themselves
};

void addConfig(CLI::App& command, CommandLine& line)
{
    command
        .add_option("--config", line.run.config, "Rules to follow (default: tessel/autonomy.cfg)")
        ->type_name("FILE");
}

void addPackages(CLI::App& command, CommandLine& line)
{
    command
        .add_option("--packages", line.run.packages,
                    "Folder of the installed packages (default: no packages)")
        ->type_name("DIR");
}

CLI::App* addRun(CLI::App& app, CommandLine& line)
{
    CLI::App* run = app.add_subcommand("run", "Live, or play a scenario, and show what happens");
    addConfig(*run, line);
    CLI::Option* scenario = run->add_option("--scenario", line.run.scenario,
                                            "What happens to the robot, on virtual time")
                                ->type_name("FILE");
    CLI::Option* speed =
        run->add_option("--speed", line.speed, "Seconds of the scenario in one second")
            ->type_name("N")
            ->capture_default_str()
            ->needs(scenario)
            ->check([](const std::string& text) {
                const double value = std::strtod(text.c_str(), nullptr);
                return value >= kMinSpeed && value <= kMaxSpeed
                           ? ""
                           : "must be from 0.001 to 1000000000";
            });
    run->add_flag("--as-fast-as-possible", line.fast, "Play the scenario without any waiting")
        ->needs(scenario)
        ->excludes(speed);
    run->add_option("--until", line.run.until,
                    "End at a time of day (\"07:30\", \"2 07:30\") or after a duration (\"90s\")")
        ->type_name("TIME");
    addPackages(*run, line);
    run->add_option("--plugin", line.run.plugins, "Built-in plugin to add; may be given again")
        ->type_name("NAME")
        ->check(CLI::IsMember(KR::NimbraLaunchpad::addableModulePlugins()));
    run->add_option("--preferences", line.run.preferences,
                    "File that the robot's preferences are kept in (default: not kept)")
        ->type_name("FILE");
    run->add_flag("--json", line.run.json, "Print one JSON object a line");
    run->add_option("--log-level", line.logLevel, "What to log on stderr")
        ->type_name("L")
        ->capture_default_str()
        ->check(CLI::IsMember({"silent", "error", "warning", "info", "verbose"}));
    return run;
}

void parse(CLI::App& app, CommandLine& line, int argc, char** argv)
{
    app.footer(kExitCodes);
    app.require_subcommand(1);
    addRun(app, line);
    app.add_subcommand("check", "Name the mistakes in configuration files; run nothing")
        ->add_option("FILE", line.checked, "Configuration files")
        ->required();
    CLI::App* plugins = app.add_subcommand("plugins", "List the plugins of a robot");
    addConfig(*plugins, line);
    addPackages(*plugins, line);
    CLI::App* keys =
        app.add_subcommand("keys", "List the memory keys, and who writes and reads them");
    keys->add_option("--config", line.run.config, "Rules whose keys to show, too")
        ->type_name("FILE");
    keys->add_flag("--json", line.run.json, "Print one JSON object a line");
    KR::addPackageCommand(app, line.command);
    KR::addPermissionsCommand(app, line.command);
    app.parse(argc, argv);
    if (!line.fast)
        line.run.speed = line.speed;
    line.run.logLevel = vo::parseLogLevel(line.logLevel);
}

int perform(const CLI::App& app, const CommandLine& line)
{
    if (line.command)
        return line.command();
    if (app.got_subcommand("check"))
        return KR::checkConfigurations(line.checked);
    if (app.got_subcommand("run"))
        return KR::run(line.run);
    if (app.got_subcommand("keys"))
        KR::listKeys(line.run.config, line.run.json);
    else
        KR::listPlugins(line.run.config, line.run.packages);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    // A reader that goes away is noticed by the write that fails.
    std::signal(SIGPIPE, SIG_IGN);
    CLI::App app("Decides what a social robot does on its own initiative.", "nimbra");
    CommandLine line;
    try {
        parse(app, line, argc, argv);
        return perform(app, line);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : kUsage;
    } catch (const KR::UsageError& e) {
        KR::printError(e.what());
        return kUsage;
    } catch (const std::exception& e) {
        KR::printError(e.what());
        return 1;
    }
}
