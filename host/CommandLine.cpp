#include "host/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <sstream>

#include "host/Nearest.h"
#include "host/Output.h"
#include "host/Table.h"

namespace KR {

namespace {

constexpr int kUsage = 2;

std::string notEmpty(const std::string& text)
{
    return text.empty() ? "must not be empty" : "";
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
           (isOption ? didYouMean(argument.substr(0, argument.find('=')), names) : "");
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
        const std::string thereAre = "\nthere are: " + listText(names);
        if (i == arguments.size())
            throw UsageError("a command is missing" + thereAre);
        const std::string& argument = arguments[i];
        if (argument.rfind('-', 0) == 0) {
            if (at->get_option_no_throw(argument))
                return;
            throw UsageError(describeUnexpected(*at, argument));
        }
        const auto found = std::find(names.begin(), names.end(), argument);
        if (found == names.end())
            throw UsageError("there is no command '" + argument + "'" +
                             didYouMean(argument, names) + thereAre);
        at = commands[static_cast<std::size_t>(found - names.begin())];
    }
}

}  // namespace

Option& Option::required()
{
    option_.required();
    return *this;
}

Option& Option::needs(const Option& other)
{
    option_.needs(&other.option_);
    return *this;
}

Option& Option::excludes(const Option& other)
{
    option_.excludes(&other.option_);
    return *this;
}

Option& Option::oneOf(const std::vector<std::string>& values)
{
    option_.check(CLI::IsMember(values));
    return *this;
}

Option& Option::showDefault()
{
    option_.capture_default_str();
    return *this;
}

Command Command::add(const std::string& name, const std::string& description) const
{
    CLI::App* const command = app_.add_subcommand(name, description);
    app_.require_subcommand(1);
    return {*command, chosen_};
}

Option Command::text(const std::string& name, std::string& value, const std::string& type,
                     const std::string& description) const
{
    CLI::Option* const option = app_.add_option(name, value, description)->check(notEmpty);
    if (!type.empty())
        option->type_name(type);
    return Option(*option);
}

Option Command::texts(const std::string& name, std::vector<std::string>& values,
                      const std::string& type, const std::string& description) const
{
    CLI::Option* const option = app_.add_option(name, values, description)->check(notEmpty);
    if (!type.empty())
        option->type_name(type);
    return Option(*option);
}

Option Command::number(const std::string& name, double& value, double min, double max,
                       const std::string& description) const
{
    return Option(*app_.add_option(name, value, description)
                       ->type_name("N")
                       ->check([min, max](const std::string& text) {
                           const double given = std::strtod(text.c_str(), nullptr);
                           std::ostringstream problem;
                           if (!(given >= min && given <= max))
                               problem << "must be from " << min << " to " << std::fixed
                                       << std::setprecision(0) << max;
                           return problem.str();
                       }));
}

Option Command::flag(const std::string& name, bool& value, const std::string& description) const
{
    return Option(*app_.add_flag(name, value, description));
}

void Command::perform(std::function<int()> function) const
{
    app_.callback([&chosen = chosen_, function = std::move(function)] { chosen = function; });
}

CommandLine::CommandLine(const std::string& name, const std::string& version,
                         const std::string& description, const std::string& footer)
    : app_(std::make_unique<CLI::App>(description, name))
{
    app_->footer(footer);
    app_->set_version_flag("--version", name + " " + version);
}

CommandLine::~CommandLine() = default;

Command CommandLine::root()
{
    return {*app_, chosen_};
}

void CommandLine::parse(int argc, const char* const* argv)
{
    requireCommand(*app_, {argv + 1, argv + argc});
    try {
        app_->parse(argc, argv);
    } catch (const CLI::ExtrasError&) {
        throw UsageError(describeUnexpected(*app_));
    }
}

int CommandLine::run(int argc, const char* const* argv)
{
    try {
        parse(argc, argv);
        return chosen_();
    } catch (const CLI::ParseError& e) {
        return app_->exit(e) == 0 ? 0 : kUsage;
    } catch (const UsageError& e) {
        printError(e.what());
        return kUsage;
    } catch (const std::exception& e) {
        printError(e.what());
        return 1;
    }
}

}  // namespace KR
