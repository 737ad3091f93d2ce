#include "host/TimelineCommand.h"

#include <cerrno>
#include <functional>
#include <system_error>

#include "host/RecordedRun.h"
#include "host/StopRequest.h"
#include "timeline/ChromeTrace.h"
#include "timeline/HumanTimeline.h"
#include "timeline/JsonTimeline.h"
#include "timeline/Timeline.h"

namespace KR {

namespace {

constexpr int kNoRecording = 2;

struct TimelineOptions {
    std::string file;
    bool json = false;
    std::string format;
    std::string from;   ///< empty for the beginning
    std::string until;  ///< empty for the end
};

/// What events are shown by.
struct Picture {
    std::function<void(const Event&)> take;
    std::function<void()> end;  ///< after the last event, where that does not say so
};

Picture makePicture(const TimelineOptions& options, Output& output)
{
    if (options.format == "chrome") {
        const auto trace = std::make_shared<ChromeTrace>(
            [&output](const std::string& text) { output.write(text); });
        return {[trace](const Event& event) { trace->take(event); }, [trace] { trace->end(); }};
    }
    const auto timeline = std::make_shared<Timeline>(makeRenderer(output, options.json));
    return {[timeline](const Event& event) { timeline->take(event); },
            [timeline] { timeline->end(); }};
}

int showRecording(const TimelineOptions& options, RecordedRun& run)
{
    StopRequest stop;
    Output output(stdout, false, stop);
    const Picture picture = makePicture(options, output);
    RunWindow window(options.from, options.until);
    while (auto event = run.next()) {
        const RunWindow::Place place = window.place(*event);
        if (place == RunWindow::Place::over) {
            picture.take({event->number, window.until(), RunEnded(), event->uptime});
            break;
        }
        if (place == RunWindow::Place::in)
            picture.take(*event);
        if (stop.isRequested())
            break;
    }
    picture.end();
    output.flush();
    if (output.error() != 0 && output.error() != EPIPE)
        throw std::system_error(output.error(), std::generic_category(),
                                "cannot write the timeline");
    return run.isWhole() ? 0 : 1;
}

int performTimeline(const TimelineOptions& options)
{
    std::unique_ptr<RecordedRun> run;
    try {
        run = std::make_unique<RecordedRun>(options.file);
    } catch (const std::runtime_error& e) {
        printError(e.what());
        return kNoRecording;
    }
    return showRecording(options, *run);
}

}  // namespace

void addWindow(const Command& command, std::string& from, std::string& until)
{
    command.text(
        "--from", from, "TIME",
        "Begin at a time of day (\"07:30\", \"2 07:30\") or a while after the start (\"90s\")");
    command.text("--until", until, "TIME", "End there");
}

std::unique_ptr<TimelineRenderer> makeRenderer(Output& output, bool json)
{
    const auto sink = [&output](const std::string& text) { output.write(text); };
    if (json)
        return std::make_unique<JsonTimeline>(sink);
    return std::make_unique<HumanTimeline>(sink, output.wantsColours());
}

void addTimelineCommand(const Command& program)
{
    const Command timeline = program.add("timeline", "Show what happened in a recorded run");
    const auto options = std::make_shared<TimelineOptions>();
    timeline.text("FILE", options->file, "", "What `nimbra run --record` has written").required();
    const Option json = timeline.flag("--json", options->json, "Print one JSON object a line");
    timeline
        .text(
            "--format", options->format, "FORMAT",
            "For other programs: chrome, the trace events that chrome://tracing and Perfetto open")
        .oneOf({"chrome"})
        .excludes(json);
    addWindow(timeline, options->from, options->until);
    timeline.perform([options] { return performTimeline(*options); });
}

}  // namespace KR
