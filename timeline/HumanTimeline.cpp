#include "timeline/HumanTimeline.h"

#include <algorithm>

#include "platform/vo/Log.h"
#include "timeline/Text.h"

namespace KR {

namespace {

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

bool changesLife(const Happening& what)
{
    return std::visit(
        Cases{[](const FocusChanged&) { return true; }, [](const StateChanged&) { return true; },
              [](const SleepChanged&) { return true; },
              [](const FocusBlockChanged&) { return true; },
              [](const ChainChanged&) { return true; }, [](const auto&) { return false; }},
        what);
}

/// A rule, and what kept it from being carried out.
struct Futile {
    std::string rule;
    std::string why;
};

std::optional<Futile> futileOf(const Happening& what)
{
    using Result = std::optional<Futile>;
    return std::visit(Cases{[](const RuleSkipped& each) -> Result {
                                return {{each.rule.name, each.reason}};
                            },
                            [](const RuleWaits& each) -> Result {
                                return {{each.rule.name, each.reason}};
                            },
                            [](const StepEnded& step) -> Result {
                                if (step.outcome == StepOutcome::done)
                                    return {};
                                return {{step.rule.name, step.text + "\n" + step.reason}};
                            },
                            [](const auto&) -> Result { return {}; }},
                      what);
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

void HumanTimeline::event(const Event& event)
{
    const RuleProposed* const hit = std::get_if<RuleProposed>(&event.what);
    if (hit && hit->rule.periodic) {
        flushHit();
        pendingHit_ = PendingHit{event.time, *hit};
        return;
    }
    if (isRepetition(event.what)) {
        pendingHit_.reset();
        return;
    }
    if (changesLife(event.what))
        futile_.clear();
    flushHit();
    std::visit([&](const auto& each) { show(event.time, each); }, event.what);
}

/// Whether the pending hit comes to nothing, as it did the last time. Remembers if it does.
bool HumanTimeline::isRepetition(const Happening& what)
{
    const auto futile = futileOf(what);
    if (!pendingHit_ || !futile || pendingHit_->hit.rule.name != futile->rule)
        return false;
    std::string& last = futile_[futile->rule];
    const bool isSame = last == futile->why;
    last = futile->why;
    return isSame;
}

void HumanTimeline::flushHit()
{
    if (pendingHit_)
        show(pendingHit_->time, pendingHit_->hit);
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

void HumanTimeline::show(vo::TimePoint time, const KeyWritten& change)
{
    line(time, Paint::none, "  ",
         padded(shown(change.key), kKeyWidth) + "  " + shown(change.value.toDisplayString()));
}

void HumanTimeline::show(vo::TimePoint time, const RuleProposed& hit)
{
    line(time, Paint::rule, "● ", shown(hit.rule.name),
         hit.before.empty() ? "" : "before " + hit.before);
}

void HumanTimeline::show(vo::TimePoint time, const RuleResumed& resumed)
{
    line(time, Paint::rule, "● ", shown(resumed.rule.name), "its turn has come");
}

void HumanTimeline::show(vo::TimePoint time, const RuleSkipped& skipped)
{
    line(time, Paint::warn, "    – ", "skipped", skipped.reason);
}

void HumanTimeline::show(vo::TimePoint time, const RuleWaits& waits)
{
    line(time, Paint::warn, "    … ", "waits", waits.reason);
}

void HumanTimeline::show(vo::TimePoint time, const RuleDropped& dropped)
{
    line(time, Paint::warn, "– ", shown(dropped.rule.name) + " waits no longer", dropped.reason);
}

void HumanTimeline::show(vo::TimePoint time, const StepEnded& step)
{
    outcomeLine(time, "    ", step.text, step.outcome, step.reason,
                step.rest == 0 ? "" : "the last " + counted(step.rest, "step") + " dropped");
}

void HumanTimeline::show(vo::TimePoint time, const CallMade& call)
{
    outcomeLine(time, "» ", call.text, call.outcome, call.reason);
}

void HumanTimeline::outcomeLine(vo::TimePoint time, const std::string& indent,
                                const std::string& text, StepOutcome outcome,
                                const std::string& reason, const std::string& remark)
{
    if (outcome == StepOutcome::done) {
        line(time, Paint::good, indent + "✓ ", shown(text), reason);
        return;
    }
    const Paint paint = outcome == StepOutcome::refused ? Paint::warn : Paint::bad;
    line(time, paint, indent + "✗ ",
         shown(text) + " " + stepOutcomeName(outcome) + ": " + shown(reason), remark);
}

void HumanTimeline::show(vo::TimePoint time, const FocusChanged& focus)
{
    lifeLine(time, focus.rule,
             focus.activity.empty() ? shown(focus.previous) + " ends"
                                    : shown(focus.activity) + " has the focus",
             focus.reason);
}

void HumanTimeline::show(vo::TimePoint time, const StateChanged& state)
{
    lifeLine(time, state.rule, "state " + shown(state.previous) + " → " + shown(state.state));
}

void HumanTimeline::show(vo::TimePoint time, const SleepChanged& sleep)
{
    lifeLine(time, sleep.rule, sleep.asleep ? "falls asleep" : "wakes up");
}

void HumanTimeline::show(vo::TimePoint time, const FocusBlockChanged& block)
{
    lifeLine(time, block.rule,
             block.blocked ? "autonomous focus is blocked" : "autonomous focus is free again");
}

void HumanTimeline::show(vo::TimePoint time, const ChainChanged& chain)
{
    lifeLine(time, chain.rule,
             "chain " + shown(chain.chain) + (chain.frozen ? " is frozen" : " can move again"),
             chain.reason);
}

void HumanTimeline::lifeLine(vo::TimePoint time, const std::string& rule, const std::string& text,
                             const std::string& reason)
{
    line(time, Paint::life, rule.empty() ? "◆ " : "    ◆ ", text, reason);
}

void HumanTimeline::show(vo::TimePoint time, const PluginSwitched& plugin)
{
    line(time, Paint::dim, "  ",
         "plugin " + shown(plugin.plugin) + (plugin.running ? " starts" : " stops"));
}

void HumanTimeline::show(vo::TimePoint time, const RemarkMade& remark)
{
    line(time, Paint::strong, "» ", shown(remark.text));
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
