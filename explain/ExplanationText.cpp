#include "explain/ExplanationText.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <vector>

#include "timeline/Text.h"

namespace KR {

namespace {

using Json = nlohmann::ordered_json;

/// Where what is said of a gate begins.
constexpr std::size_t kTextColumn = 32;
constexpr std::size_t kTreeColumn = 8;
/// A wider label has what is said of it behind it, out of the column.
constexpr std::size_t kMostLabel = 60;

std::string textIn(const Json& json, const char* name)
{
    const auto found = json.find(name);
    return found == json.end() || !found->is_string() ? "" : printable(found->get<std::string>());
}

std::string padded(const std::string& text, std::size_t width)
{
    const std::size_t has = displayWidth(text);
    return text + std::string(has < width ? width - has : 1, ' ');
}

std::string valueText(const Json& value)
{
    return printable(value.dump(-1, ' ', false, Json::error_handler_t::replace));
}

/// Beneath one another, the first behind `begin`.
std::string inLines(const std::string& begin, const std::string& text, std::size_t column,
                    std::size_t width)
{
    std::string all = column == 0 ? begin : padded(begin, column);
    std::size_t used = displayWidth(all);
    bool isFirst = true;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        const std::string word = text.substr(at, end - at);
        if (!isFirst && used + 1 + displayWidth(word) > width) {
            all += "\n" + std::string(column, ' ');
            used = column;
            isFirst = true;
        }
        all += (isFirst ? "" : " ") + word;
        used += displayWidth(word) + (isFirst ? 0 : 1);
        isFirst = false;
        at = end + 1;
    }
    return all + "\n";
}

/// A tree, a part a line.
class TreeText {
public:
    TreeText(std::string asked, std::size_t width) : asked_(std::move(asked)), width_(width) {}

    std::string write(const Json& tree)
    {
        add(tree, "", "");
        std::size_t label = 0;
        for (const Row& row : rows_)
            label = std::max(label, std::min(displayWidth(row.label), kMostLabel));
        std::string text;
        for (const Row& row : rows_) {
            const std::string begin =
                std::string(kTreeColumn, ' ') + padded(row.label, label + 2) + row.truth;
            text += row.detail.empty()
                        ? begin + "\n"
                        : inLines(begin, row.detail, kTreeColumn + label + 2 + 8, width_);
            if (!row.more.empty())
                text += inLines(std::string(kTreeColumn, ' ') + row.below, row.more,
                                kTreeColumn + displayWidth(row.below) + 2, width_);
        }
        return text;
    }

private:
    struct Row {
        std::string label;
        std::string truth;
        std::string detail;
        std::string more;   ///< in lines of its own
        std::string below;  ///< what those begin with
    };

    static const Json& childrenOf(const Json& node)
    {
        static const Json kNone = Json::array();
        const auto children = node.find("children");
        return children == node.end() ? kNone : *children;
    }

    /// Whether a line of its own for each child would say nothing new.
    static bool isSimple(const Json& node)
    {
        const std::string kind = node["kind"];
        if (kind == "key" || kind == "age" || kind == "literal")
            return true;
        if (kind != "comparison" && kind != "not")
            return false;
        const Json& children = childrenOf(node);
        return std::all_of(children.begin(), children.end(), isSimple);
    }

    static std::string labelOf(const Json& node)
    {
        const std::string kind = node["kind"];
        std::string text = textIn(node, "text");
        if (kind == "all")
            return "&&";
        if (kind == "any")
            return "||";
        if (isSimple(node))
            return text;
        if (kind == "not")
            return "!";
        if (kind == "for")
            return text.substr(std::min(text.rfind("for "), text.size()));
        if (kind == "within") {
            const std::size_t begin =
                childrenOf(node)[0]["to"].get<std::size_t>() - node["from"].get<std::size_t>();
            const std::size_t word = text.find("within", std::min(begin, text.size()));
            return word == std::string::npos ? text
                                             : text.substr(word, text.find(" of", word) - word);
        }
        return text;
    }

    void add(const Json& node, const std::string& before, const std::string& below)
    {
        Row row;
        row.label = before + labelOf(node);
        row.truth = node.value("truth", false) ? "true" : "false";
        row.detail = detailOf(node);
        row.below = below;
        row.more = whyOf(node);
        rows_.push_back(std::move(row));
        if (isSimple(node))
            return;
        std::vector<const Json*> parts;
        for (const Json& child : childrenOf(node)) {
            if (child["kind"] == "count") {
                for (const Json& operand : childrenOf(child))
                    parts.push_back(&operand);
            } else if (child["kind"] != "literal") {
                parts.push_back(&child);
            }
        }
        for (const Json* part : parts) {
            const bool isLast = part == parts.back();
            add(*part, below + (isLast ? "└─ " : "├─ "), below + (isLast ? "   " : "│  "));
        }
    }

    /// The values of its keys, and since when it is so.
    std::string detailOf(const Json& node) const
    {
        std::string detail;
        if (isSimple(node))
            addValues(node, detail);
        const auto add = [&detail](const std::string& text) {
            detail += (detail.empty() ? "" : ", ") + text;
        };
        if (node.contains("instants"))
            add((node["kind"] == "for" ? "begun " : "counted ") + timesOf(node["instants"]));
        if (node.contains("since") && !node.contains("due"))
            add("since " + timeText(node["since"], asked_));
        if (node.contains("due"))
            add((node.value("truth", false) ? "false at " : "true at ") +
                timeText(node["due"], asked_) + " if nothing is written");
        return detail;
    }

    std::string timesOf(const Json& times) const
    {
        std::string text;
        for (const Json& time : times)
            text += (text.empty() ? "" : ", ") + timeText(time, asked_);
        return text;
    }

    static void addValues(const Json& node, std::string& detail)
    {
        if (node.contains("key")) {
            std::string value = "unknown";
            if (node.value("known", false))
                value = valueText(node["value"]) + (node["kind"] == "age" ? " s" : "");
            detail += (detail.empty() ? "" : " and ") + value;
        }
        for (const Json& child : childrenOf(node))
            addValues(child, detail);
    }

    static std::string whyOf(const Json& node)
    {
        if (!isSimple(node))
            return "";
        std::string why = textIn(node, "why");
        for (const Json& child : childrenOf(node)) {
            const std::string more = whyOf(child);
            if (!more.empty() && more != why)
                why += (why.empty() ? "" : "; ") + more;
        }
        return why;
    }

    const std::string asked_;
    const std::size_t width_;
    std::vector<Row> rows_;
};

/// The gates of one line, with what it says when that one was not passed; and when all were.
struct GateLine {
    const char* passed;
    std::vector<std::pair<const char*, const char*>> gates;
};

const std::vector<GateLine>& gateLines()
{
    static const std::vector<GateLine> kLines{
        {"loaded and watched",
         {{"exists", "unknown"},
          {"loaded", "not loaded"},
          {"registered", "not registered"},
          {"monitored", "not watched"}}},
        {"its condition was true", {{"condition", "its condition was not true"}}},
        {"it was the time for it", {{"edge", "not the time for it"}}},
        {"proposed", {{"proposed", "not proposed"}}},
        {"in its order", {{"order", "held back by its order"}}},
        {"not skipped", {{"skip", "skipped"}}},
        {"not waiting", {{"wait", "waits"}}},
        {"focus", {{"focus", "no focus"}}},
        {"permission", {{"permission", "not permitted"}}},
        {"steps", {{"step", "a step failed"}}},
        {"in time", {{"deadline", "too late"}}}};
    return kLines;
}

class ExplanationWriter {
public:
    ExplanationWriter(const Json& json, std::size_t width)
        : json_(json), asked_(json["asked"]), width_(std::max<std::size_t>(width, 60))
    {
    }

    std::string write()
    {
        if (json_["source"].is_null())
            return missing();
        writeHeader();
        for (const GateLine& line : gateLines())
            writeLine(line);
        writeRest();
        writeHits();
        writeRemedies();
        for (const Json& note : json_.value("notes", Json::array()))
            text_ += inLines("Note:", printable(note.get<std::string>()), 6, width_);
        return text_;
    }

private:
    std::string missing() const
    {
        std::string text = "There is no rule \"" + textIn(json_, "rule") + "\".";
        const std::string meant = textIn(json_, "didYouMean");
        return text + (meant.empty() ? "" : " Did you mean " + meant + "?") + "\n";
    }

    void writeHeader()
    {
        const std::string rule = textIn(json_, "rule");
        const std::string verdict = textIn(json_, "verdict");
        const std::size_t used = displayWidth(rule) + displayWidth(verdict);
        text_ += rule + std::string(used + 2 < width_ ? width_ - used : 2, ' ') + verdict + "\n";
        std::string where = placeText();
        if (json_.contains("loaded"))
            where += ", loaded " + timeText(json_["loaded"], asked_);
        if (json_.contains("manner"))
            where += ", " + textIn(json_, "manner");
        text_ += inLines("", where, 0, width_) + "\n";
    }

    std::string placeText() const
    {
        const Json& source = json_["source"];
        if (source.contains("file"))
            return textIn(source, "file") +
                   (source.contains("line")
                        ? ":" + std::to_string(source["line"].get<std::size_t>())
                        : "");
        if (source.contains("package"))
            return "package " + textIn(source, "package");
        return "from a module";
    }

    const Json* gate(const char* name) const
    {
        for (const Json& each : json_["gates"]) {
            if (each["gate"] == name)
                return &each;
        }
        return nullptr;
    }

    void writeLine(const GateLine& line)
    {
        const Json* last = nullptr;
        for (const auto& [name, failed] : line.gates) {
            const Json* const each = gate(name);
            if (!each || (*each)["passed"].is_null()) {
                if (each)
                    rest_.push_back(each);
                continue;
            }
            last = each;
            if (!(*each)["passed"].get<bool>())
                return writeGate(std::string("✗ ") + failed, *each);
        }
        if (last)
            writeGate(std::string("✓ ") + line.passed, *last);
    }

    void writeGate(const std::string& label, const Json& each)
    {
        std::string said = textIn(each, "text");
        if (each.contains("at"))
            said = timeText(each["at"], asked_) + (said.empty() ? "" : ", " + said);
        text_ += inLines("  " + label, said, kTextColumn, width_);
        for (const Json& reason : each.value("reasons", Json::array())) {
            const std::string text = printable(reason.get<std::string>());
            if (!text.empty() && said.find(text) == std::string::npos)
                text_ += inLines("", text, kTextColumn, width_);
        }
        if (each.contains("tree"))
            text_ += TreeText(asked_, width_).write(each["tree"]);
    }

    /// What was not asked any more, and what is known of it.
    void writeRest()
    {
        if (rest_.empty())
            return;
        std::string names;
        for (const Json* each : rest_)
            names += (names.empty() ? "" : ", ") + textIn(*each, "gate");
        text_ += inLines("  · not asked any more", names, kTextColumn, width_);
        for (const Json* each : rest_) {
            if (!textIn(*each, "text").empty())
                text_ += inLines("", textIn(*each, "gate") + ": " + textIn(*each, "text"),
                                 kTextColumn, width_);
        }
    }

    void writeHits()
    {
        if (json_["hits"].empty())
            return;
        text_ += "\nHits\n";
        for (const Json& hit : json_["hits"]) {
            const Json steps = hit.value("steps", Json::array());
            // They tell how it went.
            std::string said = steps.empty() || hit["outcome"] == "goes on" ? textIn(hit, "outcome")
                                                                            : std::string();
            const auto add = [&said](const char* separator, const std::string& text) {
                said += (said.empty() ? "" : separator) + text;
            };
            if (hit.contains("before"))
                add(", ", "before " + textIn(hit, "before"));
            if (hit.contains("text"))
                add(", ", textIn(hit, "text"));
            for (const Json& step : steps)
                add("; ", printable(step.get<std::string>()));
            text_ += inLines("  " + timeText(hit["at"], asked_), said, 16, width_);
        }
    }

    void writeRemedies()
    {
        const Json& remedies = json_["remedies"];
        if (remedies.empty()) {
            if (!json_["acted"].get<bool>() && json_.value("remediesCut", false))
                text_ +=
                    "\nNothing was found that would have it proposed, though not everything "
                    "could be tried.\n";
            return;
        }
        text_ += "\nWhat would let it act now\n";
        std::size_t number = 0;
        std::vector<std::string> standing;
        for (const Json& remedy : remedies) {
            const bool isChecked = remedy["checked"].get<bool>();
            const std::string said =
                isChecked ? changesText(remedy["changes"]) : "first: " + textIn(remedy, "text");
            text_ +=
                inLines("  " + (isChecked ? std::to_string(++number) + "." : "-"), said, 5, width_);
            for (const Json& each : remedy.value("standing", Json::array())) {
                const std::string text = printable(each.get<std::string>());
                if (std::find(standing.begin(), standing.end(), text) == standing.end())
                    standing.push_back(text);
            }
        }
        const bool isAsked = textIn(json_, "manner").rfind("proposed before", 0) == 0;
        if (number > 0)
            text_ += std::string("  (checked: with ") + (number == 1 ? "it" : "any of them") +
                     (isAsked ? ", its condition is true)\n" : ", the rule is proposed)\n");
        for (const std::string& each : standing)
            text_ += inLines("  Then:", each, 8, width_);
    }

    const Json& json_;
    const std::string asked_;
    const std::size_t width_;
    std::string text_;
    std::vector<const Json*> rest_;
};

}  // namespace

std::string timeText(const std::string& time, const std::string& asked)
{
    // "2026-11-21T06:00:00.000000Z"
    if (time.size() != 27)
        return printable(time);
    const std::string millis = time.substr(20, 3);
    std::string text = time.substr(11, 8) + (millis == "000" ? "" : "." + millis);
    if (time.compare(0, 10, asked, 0, 10) != 0)
        text = time.substr(0, 10) + " " + text;
    return text;
}

std::string changesText(const nlohmann::ordered_json& changes)
{
    std::string text;
    for (const Json& change : changes) {
        text += text.empty() ? "" : ", then ";
        if (change.contains("wait")) {
            const auto wait = vo::Duration(std::llround(change["wait"].get<double>() * 1e6));
            text += lengthText(wait) + (changes.size() == 1 ? ", if nothing else changes" : "");
        } else {
            text += "'" + textIn(change, "key") + "' = " + valueText(change["value"]);
        }
    }
    return text;
}

std::string explanationText(const nlohmann::ordered_json& explanation, std::size_t width)
{
    return ExplanationWriter(explanation, width).write();
}

}  // namespace KR
