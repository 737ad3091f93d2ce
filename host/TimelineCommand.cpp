#include "host/TimelineCommand.h"

#include <algorithm>
#include <cerrno>
#include <functional>
#include <limits>
#include <system_error>

#include "host/RunCommand.h"
#include "host/StopRequest.h"
#include "record/RecordReader.h"
#include "timeline/ChromeTrace.h"
#include "timeline/HumanTimeline.h"
#include "timeline/JsonTimeline.h"
#include "timeline/Timeline.h"

namespace KR {

namespace {

constexpr int kNoRecording = 2;
/// Of a file that is damaged all over, more would say nothing more.
constexpr std::size_t kMaxProblemsShown = 20;

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

/// What is wrong with a recording, as lines of stderr.
class ProblemList {
public:
    explicit ProblemList(std::string file) : file_(std::move(file)) {}

    void add(const RecordProblem& problem)
    {
        const std::string line = problem.line == 0 ? "" : std::to_string(problem.line) + ":";
        add(line + " " + problem.text + ", at byte " + std::to_string(problem.byte));
    }
    void add(const RecordGap& gap)
    {
        add(" " + std::to_string(gap.events) + " events from number " + std::to_string(gap.from) +
            " to " + std::to_string(gap.to) + " are not recorded: " +
            (gap.why == RecordGap::Why::queue ? "they came faster than they could be written"
                                              : "too large"));
    }
    void printRest() const
    {
        if (count_ > kMaxProblemsShown)
            printError(file_ + ": and " + std::to_string(count_ - kMaxProblemsShown) +
                       " problems more");
    }
    bool isEmpty() const { return count_ == 0; }

private:
    void add(const std::string& text)
    {
        if (++count_ <= kMaxProblemsShown)
            printError(file_ + ":" + text);
    }

    const std::string file_;
    std::size_t count_ = 0;
};

/// Shows the events of a recording between two times. What a run begins with, and which keys its
/// rules read, counts whenever it was told.
class Showing {
public:
    Showing(const TimelineOptions& options, Picture picture)
        : options_(options), picture_(std::move(picture))
    {
    }

    /// False when no later event is to be shown.
    bool show(Event event)
    {
        if (std::holds_alternative<RunBegan>(event.what)) {
            setTimes(event.time);
            event.time = std::max(event.time, from_);
        }
        if (event.time > until_) {
            picture_.take({event.number, until_, RunEnded(), event.uptime});
            return false;
        }
        if (event.time >= from_ || std::holds_alternative<MonitoringSwitched>(event.what))
            picture_.take(event);
        return true;
    }

    void end() const { picture_.end(); }

private:
    void setTimes(vo::TimePoint start)
    {
        if (!options_.from.empty())
            from_ = endFromText(options_.from, start);
        if (!options_.until.empty())
            until_ = endFromText(options_.until, start);
    }

    const TimelineOptions& options_;
    const Picture picture_;
    vo::TimePoint from_ = vo::TimePoint::min();
    vo::TimePoint until_ = vo::TimePoint::max();
};

int showRecording(const TimelineOptions& options, RecordReader& reader, ProblemList& problems)
{
    StopRequest stop;
    Output output(stdout, false, stop);
    Showing showing(options, makePicture(options, output));
    while (auto entry = reader.next()) {
        if (const auto* const gap = std::get_if<RecordGap>(&*entry))
            problems.add(*gap);
        auto* const recorded = std::get_if<RecordedEvent>(&*entry);
        if (recorded && !showing.show(std::move(recorded->event)))
            break;
        if (stop.isRequested())
            break;
    }
    showing.end();
    output.flush();
    if (output.error() != 0 && output.error() != EPIPE)
        throw std::system_error(output.error(), std::generic_category(),
                                "cannot write the timeline");
    problems.printRest();
    return problems.isEmpty() ? 0 : 1;
}

int performTimeline(const TimelineOptions& options)
{
    ProblemList problems(options.file);
    std::unique_ptr<RecordReader> reader;
    try {
        reader = std::make_unique<RecordReader>(
            options.file, [&problems](const RecordProblem& problem) { problems.add(problem); });
    } catch (const std::runtime_error& e) {
        printError(e.what());
        return kNoRecording;
    }
    return showRecording(options, *reader, problems);
}

}  // namespace

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
    timeline.text(
        "--from", options->from, "TIME",
        "Begin at a time of day (\"07:30\", \"2 07:30\") or a while after the start (\"90s\")");
    timeline.text("--until", options->until, "TIME", "End there");
    timeline.perform([options] { return performTimeline(*options); });
}

}  // namespace KR
