#include "host/KeysCommand.h"

#include <nlohmann/json.hpp>
#include <set>

#include "host/ConfigurationCheck.h"
#include "host/KnownRobot.h"
#include "host/Output.h"
#include "host/Table.h"
#include "platform/conditions/ConditionParser.h"

namespace KR {

namespace {

std::set<std::string> keysOfRules(const std::string& config)
{
    std::set<std::string> keys;
    if (config.empty())
        return keys;
    for (const AutonomousAction& rule : inspectConfiguration(config).rules) {
        try {
            for (const std::string& key : keysOf(parseCondition(rule.condition)))
                keys.insert(key);
        } catch (const ConditionSyntaxError&) {
            // `nimbra check` tells.
        }
    }
    return keys;
}

TableRow rowOf(const KeyCatalogue::Entry& entry)
{
    const KeyDescription& key = entry.description;
    return {printable(key.key),
            entry.publishers.empty() ? "-" : key.describeValues(),
            key.empty ? key.empty->toDisplayString() : "-",
            listText(entry.publishers),
            listText(entry.readers),
            key.meaning.empty() ? "-" : key.meaning};
}

nlohmann::ordered_json jsonOf(const KeyCatalogue::Entry& entry)
{
    const KeyDescription& key = entry.description;
    nlohmann::ordered_json object;
    object["key"] = key.key;
    object["type"] = keyTypeName(key.type);
    if (!key.values.empty()) {
        for (const KRValue& value : key.values)
            object["values"].push_back(nlohmann::ordered_json::parse(value.toDisplayString()));
    }
    if (key.min)
        object["min"] = *key.min;
    if (key.max)
        object["max"] = *key.max;
    if (key.empty) {
        object["empty"] = key.empty->isValid()
                              ? nlohmann::ordered_json::parse(key.empty->toDisplayString())
                              : nlohmann::ordered_json();
    }
    object["publishers"] = entry.publishers;
    object["readers"] = entry.readers;
    object["meaning"] = key.meaning;
    return object;
}

}  // namespace

void listKeys(const std::string& config, bool json)
{
    KnownRobot robot;
    for (const std::string& key : keysOfRules(config))
        robot.addReader(key, "rules");
    std::vector<TableRow> rows{{"key", "values", "empty", "published by", "read by", "meaning"}};
    std::string lines;
    for (const KeyCatalogue::Entry& entry : robot.keys().entries()) {
        if (json)
            lines += jsonOf(entry).dump() + "\n";
        else
            rows.push_back(rowOf(entry));
    }
    printOutput(json ? lines : tableText(rows));
}

}  // namespace KR
