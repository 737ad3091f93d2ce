#include "host/ReplayReport.h"

#include <nlohmann/json.hpp>

#include "record/EventCodec.h"
#include "timeline/HumanTimeline.h"
#include "timeline/Text.h"

namespace KR {

namespace {

using ReplayOutput = nlohmann::ordered_json;

std::string counted(std::size_t count, const std::string& what)
{
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

/// An event as the timeline shows it, without its time; what it does not show, in words.
std::string shortText(const std::optional<Event>& event)
{
    if (!event)
        return "nothing";
    if (const auto* const hits = std::get_if<HitsFound>(&event->what)) {
        std::string text = "hit:";
        for (const FoundHit& hit : hits->hits)
            text += (text.back() == ':' ? " " : ", ") + hit.rule;
        return text + " (after write " + std::to_string(hits->after) + ")";
    }
    if (const auto* const request = std::get_if<RequestMade>(&event->what))
        return "asks for " + request->text;
    // The first remark takes the day and the time, the second has shown what waits for more.
    const Event remark{0, event->time, RemarkMade()};
    std::string lines;
    HumanTimeline timeline([&lines](const std::string& text) { lines += text; }, false);
    timeline.event(remark);
    lines.clear();
    timeline.event(*event);
    timeline.event(remark);
    const std::size_t end = lines.find('\n');
    const std::size_t begin = lines.find_first_not_of(' ');
    if (begin == std::string::npos || begin >= end || lines[begin] == '\n')
        return encodeEvent({0, event->time, event->what});
    return lines.substr(begin, end - begin);
}

ReplayOutput jsonOf(const std::optional<Event>& event)
{
    return event ? ReplayOutput::parse(encodeEvent(*event)) : ReplayOutput();
}

std::string lineOf(const ReplayOutput& json)
{
    return json.dump(-1, ' ', false, ReplayOutput::error_handler_t::replace) + "\n";
}

ReplayOutput jsonOf(const std::optional<RuleOccurrence>& occurrence)
{
    if (!occurrence)
        return nullptr;
    return {{"time", isoTime(occurrence->time)},
            {"outcome", outcomeName(occurrence->outcome)},
            {"gate", occurrence->gate},
            {"effects", occurrence->effects}};
}

std::string outcomeText(const RuleOccurrence& occurrence)
{
    const std::string gate = occurrence.gate.empty() ? "" : " (" + printable(occurrence.gate) + ")";
    return outcomeName(occurrence.outcome) + gate;
}

std::string changeText(const RuleChange& change)
{
    using Kind = RuleChange::Kind;
    switch (change.kind) {
        case Kind::less:
            return "was " + outcomeText(*change.before) +
                   ", and now is not proposed: " + change.gate;
        case Kind::more:
            return outcomeText(*change.now) + " now, and was not proposed";
        case Kind::earlier:
        case Kind::later:
            return "proposed at " + clockTime(change.now->time) +
                   " now: " + outcomeText(*change.now);
        case Kind::otherwise:
            return "was " + outcomeText(*change.before) + ", and now " + outcomeText(*change.now);
    }
    return {};
}

vo::TimePoint timeOf(const RuleChange& change)
{
    return change.before ? change.before->time : change.now->time;
}

std::string feltText(const RuleComparison::Felt& felt)
{
    return "The first difference that body or world feel is at " + clockTime(felt.time) + ": '" +
           printable(felt.rule) + "' " + (felt.isNew ? "does now" : "does not do any more") +
           " what it did" + (felt.isNew ? " not" : "") + ": " + printable(felt.effect) +
           ".\nFrom there on the robot might have sensed something else than was recorded.\n";
}

}  // namespace

std::string replayText(const ReplayResult& result)
{
    if (!result.difference)
        return "identical: " + counted(result.decisions, "decision") + "\n";
    const ReplayDifference& difference = *result.difference;
    const std::optional<Event>& event =
        difference.recorded ? difference.recorded : difference.replayed;
    const std::string at = event ? ", at " + clockTime(event->time) : "";
    return "different after " + counted(result.decisions, "decision") + at + ": " +
           printable(difference.text) + "\n" + "  recorded  " +
           printable(shortText(difference.recorded)) + "\n" + "  now       " +
           printable(shortText(difference.replayed)) + "\n";
}

std::string replayJson(const ReplayResult& result)
{
    ReplayOutput json{
        {"event", "replay"}, {"identical", !result.difference}, {"decisions", result.decisions}};
    if (result.difference)
        json["difference"] = {{"text", result.difference->text},
                              {"recorded", jsonOf(result.difference->recorded)},
                              {"now", jsonOf(result.difference->replayed)}};
    return lineOf(json);
}

std::string comparisonText(const Rerun::Result& result)
{
    const RuleComparison& comparison = result.comparison;
    std::string text;
    std::size_t same = 0;
    for (const ComparedRule& rule : comparison.rules) {
        if (rule.changes.empty()) {
            ++same;
            continue;
        }
        text += printable(rule.rule) + "\n  proposed " + std::to_string(rule.hitsBefore) +
                " times, and now " + std::to_string(rule.hitsNow) + "\n";
        for (const RuleChange& change : rule.changes)
            text += "  " + clockTime(timeOf(change)) + "  " + changeName(change.kind) + ": " +
                    changeText(change) + "\n";
        text += "\n";
    }
    if (comparison.isSame())
        return "The same: " + counted(same, "rule") + " with the same hits and outcomes\n";
    text += counted(comparison.rules.size() - same, "rule") + " otherwise, " +
            std::to_string(same) + " as before.\n";
    if (comparison.firstFelt)
        text += feltText(*comparison.firstFelt);
    if (result.assumed > 0)
        text += counted(result.assumed, "answer") +
                " of services or activities are not recorded, and assumed.\n";
    return text;
}

std::string comparisonJson(const Rerun::Result& result)
{
    const RuleComparison& comparison = result.comparison;
    ReplayOutput rules = ReplayOutput::array();
    for (const ComparedRule& rule : comparison.rules) {
        ReplayOutput changes = ReplayOutput::array();
        for (const RuleChange& change : rule.changes)
            changes.push_back({{"time", isoTime(timeOf(change))},
                               {"change", changeName(change.kind)},
                               {"gate", change.gate},
                               {"before", jsonOf(change.before)},
                               {"now", jsonOf(change.now)}});
        rules.push_back({{"rule", rule.rule},
                         {"hitsBefore", rule.hitsBefore},
                         {"hitsNow", rule.hitsNow},
                         {"changes", std::move(changes)}});
    }
    ReplayOutput json{{"event", "comparison"},
                      {"same", comparison.isSame()},
                      {"rules", std::move(rules)},
                      {"assumedAnswers", result.assumed},
                      {"firstFelt", nullptr}};
    if (const auto& felt = comparison.firstFelt)
        json["firstFelt"] = {{"time", isoTime(felt->time)},
                             {"rule", felt->rule},
                             {"effect", felt->effect},
                             {"isNew", felt->isNew}};
    return lineOf(json);
}

}  // namespace KR
