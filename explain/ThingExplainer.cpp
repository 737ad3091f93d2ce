#include "explain/ThingExplainer.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "explain/ExplanationJson.h"
#include "explain/ExplanationText.h"
#include "life/StepResult.h"
#include "platform/conditions/ConditionParser.h"
#include "timeline/Text.h"

namespace KR {

namespace {

using ThingJson = nlohmann::ordered_json;

/// The activity that a step gives the focus; "" for another step.
std::string activityOf(const AutonomousActionItem& item)
{
    const auto activity = item.parameters.find("Activity");
    return item.type == ActionItemSwitchFocus && activity != item.parameters.end() &&
                   activity->second.isString()
               ? activity->second.toString()
               : "";
}

bool doesStart(const AutonomousAction& rule, const std::string& activity)
{
    return std::any_of(rule.items.begin(), rule.items.end(), [&](const AutonomousActionItem& item) {
        return activityOf(item) == activity;
    });
}

bool doesRead(const AutonomousAction& rule, const std::string& key)
{
    try {
        const std::vector<std::string> keys = keysOf(parseCondition(rule.condition));
        return std::find(keys.begin(), keys.end(), key) != keys.end();
    } catch (const ConditionSyntaxError&) {
        return false;
    }
}

/// Attempts to give it the focus, oldest first.
ThingJson attemptsOf(const LifeState& life, const std::string& activity,
                     std::optional<vo::TimePoint> from)
{
    std::multimap<vo::TimePoint, ThingJson> attempts;
    const std::string text =
        std::string(actionItemTypeName(ActionItemSwitchFocus)) + " " + activity;
    for (const RuleSource* source : life.rules()) {
        const std::string& rule = source->rule.description;
        const RuleState* const state = life.stateOf(rule);
        if (!state)
            continue;
        for (const RuleHit& hit : state->hits) {
            for (const RuleHit::Step& step : hit.steps) {
                if (step.text != text || (from && step.at < *from))
                    continue;
                ThingJson attempt = {{"at", isoTime(step.at)},
                                     {"rule", rule},
                                     {"outcome", stepOutcomeName(step.outcome)}};
                if (!step.reason.empty())
                    attempt["reason"] = step.reason;
                attempts.emplace(step.at, std::move(attempt));
            }
        }
    }
    ThingJson json = ThingJson::array();
    for (auto& [at, attempt] : attempts)
        json.push_back(std::move(attempt));
    return json;
}

std::string textIn(const ThingJson& json, const char* name)
{
    return json.contains(name) && json[name].is_string() ? printable(json[name].get<std::string>())
                                                         : "";
}

std::string listIn(const ThingJson& json, const char* name)
{
    std::string text;
    for (const ThingJson& each : json.value(name, ThingJson::array()))
        text += (text.empty() ? "" : ", ") + printable(each.get<std::string>());
    return text.empty() ? "none" : text;
}

}  // namespace

std::string publishersText(const std::string& key, const LifeState& life,
                           const KeyCatalogue* catalogue)
{
    const auto entry = catalogue ? catalogue->find(key) : std::nullopt;
    std::string text;
    for (const std::string& publisher : entry ? entry->publishers : std::set<std::string>()) {
        text += "; published by " + publisher;
        const auto plugin = life.plugins().find(publisher);
        if (plugin != life.plugins().end() && plugin->second.is)
            text += ", which runs";
        else if (plugin != life.plugins().end())
            text += ", which has not run since " + clockTime(plugin->second.since);
        else if (publisher.rfind("_LaunchpadPlugin", 0) == 0)
            text += ", which does not run: it is not among the configuration's Plugins";
    }
    return text;
}

std::vector<std::string> ActivityExplainer::activities() const
{
    std::set<std::string> all;
    for (const RuleSource* source : life_.rules()) {
        for (const AutonomousActionItem& item : source->rule.items)
            all.insert(activityOf(item));
    }
    for (const auto& [uuid, package] : life_.packages()) {
        for (const vo::BehaviorInfo& behavior : package.behaviors())
            all.insert(vo::behaviorKey(package, behavior));
    }
    all.erase("");
    return {all.begin(), all.end()};
}

nlohmann::ordered_json ActivityExplainer::answer(vo::TimePoint at,
                                                 std::optional<vo::TimePoint> from) const
{
    const std::vector<std::string> all = activities();
    if (std::find(all.begin(), all.end(), activity_) == all.end())
        return nullptr;
    const HeldFact& focus = life_.focus();
    const bool hasFocus = focus.is && focus.text == activity_;
    ThingJson json = {{"activity", activity_}, {"asked", isoTime(at)}, {"hasFocus", hasFocus}};
    if (hasFocus)
        json["since"] = isoTime(focus.since);
    else if (focus.is)
        json["focus"] = focus.text;
    if (hasFocus && !focus.rule.empty())
        json["rule"] = focus.rule;
    if (life_.focusBlock().is) {
        json["blocked"] = isoTime(life_.focusBlock().since);
        json["blockedBy"] = life_.focusBlock().rule;
    }
    for (const auto& [uuid, package] : life_.packages()) {
        for (const vo::BehaviorInfo& behavior : package.behaviors()) {
            if (vo::behaviorKey(package, behavior) == activity_)
                json["package"] = uuid;
        }
    }
    json["rules"] = ThingJson::array();
    for (const RuleSource* source : life_.rules()) {
        if (doesStart(source->rule, activity_))
            json["rules"].push_back(source->rule.description);
    }
    json["attempts"] = attemptsOf(life_, activity_, from);
    return json;
}

void KeyExplainer::take(const Event& event)
{
    life_.take(event);
    const auto* const write = std::get_if<KeyWritten>(&event.what);
    if (!write || write->key != key_ || !(write->isChange || changes_.empty()))
        return;
    changes_.push_back({event.time, write->value, write->writer});
    if (changes_.size() > kMostChanges)
        changes_.pop_front();
}

std::vector<std::string> KeyExplainer::keys() const
{
    std::set<std::string> all;
    for (const auto& [key, held] : life_.keys())
        all.insert(key);
    if (catalogue_) {
        for (const KeyCatalogue::Entry& entry : catalogue_->entries())
            all.insert(entry.description.key);
    }
    return {all.begin(), all.end()};
}

nlohmann::ordered_json KeyExplainer::answer(vo::TimePoint at,
                                            std::optional<vo::TimePoint> from) const
{
    const auto held = life_.keys().find(key_);
    const auto entry = catalogue_ ? catalogue_->find(key_) : std::nullopt;
    ThingJson rules = ThingJson::array();
    for (const RuleSource* source : life_.rules()) {
        if (doesRead(source->rule, key_))
            rules.push_back(source->rule.description);
    }
    if (held == life_.keys().end() && !entry && rules.empty())
        return nullptr;
    const bool isKnown = held != life_.keys().end() && held->second.value.isValid();
    ThingJson json = {{"key", key_}, {"asked", isoTime(at)}, {"known", isKnown}};
    if (held != life_.keys().end()) {
        json["value"] = jsonOfValue(held->second.value);
        json["since"] = isoTime(held->second.since);
        json["written"] = isoTime(held->second.written);
        if (!held->second.writer.empty())
            json["writer"] = held->second.writer;
    }
    if (!isKnown)
        json["why"] = (held == life_.keys().end() ? "never written" : "it holds no value") +
                      publishersText(key_, life_, catalogue_);
    if (entry && !entry->description.meaning.empty())
        json["meaning"] = entry->description.meaning;
    if (entry && !entry->publishers.empty()) {
        json["values"] = entry->description.describeValues();
        json["publishers"] = entry->publishers;
    }
    json["rules"] = rules;
    json["changes"] = ThingJson::array();
    for (const Change& change : changes_) {
        if (!from || change.at >= *from)
            json["changes"].push_back({{"at", isoTime(change.at)},
                                       {"value", jsonOfValue(change.value)},
                                       {"writer", change.writer}});
    }
    return json;
}

std::string activityText(const nlohmann::ordered_json& answer, std::size_t /*width*/)
{
    const std::string asked = answer["asked"];
    std::string text = textIn(answer, "activity") + "   ";
    if (answer["hasFocus"].get<bool>())
        text += "has the focus since " + timeText(answer["since"], asked) +
                (answer.contains("rule") ? ", by \"" + textIn(answer, "rule") + "\"" : "");
    else
        text += "does not have the focus at " + timeText(asked, asked) +
                (answer.contains("focus") ? "; " + textIn(answer, "focus") + " has it" : "");
    text += "\n";
    if (answer.contains("package"))
        text += "package " + textIn(answer, "package") + "\n";
    text += "\n  started by   " + listIn(answer, "rules") + "\n";
    if (answer.contains("blocked"))
        text += "  blocked      rules may not switch the focus since " +
                timeText(answer["blocked"], asked) + ", by \"" + textIn(answer, "blockedBy") +
                "\"\n";
    for (const ThingJson& attempt : answer["attempts"]) {
        text += "  " + timeText(attempt["at"], asked) + "   " + textIn(attempt, "outcome") +
                " by \"" + textIn(attempt, "rule") + "\"";
        text += (attempt.contains("reason") ? ": " + textIn(attempt, "reason") : "") + "\n";
    }
    if (answer["attempts"].empty())
        text += "  no rule came so far as to start it\n";
    return text;
}

std::string keyText(const nlohmann::ordered_json& answer, std::size_t /*width*/)
{
    const std::string asked = answer["asked"];
    std::string text = textIn(answer, "key") + "   ";
    if (answer["known"].get<bool>())
        text += printable(answer["value"].dump()) + ", since " + timeText(answer["since"], asked) +
                (answer.contains("writer") ? ", written by " + textIn(answer, "writer") : "");
    else
        text += "unknown: " + textIn(answer, "why");
    text += "\n";
    if (answer.contains("values"))
        text += textIn(answer, "meaning") + " (" + textIn(answer, "values") + ")\n";
    text += "\n  published by " + listIn(answer, "publishers") + "\n";
    text += "  read by      " + listIn(answer, "rules") + "\n";
    for (const ThingJson& change : answer["changes"])
        text += "  " + timeText(change["at"], asked) + "   " + printable(change["value"].dump()) +
                (textIn(change, "writer").empty() ? "" : "   by " + textIn(change, "writer")) +
                "\n";
    return text;
}

}  // namespace KR
