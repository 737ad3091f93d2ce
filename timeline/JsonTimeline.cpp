#include "timeline/JsonTimeline.h"

#include <nlohmann/json.hpp>

#include "timeline/Text.h"

namespace KR {

namespace {

using Json = nlohmann::ordered_json;

/// Bytes that are no UTF-8 become U+FFFD, so that every line is valid JSON.
std::string lineOf(const Json& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json jsonOf(const KRValue& value)
{
    switch (value.getType()) {
        case KRValue::Type::boolean:
            return value.toBool();
        case KRValue::Type::integer:
            return value.toInt();
        case KRValue::Type::real:
            return value.toFloat();  // JSON has no NaN and no infinity: they become null
        case KRValue::Type::string:
            return value.toString();
        case KRValue::Type::array: {
            Json array = Json::array();
            for (const KRValue& element : value.toArray())
                array.push_back(jsonOf(element));
            return array;
        }
        case KRValue::Type::binary:
            return value.toDisplayString();
        case KRValue::Type::invalid:
            break;
    }
    return nullptr;
}

Json objectOf(vo::TimePoint time, const char* event)
{
    return {{"time", isoTime(time)}, {"event", event}};
}

/// An event as one object; null for one that is not shown.
class EventWriter {
public:
    explicit EventWriter(vo::TimePoint time) : time_(time) {}

    Json operator()(const KeyWritten& change) const
    {
        Json json = object("key");
        json["key"] = change.key;
        json["value"] = jsonOf(change.value);
        return json;
    }
    Json operator()(const RuleProposed& hit) const
    {
        Json json = ruleObject("hit", hit.rule);
        addText(json, "before", hit.before);
        return json;
    }
    Json operator()(const RuleResumed& each) const { return ruleObject("resume", each.rule); }
    Json operator()(const RuleSkipped& each) const { return verdict("skip", each); }
    Json operator()(const RuleWaits& each) const { return verdict("wait", each); }
    Json operator()(const RuleDropped& each) const { return verdict("drop", each); }
    Json operator()(const StepEnded& step) const
    {
        Json json = ruleObject("step", step.rule);
        json["step"] = step.type;
        json["text"] = step.text;
        addOutcome(json, step);
        if (step.outcome != StepOutcome::done)
            json["dropped"] = step.rest;
        return json;
    }
    Json operator()(const FocusChanged& focus) const
    {
        Json json = object("focus");
        json["activity"] = focus.activity;
        json["previous"] = focus.previous;
        addText(json, "rule", focus.rule);
        addText(json, "reason", focus.reason);
        return json;
    }
    Json operator()(const StateChanged& state) const
    {
        Json json = object("state");
        json["state"] = state.state;
        json["previous"] = state.previous;
        addText(json, "rule", state.rule);
        return json;
    }
    Json operator()(const SleepChanged& sleep) const
    {
        Json json = object("asleep");
        json["asleep"] = sleep.asleep;
        addText(json, "rule", sleep.rule);
        return json;
    }
    Json operator()(const FocusBlockChanged& block) const
    {
        Json json = object("autonomousFocus");
        json["blocked"] = block.blocked;
        addText(json, "rule", block.rule);
        return json;
    }
    Json operator()(const ChainChanged& chain) const
    {
        Json json = object("chain");
        json["chain"] = chain.chain;
        json["frozen"] = chain.frozen;
        addText(json, "rule", chain.rule);
        addText(json, "reason", chain.reason);
        return json;
    }
    Json operator()(const EverythingStopped&) const { return nullptr; }
    /// What decisions are made of.
    template <class Other>
    Json operator()(const Other& /*other*/) const
    {
        return nullptr;
    }
    Json operator()(const PluginSwitched& plugin) const
    {
        Json json = object("plugin");
        json["plugin"] = plugin.plugin;
        json["running"] = plugin.running;
        return json;
    }
    Json operator()(const ErrorReported& error) const
    {
        Json json = object("error");
        json["source"] = error.source;
        json["text"] = error.text;
        return json;
    }
    Json operator()(const RemarkMade& remark) const
    {
        Json json = object("say");
        json["text"] = remark.text;
        return json;
    }
    Json operator()(const CallMade& call) const
    {
        Json json = object("call");
        json["text"] = call.text;
        addOutcome(json, call);
        return json;
    }

private:
    Json object(const char* event) const { return objectOf(time_, event); }
    Json ruleObject(const char* event, const EventRule& rule) const
    {
        Json json = object(event);
        json["rule"] = rule.name;
        return json;
    }
    template <class Verdict>
    Json verdict(const char* event, const Verdict& verdict) const
    {
        Json json = ruleObject(event, verdict.rule);
        addText(json, "reason", verdict.reason);
        return json;
    }
    template <class Attempt>
    static void addOutcome(Json& json, const Attempt& attempt)
    {
        json["outcome"] = stepOutcomeName(attempt.outcome);
        addText(json, "reason", attempt.reason);
    }
    static void addText(Json& json, const char* name, const std::string& text)
    {
        if (!text.empty())
            json[name] = text;
    }

    const vo::TimePoint time_;
};

Json countsOf(const std::map<std::string, std::size_t>& texts)
{
    Json array = Json::array();
    for (const auto& [text, count] : texts)
        array.push_back({{"text", text}, {"count", count}});
    return array;
}

}  // namespace

void JsonTimeline::begin(const RunHeader& header)
{
    Json json = objectOf(header.start, "start");
    json["scenario"] = header.title.empty() ? Json() : Json(header.title);
    json["config"] = header.config;
    json["rules"] = header.rules;
    sink_(lineOf(json));
}

void JsonTimeline::event(const Event& event)
{
    const Json json = std::visit(EventWriter(event.time), event.what);
    if (!json.is_null())
        sink_(lineOf(json));
}

void JsonTimeline::end(const RunSummary& summary)
{
    Json json = objectOf(summary.end, "summary");
    json["interrupted"] = summary.interrupted;
    json["rules"] = Json::array();
    for (const auto& [rule, count] : summary.rules) {
        json["rules"].push_back({{"rule", rule},
                                 {"hits", count.hits},
                                 {"done", count.done},
                                 {"skipped", count.skipped},
                                 {"refused", count.refused},
                                 {"failed", count.failed}});
    }
    json["neverHit"] = summary.neverHit;
    json["refusedCount"] = summary.refusedCount;
    json["refused"] = countsOf(summary.refused);
    json["errorCount"] = summary.errorCount;
    json["errors"] = countsOf(summary.errors);
    sink_(lineOf(json));
}

}  // namespace KR
