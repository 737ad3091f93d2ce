#include "host/RecordedRun.h"

#include <algorithm>
#include <utility>

#include "host/Output.h"
#include "host/RunCommand.h"

namespace KR {

namespace {

/// Of a file that is damaged all over, more would say nothing more.
constexpr std::size_t kMaxProblemsShown = 20;

std::string textOf(const RecordProblem& problem)
{
    const std::string line = problem.line == 0 ? "" : std::to_string(problem.line) + ":";
    return line + " " + problem.text + ", at byte " + std::to_string(problem.byte);
}

std::string textOf(const RecordGap& gap)
{
    return " " + std::to_string(gap.events) + " events from number " + std::to_string(gap.from) +
           " to " + std::to_string(gap.to) + " are not recorded: " +
           (gap.why == RecordGap::Why::queue ? "they came faster than they could be written"
                                             : "too large");
}

}  // namespace

RecordedRun::RecordedRun(std::string file)
    : file_(std::move(file)),
      reader_(file_, [this](const RecordProblem& problem) { add(textOf(problem)); })
{
}

void RecordedRun::add(const std::string& text)
{
    if (++problems_ <= kMaxProblemsShown)
        printError(file_ + ":" + text);
}

std::optional<Event> RecordedRun::next()
{
    while (auto entry = reader_.next()) {
        if (const auto* const gap = std::get_if<RecordGap>(&*entry))
            add(textOf(*gap));
        else if (auto* const recorded = std::get_if<RecordedEvent>(&*entry))
            return std::move(recorded->event);
    }
    return {};
}

bool RecordedRun::isWhole() const
{
    if (problems_ > kMaxProblemsShown)
        printError(file_ + ": and " + std::to_string(problems_ - kMaxProblemsShown) +
                   " problems more");
    return problems_ == 0;
}

RunWindow::Place RunWindow::place(Event& event)
{
    if (std::holds_alternative<RunBegan>(event.what)) {
        if (!fromText_.empty())
            from_ = endFromText(fromText_, event.time);
        if (!untilText_.empty())
            until_ = endFromText(untilText_, event.time);
        event.time = std::max(event.time, from_);
    }
    if (event.time > until_)
        return Place::over;
    const bool isIn = event.time >= from_ || std::holds_alternative<MonitoringSwitched>(event.what);
    return isIn ? Place::in : Place::before;
}

}  // namespace KR
