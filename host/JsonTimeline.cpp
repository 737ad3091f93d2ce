#include "host/JsonTimeline.h"

#include <nlohmann/json.hpp>

#include "host/Text.h"

namespace KR {

namespace {

using Json = nlohmann::ordered_json;
using Kind = TimelineEvent::Kind;

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

void addReason(Json& json, const TimelineEvent& event)
{
    if (!event.reason.empty())
        json["reason"] = event.reason;
}

void addOutcome(Json& json, const TimelineEvent& event)
{
    json["outcome"] = stepOutcomeName(event.outcome);
    addReason(json, event);
}

Json ruleEvent(const TimelineEvent& event, const char* name)
{
    Json json = objectOf(event.time, name);
    json["rule"] = event.rule;
    if (event.kind == Kind::hit && !event.subject.empty())
        json["before"] = event.subject;
    addReason(json, event);
    return json;
}

Json stepEvent(const TimelineEvent& event)
{
    Json json = objectOf(event.time, "step");
    json["rule"] = event.rule;
    json["step"] = event.step;
    json["text"] = event.subject;
    addOutcome(json, event);
    if (event.outcome != StepOutcome::done)
        json["dropped"] = event.rest;
    return json;
}

Json lifeEvent(const TimelineEvent& event)
{
    Json json;
    switch (event.kind) {
        case Kind::focus:
            json = objectOf(event.time, "focus");
            json["activity"] = event.subject;
            json["previous"] = event.previous;
            break;
        case Kind::state:
            json = objectOf(event.time, "state");
            json["state"] = event.subject;
            json["previous"] = event.previous;
            break;
        case Kind::asleep:
            json = objectOf(event.time, "asleep");
            json["asleep"] = event.on;
            break;
        case Kind::autonomousFocus:
            json = objectOf(event.time, "autonomousFocus");
            json["blocked"] = event.on;
            break;
        default:
            json = objectOf(event.time, "chain");
            json["chain"] = event.subject;
            json["frozen"] = event.on;
            break;
    }
    if (!event.rule.empty())
        json["rule"] = event.rule;
    addReason(json, event);
    return json;
}

Json jsonOf(const TimelineEvent& event)
{
    switch (event.kind) {
        case Kind::say: {
            Json json = objectOf(event.time, "say");
            json["text"] = event.subject;
            return json;
        }
        case Kind::key: {
            Json json = objectOf(event.time, "key");
            json["key"] = event.subject;
            json["value"] = jsonOf(event.value);
            return json;
        }
        case Kind::hit:
            return ruleEvent(event, "hit");
        case Kind::resume:
            return ruleEvent(event, "resume");
        case Kind::skip:
            return ruleEvent(event, "skip");
        case Kind::wait:
            return ruleEvent(event, "wait");
        case Kind::drop:
            return ruleEvent(event, "drop");
        case Kind::step:
            return stepEvent(event);
        case Kind::call: {
            Json json = objectOf(event.time, "call");
            json["text"] = event.subject;
            addOutcome(json, event);
            return json;
        }
        case Kind::plugin: {
            Json json = objectOf(event.time, "plugin");
            json["plugin"] = event.subject;
            json["running"] = event.on;
            return json;
        }
        case Kind::error: {
            Json json = objectOf(event.time, "error");
            json["source"] = event.subject;
            json["text"] = event.reason;
            return json;
        }
        default:
            return lifeEvent(event);
    }
}

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

void JsonTimeline::event(const TimelineEvent& event)
{
    sink_(lineOf(jsonOf(event)));
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
