#include "host/HumanTimeline.h"

#include <algorithm>

#include "host/Text.h"
#include "platform/vo/Log.h"

namespace KR {

namespace {

using Kind = TimelineEvent::Kind;

/// Width of "06:00:00.250".
constexpr std::size_t kTimeWidth = 12;
/// Names of keys are padded to this, which most stay below.
constexpr std::size_t kKeyWidth = 38;
/// Lines of a list in the summary; who wants them all asks for JSON.
constexpr std::size_t kMaxListed = 20;

/// A text from outside. A key can hold a picture.
std::string shown(const std::string& text)
{
    return printable(vo::shortened(text, vo::kMaxLogTextBytes));
}

std::string padded(const std::string& text, std::size_t width)
{
    const std::size_t used = displayWidth(text);
    return used < width ? text + std::string(width - used, ' ') : text;
}

std::string rightAligned(const std::string& text, std::size_t width)
{
    return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string counted(std::size_t count, const std::string& noun)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

/// Zero is nothing to look at.
std::string cell(std::size_t count, std::size_t width)
{
    return rightAligned(count == 0 ? "-" : std::to_string(count), width);
}

bool changesLife(const TimelineEvent& event)
{
    switch (event.kind) {
        case Kind::focus:
        case Kind::state:
        case Kind::asleep:
        case Kind::autonomousFocus:
        case Kind::chain:
            return true;
        default:
            return false;
    }
}

bool isFutile(const TimelineEvent& event)
{
    return event.kind == Kind::skip || event.kind == Kind::wait ||
           (event.kind == Kind::step && event.outcome != StepOutcome::done);
}

}  // namespace

std::string HumanTimeline::painted(Paint paint, const std::string& text) const
{
    static const std::map<Paint, const char*> codes{
        {Paint::dim, "2"},   {Paint::strong, "1"}, {Paint::rule, "1;36"}, {Paint::good, "32"},
        {Paint::warn, "33"}, {Paint::bad, "1;31"}, {Paint::life, "35"}};
    const auto code = codes.find(paint);
    if (!colours_ || code == codes.end() || text.empty())
        return text;
    return std::string("\x1b[") + code->second + "m" + text + "\x1b[0m";
}

void HumanTimeline::begin(const RunHeader& header)
{
    const std::string title = header.title.empty() ? "Live" : shown(header.title);
    sink_(painted(Paint::strong, title) + "\n" +
          painted(Paint::dim, counted(header.rules.size(), "rule") + " from " +
                                  shown(header.config) + "; times are UTC") +
          "\n");
}

void HumanTimeline::event(const TimelineEvent& event)
{
    if (event.kind == Kind::hit && event.periodic) {
        flushHit();
        pendingHit_ = event;
        return;
    }
    if (isRepetition(event)) {
        pendingHit_.reset();
        return;
    }
    if (changesLife(event))
        futile_.clear();
    flushHit();
    print(event);
}

/// Whether the pending hit comes to nothing, as it did the last time. Remembers if it does.
bool HumanTimeline::isRepetition(const TimelineEvent& event)
{
    if (!pendingHit_ || pendingHit_->rule != event.rule || !isFutile(event))
        return false;
    const std::string what = event.subject + "\n" + event.reason;
    std::string& last = futile_[event.rule];
    const bool isSame = last == what;
    last = what;
    return isSame;
}

void HumanTimeline::flushHit()
{
    if (pendingHit_)
        print(*pendingHit_);
    pendingHit_.reset();
}

/// One line; the time and the day are printed where they differ from those of the line before.
void HumanTimeline::line(vo::TimePoint time, Paint paint, const std::string& mark,
                         const std::string& text, const std::string& reason)
{
    const std::string day = dayTitle(time);
    if (day != lastDay_) {
        sink_("\n" + painted(Paint::strong, day) + "\n\n");
        lastTime_.clear();
    }
    lastDay_ = day;
    const std::string clock = clockTime(time);
    const std::string column = clock == lastTime_ ? std::string() : clock;
    lastTime_ = clock;
    sink_(painted(Paint::dim, padded(column, kTimeWidth)) + "  " + painted(paint, mark + text) +
          (reason.empty() ? "" : painted(Paint::dim, "  (" + shown(reason) + ")")) + "\n");
}

void HumanTimeline::print(const TimelineEvent& event)
{
    const std::string subject = shown(event.subject);
    const std::string rule = shown(event.rule);
    switch (event.kind) {
        case Kind::say:
            line(event.time, Paint::strong, "» ", subject);
            break;
        case Kind::key:
            line(event.time, Paint::none, "  ",
                 padded(subject, kKeyWidth) + "  " + shown(event.value.toDisplayString()));
            break;
        case Kind::hit:
            line(event.time, Paint::rule, "● ", rule,
                 subject.empty() ? "" : "before " + event.subject);
            break;
        case Kind::resume:
            line(event.time, Paint::rule, "● ", rule, "its turn has come");
            break;
        case Kind::skip:
            line(event.time, Paint::warn, "    – ", "skipped", event.reason);
            break;
        case Kind::wait:
            line(event.time, Paint::warn, "    … ", "waits", event.reason);
            break;
        case Kind::drop:
            line(event.time, Paint::warn, "– ", rule + " waits no longer", event.reason);
            break;
        case Kind::step:
        case Kind::call:
            printStep(event);
            break;
        case Kind::plugin:
            line(event.time, Paint::dim, "  ",
                 "plugin " + subject + (event.on ? " starts" : " stops"));
            break;
        case Kind::error:
            break;  // the log itself stands on stderr
        default:
            printLife(event);
            break;
    }
}

void HumanTimeline::printStep(const TimelineEvent& event)
{
    const std::string indent = event.kind == Kind::call ? "» " : "    ";
    const std::string subject = shown(event.subject);
    if (event.outcome == StepOutcome::done) {
        line(event.time, Paint::good, indent + "✓ ", subject, event.reason);
        return;
    }
    const Paint paint = event.outcome == StepOutcome::refused ? Paint::warn : Paint::bad;
    line(event.time, paint, indent + "✗ ",
         subject + " " + stepOutcomeName(event.outcome) + ": " + shown(event.reason),
         event.rest == 0 ? "" : "the last " + counted(event.rest, "step") + " dropped");
}

void HumanTimeline::printLife(const TimelineEvent& event)
{
    const std::string subject = shown(event.subject);
    const std::string previous = shown(event.previous);
    std::string text;
    switch (event.kind) {
        case Kind::focus:
            text = subject.empty() ? previous + " ends" : subject + " has the focus";
            break;
        case Kind::state:
            text = "state " + previous + " → " + subject;
            break;
        case Kind::asleep:
            text = event.on ? "falls asleep" : "wakes up";
            break;
        case Kind::autonomousFocus:
            text = event.on ? "autonomous focus is blocked" : "autonomous focus is free again";
            break;
        default:
            text = "chain " + subject + (event.on ? " is frozen" : " can move again");
            break;
    }
    line(event.time, Paint::life, event.rule.empty() ? "◆ " : "    ◆ ", text, event.reason);
}

void HumanTimeline::end(const RunSummary& summary)
{
    flushHit();
    std::size_t hits = 0;
    for (const auto& rule : summary.rules)
        hits += rule.second.hits;
    sink_(
        "\n" +
        painted(Paint::strong, std::string("Summary: ") + lengthText(summary.end - summary.start) +
                                   " of life, " + counted(hits, "hit") + " of " +
                                   counted(summary.rules.size() + summary.neverHit.size(), "rule") +
                                   (summary.interrupted ? ", interrupted" : "")) +
        "\n\n");
    printTable(summary);
    const std::size_t never = summary.neverHit.size();
    sink_(painted(never == 0 ? Paint::none : Paint::warn, "Never hit: " + std::to_string(never)) +
          "\n");
    for (const std::string& rule : summary.neverHit)
        sink_("  " + shown(rule) + "\n");
    printTexts("Refused", summary.refusedCount, summary.refused, Paint::warn);
    printTexts("Errors", summary.errorCount, summary.errors, Paint::bad);
}

void HumanTimeline::printTable(const RunSummary& summary)
{
    if (summary.rules.empty())
        return;
    sink_(painted(Paint::dim, "  hits  done  skipped  refused  failed  rule") + "\n");
    for (const auto& [rule, count] : summary.rules) {
        sink_(cell(count.hits, 6) + cell(count.done, 6) + cell(count.skipped, 9) +
              cell(count.refused, 9) + cell(count.failed, 8) + "  " + shown(rule) + "\n");
    }
    sink_("\n");
}

void HumanTimeline::printTexts(const std::string& title, std::size_t count,
                               const std::map<std::string, std::size_t>& texts, Paint paint)
{
    sink_(painted(count == 0 ? Paint::none : paint, title + ": " + std::to_string(count)) + "\n");
    std::size_t listed = 0;
    for (const auto& [text, times] : texts) {
        if (listed++ == kMaxListed) {
            sink_("  and " + std::to_string(texts.size() - kMaxListed) + " more\n");
            break;
        }
        sink_("  " + std::to_string(times) + " × " + shown(text) + "\n");
    }
}

}  // namespace KR
