#include "host/RunCommand.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "host/ConfigurationCheck.h"
#include "host/History.h"
#include "host/Host.h"
#include "host/Output.h"
#include "host/Player.h"
#include "host/RecordingOptions.h"
#include "host/SignalWatch.h"
#include "host/StopRequest.h"
#include "host/TimelineCommand.h"
#include "platform/packages/KRBehaviorManager.h"
#include "platform/vo/Path.h"
#include "robot/MachineBattery.h"
#include "robot/RobotBody.h"
#include "robot/Scenario.h"
#include "timeline/Text.h"
#include "timeline/Timeline.h"

namespace KR {

namespace {

namespace fs = std::filesystem;

/// Rules that make one another true without end would keep a scenario at one moment for ever. An
/// entry of a scenario causes some hundred tasks at most.
constexpr std::size_t kMaxTasksAtOneMoment = 100'000;

/// Slower or faster than this nobody can follow, and times would leave their range.
constexpr double kMinSpeed = 1e-3;
constexpr double kMaxSpeed = 1e9;

struct RunOptions {
    std::string config;                ///< empty for the default file
    std::string packages;              ///< the packages folder; empty for none
    std::vector<std::string> plugins;  ///< built-in ones to add, beside those of the file
    std::string preferences;           ///< file that preferences are kept in; empty for none
    std::string state;                 ///< folder of what conditions remember; empty for none
    std::string scenario;              ///< empty for a live run
    double speed = 1;                  ///< of a scenario
    bool fast = false;                 ///< a scenario without any waiting
    std::string until;                 ///< empty for no limit
    bool json = false;
    std::string logLevel = "warning";
    RecordingOptions recording;
    std::string history;  ///< of a live run; see makeHistory()
};

/// One run, live or of a scenario.
class Run {
public:
    explicit Run(const RunOptions& options)
        : options_(options), output_(stdout, !isFast(), stop_), signals_(stop_)
    {
    }

    int play()
    {
        const Scenario scenario = loadScenario(options_.scenario);
        const vo::TimePoint end = options_.until.empty()
                                      ? Player::endOf(scenario)
                                      : endFromText(options_.until, scenario.start);
        const auto clock = std::make_shared<vo::VirtualClock>(scenario.start, kMaxTasksAtOneMoment);
        const auto speed = options_.fast ? std::nullopt : std::optional(options_.speed);
        const auto settle = [&](Host&) { clock->runPending(); };
        const auto play = [&](Host& host, EventStream& events) {
            return Player(host, *clock, events, stop_, speed).play(scenario, end);
        };
        return live(clock, robotOptions(), {scenario.title, scenario.keys()}, settle, play);
    }

    int liveOn()
    {
        const std::shared_ptr<vo::Clock> clock = vo::makeRealClock();
        const vo::TimePoint start = clock->now();
        std::optional<vo::Duration> length;
        if (!options_.until.empty())
            length = endFromText(options_.until, start) - start;
        Robot::Options robot = robotOptions();
        robot.powerSupplies = MachineBattery::kFolder;
        const auto settle = [](Host& host) { host.ready().wait(); };
        return live(clock, robot, {}, settle, [&](Host&, EventStream&) {
            if (!length) {
                stop_.wait();
                return true;
            }
            const auto timer = clock->makeExecutor("Run", vo::Clock::Threading::shared);
            stop_.waitFor(*timer, *length);
            timer->close();
            return true;
        });
    }

private:
    bool isFast() const { return !options_.scenario.empty() && options_.fast; }

    Robot::Options robotOptions() const
    {
        Robot::Options robot;
        robot.preferences = options_.preferences;
        return robot;
    }

    /// What the timeline shows of a run beside the rules.
    struct Subject {
        std::string title;
        std::vector<std::string> keys;
    };

    /// Brings a host up, has it settle, lets `course` pass, which tells whether it came to its end,
    /// and brings the host down.
    template <class Settle, class Course>
    int live(const std::shared_ptr<vo::Clock>& clock, const Robot::Options& robot,
             const Subject& subject, const Settle& settle, const Course& course)
    {
        const std::string config = configPath(options_.config);
        requirePackagesFolder(options_.packages);
        EventStream events(clock);
        Timeline timeline(makeRenderer(output_, options_.json));
        timeline.follow(events);
        const ConfigurationReport report = inspectConfiguration(config);
        if (!report.failure.empty())
            throw std::runtime_error(report.failure);
        std::vector<std::string> plugins = report.plugins;
        for (const std::string& plugin : options_.plugins) {
            if (std::find(plugins.begin(), plugins.end(), plugin) == plugins.end())
                plugins.push_back(plugin);
        }
        // On virtual time nobody minds to wait for the disk.
        const auto recording = makeRecording(options_.recording, !clock->hasThreads());
        if (recording)
            recording->follow(events);
        const auto history = clock->hasThreads()
                                 ? makeHistory(options_.history, options_.recording.file, events)
                                 : nullptr;
        const std::set<std::string>& chains = robotChains();
        events.publish(RunBegan{subject.title,
                                config,
                                contentOf(config),
                                report.ruleNames(),
                                subject.keys,
                                {chains.begin(), chains.end()}});
        bool hasEnded = false;
        std::string failure;
        {
            Host host(clock, events,
                      {config, options_.packages, plugins, robot, options_.state, report.resume});
            settle(host);
            host.start();
            try {
                hasEnded = course(host, events);
            } catch (const std::exception& e) {
                failure = std::string(e.what()) + ", at " + clockTime(clock->now());
            }
            host.stop();
        }
        events.publish(RunEnded{!hasEnded});
        events.flush();
        if (recording)
            recording->close();
        if (history)
            history->close();
        if (!failure.empty()) {
            output_.flush();
            throw std::runtime_error(failure);
        }
        output_.flush();
        const int code = exitCode(hasEnded);
        return code == 0 && recording && !recording->isComplete() ? 1 : code;
    }

    int exitCode(bool hasEnded) const
    {
        // A reader who has seen enough is no failure.
        if (output_.error() == EPIPE)
            return 0;
        if (output_.error() != 0) {
            throw std::system_error(output_.error(), std::generic_category(),
                                    "cannot write the timeline");
        }
        return hasEnded ? 0 : 128 + stop_.signal();
    }

    const RunOptions options_;
    StopRequest stop_;
    Output output_;
    SignalWatch signals_;
};

/// The rules that come with this program, as they lie below an install prefix, and in a build
/// folder too; "" where they are not there.
std::string shippedConfig()
{
    constexpr int kMaxFoldersUp = 2;
    std::error_code error;
    fs::path folder = fs::canonical("/proc/self/exe", error).parent_path();
    for (int i = 0; i <= kMaxFoldersUp && !folder.empty(); ++i, folder = folder.parent_path()) {
        const fs::path file = folder / "share/tessel/autonomy.cfg";
        if (fs::is_regular_file(file, error))
            return file.string();
    }
    return {};
}

int perform(const RunOptions& options)
{
    const vo::LogLevel level = vo::parseLogLevel(options.logLevel);
    vo::setLogLevel(level);
    // Nobody asks for it, and everybody wants to see it who does not ask for less.
    if (level == vo::LogLevel::warning)
        vo::setLogLevel(KRBehaviorManager::kOutputCategory, vo::LogLevel::info);
    // A scenario's times have no zone, and mean the same everywhere. There is no other thread yet.
    if (!options.scenario.empty())
        ::setenv("TZ", "UTC0", 1);  // NOLINT(concurrency-mt-unsafe)
    Run run(options);
    return options.scenario.empty() ? run.liveOn() : run.play();
}

}  // namespace

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string configPath(const std::string& given)
{
    if (!given.empty())
        return given;
    for (const std::string& path : {vo::path::findConf("tessel", "autonomy.cfg"), shippedConfig()})
        if (!path.empty())
            return path;
    std::string folders;
    for (const std::string& folder : vo::path::confFolders("tessel", false))
        folders += (folders.empty() ? "" : ", ") + folder;
    throw std::runtime_error("there is no autonomy.cfg in " + folders +
                             "; name the rules to follow with --config FILE");
}

void requirePackagesFolder(const std::string& folder)
{
    std::error_code error;
    if (!folder.empty() && !fs::is_directory(folder, error))
        throw std::runtime_error("there is no packages folder '" + folder +
                                 "'; `nimbra package install` makes one");
}

std::optional<vo::Duration> durationFromText(const std::string& text)
{
    static const std::map<std::string, std::chrono::seconds> units{{"s", std::chrono::seconds(1)},
                                                                   {"m", std::chrono::minutes(1)},
                                                                   {"h", std::chrono::hours(1)},
                                                                   {"d", std::chrono::hours(24)}};
    std::int32_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    const auto unit = units.find(std::string(end, text.data() + text.size()));
    if (error != std::errc() || unit == units.end())
        return std::nullopt;
    // Still too long when it is cut, and no longer too long for microseconds.
    constexpr std::chrono::seconds kCut = std::chrono::hours(24) * (kMaxScenarioDays + 1);
    return std::clamp(unit->second * std::int64_t{count}, -kCut, kCut);
}

vo::TimePoint endFromText(const std::string& text, vo::TimePoint start)
{
    constexpr vo::Duration kLongest = std::chrono::hours(24) * kMaxScenarioDays;
    std::optional<vo::Duration> length = durationFromText(text);
    if (const auto time = parseDayTime(text))
        length = midnightOf(start) + time->sinceFirstMidnight(1) - start;
    if (!length) {
        throw UsageError("'" + printable(text) +
                         "' is no time (\"07:30\", \"2 07:30\") and no duration (\"90s\", \"5m\")");
    }
    if (*length <= vo::Duration::zero())
        throw UsageError("'" + text + "' is not after the start of the run");
    if (*length > kLongest)
        throw UsageError("'" + text + "' is more than " + std::to_string(kMaxScenarioDays) +
                         " days after the start of the run");
    return start + *length;
}

void addConfig(const Command& command, std::string& config)
{
    command.text("--config", config, "FILE", "Rules to follow (default: tessel/autonomy.cfg)");
}

void addPackages(const Command& command, std::string& packages)
{
    command.text("--packages", packages, "DIR",
                 "Folder of the installed packages (default: no packages)");
}

void addRunCommand(const Command& program)
{
    const Command run = program.add("run", "Live, or play a scenario, and show what happens");
    const auto options = std::make_shared<RunOptions>();
    addConfig(run, options->config);
    const Option scenario = run.text("--scenario", options->scenario, "FILE",
                                     "What happens to the robot, on virtual time");
    Option speed = run.number("--speed", options->speed, kMinSpeed, kMaxSpeed,
                              "Seconds of the scenario in one second");
    speed.showDefault().needs(scenario);
    run.flag("--as-fast-as-possible", options->fast, "Play the scenario without any waiting")
        .needs(scenario)
        .excludes(speed);
    run.text("--until", options->until, "TIME",
             "End at a time of day (\"07:30\", \"2 07:30\") or after a duration (\"90s\")");
    addPackages(run, options->packages);
    run.texts("--plugin", options->plugins, "NAME", "Built-in plugin to add; may be given again")
        .oneOf(NimbraLaunchpad::addableModulePlugins());
    run.text("--preferences", options->preferences, "FILE",
             "File that the robot's preferences are kept in (default: not kept)");
    run.text("--state", options->state, "DIR",
             "Folder in which the rules' holds and counts survive a restart (default: none do)");
    run.flag("--json", options->json, "Print one JSON object a line");
    addRecording(run, options->recording);
    addHistory(run, options->history).excludes(scenario);
    run.text("--log-level", options->logLevel, "L",
             "What to log on stderr; from warning on, what behaviours print, too")
        .showDefault()
        .oneOf({"silent", "error", "warning", "info", "verbose"});
    run.perform([options] { return perform(*options); });
}

}  // namespace KR
