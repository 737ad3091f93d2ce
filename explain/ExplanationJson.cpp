#include "explain/ExplanationJson.h"

#include <nlohmann/json.hpp>

#include "timeline/Text.h"

namespace KR {

namespace {

using Json = nlohmann::ordered_json;

double secondsOf(vo::Duration duration)
{
    return std::chrono::duration<double>(duration).count();
}

void addTime(Json& json, const char* name, const std::optional<vo::TimePoint>& time)
{
    if (time)
        json[name] = isoTime(*time);
}

template <class Value>
void addFilled(Json& json, const char* name, const Value& value)
{
    if (!value.empty())
        json[name] = value;
}

Json sourceOf(const RuleSource& source)
{
    Json json = Json::object();
    if (!source.file.empty()) {
        json["file"] = source.file;
        if (source.line > 0)
            json["line"] = source.line;
        if (source.column > 0)
            json["column"] = source.column;
    } else if (!source.package.empty()) {
        json["package"] = source.package;
    } else {
        json["module"] = source.rule.origin;
    }
    return json;
}

Json treeOf(const TruthNode& node)
{
    Json json;
    json["kind"] = node.kind;
    json["text"] = node.text;
    json["from"] = node.from;
    json["to"] = node.to;
    if (node.kind != "count" && node.kind != "age")
        json["truth"] = node.truth;
    addTime(json, "since", node.since);
    addTime(json, "due", node.due);
    for (const vo::TimePoint instant : node.instants)
        json["instants"].push_back(isoTime(instant));
    if (!node.key.empty()) {
        json["key"] = node.key;
        json["known"] = node.isKnown;
        json["value"] = jsonOfValue(node.value);
        addTime(json, "written", node.written);
        addFilled(json, "writer", node.writer);
        addFilled(json, "why", node.why);
    }
    for (const TruthNode& child : node.children)
        json["children"].push_back(treeOf(child));
    return json;
}

Json gateOf(const Gate& gate)
{
    Json json;
    json["gate"] = gate.name;
    json["passed"] = gate.passed ? Json(*gate.passed) : Json();
    addTime(json, "at", gate.at);
    json["text"] = gate.text;
    if (gate.tree)
        json["tree"] = treeOf(*gate.tree);
    addFilled(json, "because", gate.because);
    addFilled(json, "reasons", gate.reasons);
    addFilled(json, "step", gate.step);
    addFilled(json, "outcome", gate.outcome);
    return json;
}

Json hitOf(const ExplainedHit& hit)
{
    Json json;
    json["at"] = isoTime(hit.at);
    addFilled(json, "before", hit.before);
    json["outcome"] = hit.outcome;
    addFilled(json, "text", hit.text);
    addFilled(json, "steps", hit.steps);
    return json;
}

Json remedyOf(const ExplainedRemedy& remedy)
{
    Json json;
    json["changes"] = Json::array();
    for (const Remedy::Step& step : remedy.remedy.steps) {
        if (step.key.empty())
            json["changes"].push_back({{"wait", secondsOf(step.wait)}});
        else
            json["changes"].push_back({{"key", step.key}, {"value", jsonOfValue(step.value)}});
    }
    json["checked"] = remedy.checked;
    addFilled(json, "text", remedy.text);
    addFilled(json, "standing", remedy.standing);
    return json;
}

}  // namespace

nlohmann::ordered_json jsonOfValue(const KRValue& value)
{
    switch (value.getType()) {
        case KRValue::Type::boolean:
            return value.toBool();
        case KRValue::Type::integer:
            return value.toInt();
        case KRValue::Type::real:
            return value.toFloat();
        case KRValue::Type::string:
            return value.toString();
        case KRValue::Type::array: {
            Json array = Json::array();
            for (const KRValue& element : value.toArray())
                array.push_back(jsonOfValue(element));
            return array;
        }
        case KRValue::Type::binary:
            return value.toDisplayString();
        case KRValue::Type::invalid:
            break;
    }
    return nullptr;
}

nlohmann::ordered_json jsonOf(const Explanation& explanation)
{
    Json json;
    json["rule"] = explanation.rule;
    json["source"] = explanation.source ? sourceOf(*explanation.source) : Json();
    json["asked"] = isoTime(explanation.asked);
    json["acted"] = explanation.acted;
    json["verdict"] = explanation.verdict;
    addFilled(json, "didYouMean", explanation.didYouMean);
    addFilled(json, "condition", explanation.condition);
    addFilled(json, "manner", explanation.manner);
    addTime(json, "loaded", explanation.loaded);
    json["gates"] = Json::array();
    for (const Gate& gate : explanation.gates)
        json["gates"].push_back(gateOf(gate));
    json["hits"] = Json::array();
    for (const ExplainedHit& hit : explanation.hits)
        json["hits"].push_back(hitOf(hit));
    json["remedies"] = Json::array();
    for (const ExplainedRemedy& remedy : explanation.remedies)
        json["remedies"].push_back(remedyOf(remedy));
    if (explanation.isSearchCut)
        json["remediesCut"] = true;
    addFilled(json, "notes", explanation.notes);
    return json;
}

}  // namespace KR
