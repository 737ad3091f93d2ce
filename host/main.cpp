#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <functional>

#include "host/ConfigurationCheck.h"
#include "host/KeysCommand.h"
#include "host/Nearest.h"
#include "host/Output.h"
#include "host/PackageCommand.h"
#include "host/PermissionsCommand.h"
#include "host/PluginsCommand.h"
#include "host/RunCommand.h"
#include "host/Table.h"
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

/// Mostly a variable of a script that was never set.
std::string notEmpty(const std::string& text)
{
    return text.empty() ? "must not be empty" : "";
}

CLI::Option* addText(CLI::App& command, const char* name, std::string& text, const char* type,
                     const char* description)
{
    return command.add_option(name, text, description)->type_name(type)->check(notEmpty);
}

void addConfig(CLI::App& command, CommandLine& line)
{
    addText(command, "--config", line.run.config, "FILE",
            "Rules to follow (default: tessel/autonomy.cfg)");
}

void addPackages(CLI::App& command, CommandLine& line)
{
    addText(command, "--packages", line.run.packages, "DIR",
            "Folder of the installed packages (default: no packages)");
}

CLI::App* addRun(CLI::App& app, CommandLine& line)
{
    CLI::App* run = app.add_subcommand("run", "Live, or play a scenario, and show what happens");
    addConfig(*run, line);
    CLI::Option* scenario = addText(*run, "--scenario", line.run.scenario, "FILE",
                                    "What happens to the robot, on virtual time");
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
    addText(*run, "--until", line.run.until, "TIME",
            "End at a time of day (\"07:30\", \"2 07:30\") or after a duration (\"90s\")");
    addPackages(*run, line);
    run->add_option("--plugin", line.run.plugins, "Built-in plugin to add; may be given again")
        ->type_name("NAME")
        ->check(CLI::IsMember(KR::NimbraLaunchpad::addableModulePlugins()));
    addText(*run, "--preferences", line.run.preferences, "FILE",
            "File that the robot's preferences are kept in (default: not kept)");
    run->add_flag("--json", line.run.json, "Print one JSON object a line");
    run->add_option("--log-level", line.logLevel,
                    "What to log on stderr; from warning on, what behaviours print, too")
        ->type_name("L")
        ->capture_default_str()
        ->check(CLI::IsMember({"silent", "error", "warning", "info", "verbose"}));
    return run;
}

std::vector<std::string> namesOf(const std::vector<const CLI::App*>& commands)
{
    std::vector<std::string> names;
    for (const CLI::App* command : commands)
        names.push_back(command->get_name());
    return names;
}

/// "'--chek' is not expected; did you mean '--check'?"
std::string describeUnexpected(const CLI::App& command, const std::string& argument)
{
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options())
        names.push_back(option->get_name());
    const bool isOption = argument.rfind('-', 0) == 0;
    return "'" + argument + "' is not expected" +
           (isOption ? KR::didYouMean(argument.substr(0, argument.find('=')), names) : "");
}

/// What was not expected, in the order in which it stands.
std::string describeUnexpected(const CLI::App& app)
{
    const CLI::App* command = &app;
    while (!command->get_subcommands().empty())
        command = command->get_subcommands().front();
    std::string text;
    for (const std::string& argument : app.remaining(true))
        text += describeUnexpected(*command, argument) + "\n";
    return text + "`nimbra " + command->get_name() + " --help` tells what is";
}

/// Commands stand first, so that one that is missing or that there is not is told by its place.
void requireCommand(const CLI::App& app, const std::vector<std::string>& arguments)
{
    const CLI::App* at = &app;
    for (std::size_t i = 0;; ++i) {
        const std::vector<const CLI::App*> commands =
            at->get_subcommands([](const CLI::App*) { return true; });
        if (commands.empty())
            return;
        const std::vector<std::string> names = namesOf(commands);
        const std::string thereAre = "\nthere are: " + KR::listText(names);
        if (i == arguments.size())
            throw KR::UsageError("a command is missing" + thereAre);
        const std::string& argument = arguments[i];
        if (argument.rfind('-', 0) == 0) {
            if (at->get_option_no_throw(argument))
                return;
            throw KR::UsageError(describeUnexpected(*at, argument));
        }
        const auto found = std::find(names.begin(), names.end(), argument);
        if (found == names.end())
            throw KR::UsageError("there is no command '" + argument + "'" +
                                 KR::didYouMean(argument, names) + thereAre);
        at = commands[static_cast<std::size_t>(found - names.begin())];
    }
}

void parse(CLI::App& app, CommandLine& line, int argc, char** argv)
{
    app.footer(kExitCodes);
    app.set_version_flag("--version", "nimbra " NIMBRA_VERSION);
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
    addText(*keys, "--config", line.run.config, "FILE", "Rules whose keys to show, too");
    keys->add_flag("--json", line.run.json, "Print one JSON object a line");
    KR::addPackageCommand(app, line.command);
    KR::addPermissionsCommand(app, line.command);
    requireCommand(app, {argv + 1, argv + argc});
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
    } catch (const CLI::ExtrasError&) {
        KR::printError(describeUnexpected(app));
        return kUsage;
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
