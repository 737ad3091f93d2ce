#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace KR {

/// What was asked for makes no sense: the user's mistake, in contrast to one in a file.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What an option or argument of a command has to fulfil. All functions return the same option.
class Option {
public:
    explicit Option(CLI::Option& option) : option_(option) {}

    Option& required();
    /// Goes only together with another.
    Option& needs(const Option& other);
    Option& excludes(const Option& other);
    Option& oneOf(const std::vector<std::string>& values);
    /// The help names what it is without being given.
    Option& showDefault();

private:
    CLI::Option& option_;
};

/// A command of the program, or a group of commands. What is read for an option is written to the
/// variable that it was added with, before the command is performed; so who performs keeps it.
///
/// It hides the library that parses: its header would cost seconds in each source that includes it.
class Command {
public:
    /// A command below this one.
    Command add(const std::string& name, const std::string& description) const;

    /// `type` is what the help calls its value. A text must not be empty: mostly that is a variable
    /// of a script that was never set.
    Option text(const std::string& name, std::string& value, const std::string& type,
                const std::string& description) const;
    /// One or more.
    Option texts(const std::string& name, std::vector<std::string>& values, const std::string& type,
                 const std::string& description) const;
    Option number(const std::string& name, double& value, double min, double max,
                  const std::string& description) const;
    Option flag(const std::string& name, bool& value, const std::string& description) const;

    /// What the command does; returns the exit code.
    void perform(std::function<int()> function) const;

private:
    friend class CommandLine;
    Command(CLI::App& app, std::function<int()>& chosen) : app_(app), chosen_(chosen) {}

    CLI::App& app_;
    std::function<int()>& chosen_;
};

/// The program's command line.
class CommandLine {
public:
    /// `footer` stands below the help.
    CommandLine(const std::string& name, const std::string& version, const std::string& description,
                const std::string& footer);
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /// What all commands are below.
    Command root();

    /// Performs the command that is asked for and returns its exit code; 2, with what is wrong on
    /// stderr, where none is or the UsageError says so; 1 for other exceptions, whose text goes
    /// there.
    int run(int argc, const char* const* argv);

private:
    void parse(int argc, const char* const* argv);

    std::unique_ptr<CLI::App> app_;
    std::function<int()> chosen_;
};

}  // namespace KR
