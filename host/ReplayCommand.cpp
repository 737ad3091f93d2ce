#include "host/ReplayCommand.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "host/ConfigurationCheck.h"
#include "host/Output.h"
#include "host/RecordedRun.h"
#include "host/ReplayReport.h"
#include "host/RunCommand.h"
#include "host/StopRequest.h"
#include "host/TimelineCommand.h"
#include "platform/packages/PackageManager.h"
#include "platform/vo/Application.h"
#include "platform/vo/Log.h"
#include "platform/vo/VirtualClock.h"
#include "record/Replay.h"
#include "record/Rerun.h"
#include "timeline/Timeline.h"

namespace KR {

namespace {

constexpr int kUnreadable = 2;

struct ReplayOptions {
    std::string file;
    std::string config;    ///< of other rules; empty for the recorded ones
    std::string packages;  ///< a folder of others; empty for the recorded ones
    bool json = false;
    std::string from;
    std::string until;
};

/// Passes on what is to be shown of a run.
class Showing {
public:
    Showing(const ReplayOptions& options, Output& output)
        : timeline_(makeRenderer(output, options.json)), window_(options.from, options.until)
    {
    }

    void take(Event event)
    {
        if (isOver_)
            return;
        const RunWindow::Place place = window_.place(event);
        isOver_ = place == RunWindow::Place::over;
        if (place == RunWindow::Place::in)
            timeline_.take(event);
        else if (isOver_)
            timeline_.take({event.number, window_.until(), RunEnded(), event.uptime});
    }
    void end() { timeline_.end(); }

private:
    Timeline timeline_;
    RunWindow window_;
    bool isOver_ = false;
};

bool replayAgain(const ReplayOptions& options, RecordedRun& run, Output& output)
{
    Showing showing(options, output);
    const ReplayResult result = Replay([&run] { return run.next(); },
                                       [&showing](const Event& event) { showing.take(event); })
                                    .run();
    showing.end();
    output.write(options.json ? replayJson(result) : replayText(result));
    return !result.difference;
}

std::vector<vo::PackageInfo> packagesIn(const std::string& folder)
{
    requirePackagesFolder(folder);
    const auto clock = std::make_shared<vo::VirtualClock>(vo::TimePoint());
    vo::Application application(clock);
    return PackageManager(application.session(), clock, folder).packages();
}

Rerun::Options rerunOptions(const ReplayOptions& options)
{
    Rerun::Options rerun;
    if (!options.config.empty()) {
        const ConfigurationReport report = inspectConfiguration(options.config);
        if (!report.failure.empty())
            throw std::runtime_error(report.failure);
        for (const ConfigurationProblem& problem : report.problems)
            printError(textInFile(options.config, {problem.line, problem.column}, problem.text));
        rerun.rules = contentOf(options.config);
        rerun.rulesPath = options.config;
        rerun.names = report.ruleNames();
    }
    if (!options.packages.empty())
        rerun.packages = packagesIn(options.packages);
    return rerun;
}

bool replayOthers(const ReplayOptions& options, Rerun::Options others, RecordedRun& run,
                  Output& output)
{
    RunWindow window(options.from, options.until);
    const auto next = [&]() -> std::optional<Event> {
        std::optional<Event> event = run.next();
        if (event && std::holds_alternative<RunBegan>(event->what)) {
            Event start = *event;
            window.place(start);
        }
        if (event && event->time > window.until())
            return {};
        return event;
    };
    Rerun::Result result = Rerun(next, std::move(others), [](const Event&) {}).run();
    result.comparison.cutBefore(window.from());
    output.write(options.json ? comparisonJson(result) : comparisonText(result));
    return result.comparison.isSame();
}

int performReplay(const ReplayOptions& options)
{
    std::unique_ptr<RecordedRun> run;
    Rerun::Options others;
    const bool hasOthers = !options.config.empty() || !options.packages.empty();
    try {
        run = std::make_unique<RecordedRun>(options.file);
        if (hasOthers)
            others = rerunOptions(options);
    } catch (const std::runtime_error& e) {
        printError(e.what());
        return kUnreadable;
    }
    // What has no robot complains of many things, none of which is of interest here.
    vo::setLogLevel(vo::LogLevel::silent);
    StopRequest stop;
    Output output(stdout, false, stop);
    const bool isSame = hasOthers ? replayOthers(options, std::move(others), *run, output)
                                  : replayAgain(options, *run, output);
    output.flush();
    if (output.error() != 0 && output.error() != EPIPE)
        throw std::system_error(output.error(), std::generic_category(),
                                "cannot write the timeline");
    return run->isWhole() && isSame ? 0 : 1;
}

}  // namespace

void addReplayCommand(const Command& program)
{
    const Command replay =
        program.add("replay", "Live a recorded run again, or see what other rules would have done");
    const auto options = std::make_shared<ReplayOptions>();
    replay.text("FILE", options->file, "", "What `nimbra run --record` has written").required();
    replay.text("--config", options->config, "FILE",
                "Other rules: tell how each fares otherwise (default: the recorded ones)");
    replay.text("--packages", options->packages, "DIR",
                "Folder of other packages (default: the recorded ones)");
    addWindow(replay, options->from, options->until);
    replay.flag("--json", options->json, "Print one JSON object a line");
    replay.perform([options] { return performReplay(*options); });
}

}  // namespace KR
