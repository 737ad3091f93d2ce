#include "host/KeysCommand.h"

#include <algorithm>
#include <cstring>
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

/// Names are long, and are to be copied: they are not squeezed into a table.
std::string textOf(const KeyCatalogue::Entry& entry)
{
    static constexpr const char* kIndent = "    ";
    const KeyDescription& key = entry.description;
    std::string values;
    if (!entry.publishers.empty())
        values = ": " + key.describeValues();
    if (key.empty)
        values += " (empty: " + key.empty->toDisplayString() + ")";
    std::string about = key.meaning.empty() ? "" : key.meaning + "; ";
    about += "published by " + listText(entry.publishers, "nobody");
    if (!entry.readers.empty())
        about += "; read by " + listText(entry.readers);
    const std::size_t indent = std::strlen(kIndent);
    const std::size_t width = std::max(outputWidth(), 2 * indent) - indent;
    std::string text;
    for (const std::string& line : wrapped(printable(key.key) + values, width))
        text += (text.empty() ? "" : kIndent) + line + "\n";
    for (const std::string& line : wrapped(about, width))
        text += kIndent + line + "\n";
    return text;
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

void listKeys(const std::string& config, bool json)
{
    KnownRobot robot;
    for (const std::string& key : keysOfRules(config))
        robot.addReader(key, "rules");
    std::string text;
    for (const KeyCatalogue::Entry& entry : robot.keys().entries())
        text += json ? jsonOf(entry).dump() + "\n" : textOf(entry);
    printOutput(text);
}

struct KeysOptions {
    std::string config;  ///< empty for no rules
    bool json = false;
};

}  // namespace

void addKeysCommand(const Command& program)
{
    const Command keys = program.add("keys", "List the memory keys, and who writes and reads them");
    const auto options = std::make_shared<KeysOptions>();
    keys.text("--config", options->config, "FILE", "Rules whose keys to show, too");
    keys.flag("--json", options->json, "Print one JSON object a line");
    keys.perform([options] {
        listKeys(options->config, options->json);
        return 0;
    });
}

}  // namespace KR
