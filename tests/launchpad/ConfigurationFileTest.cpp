#include <yaml-cpp/yaml.h>

#include "launchpad/ConfigurationReader.h"
#include "tests/launchpad/LaunchpadTest.h"

namespace KR {
namespace {

/// An action that lacks only its steps and the closing brace.
const std::string kRule =
    "- {Description: d, Condition: \"'K'\", ExecuteAnyTimeConditionTrue: on, ";
const std::string kList = "AutonomousActions:\n";

TEST_F(LaunchpadTest, wholeAction_isReadAsWritten)
{
    load(R"(
AutonomousActions:
- Description: whole
  Condition: "'K' == 1"
  ExcuteAfterActiveRules: a
  SkipIfRulesActive: [b, {no: text}, c]
  ExecuteAfterIfSimultaniouslyTrue: {no: text}
  ExecuteAnyTimeConditionTrue: false
  ExecuteAnyTimeConditionEdgeTrue: true
  ExecuteBeforeActivityIfConditionTrue: yes
  Action: FreezeChain
  ActionParameters: {Chain: Legs, Duration: 3}
  Actions:
  - {Action: SwitchFocus, ActionParameters: {Activity: x, Flags: -1, Reason: 7, Other: 1}}
  - {Action: SetState, ActionParameters: {State: solitary, Force: true}}
  - {Action: BlockAutonomousFocus, ActionParameters: {Reason: none}}
  - {Action: ApiCall, ActionParameters: {Module: M, Method: m}}
)");
    const std::vector<AutonomousActionItem> items = {
        {1, {{"Activity", "x"}, {"Flags", -1}, {"Reason", "7"}}},
        {6, {{"State", "solitary"}, {"Force", true}}},
        {4, {}},
        {8, {{"Module", "M"}, {"Method", "m"}}},
        {9, {{"Chain", "Legs"}, {"Duration", 3}}}};
    const AutonomousAction expected{"whole", "LifeConfig", items, "'K' == 1", 1,
                                    0x6,     {},           {"a"}, {"b", "c"}};
    EXPECT_EQ(vo::toValue(launchpad->getAction("whole")), vo::toValue(expected));
    EXPECT_THAT(platform.log.lines(vo::LogLevel::warning),
                ElementsAre("NimbraLaunchpad/readYamlStringOrListOfStrings: Itmes under "
                            "SkipIfRulesActive must be strings. Ignoring it for: whole",
                            HasSubstr("True item must be a list or string. Ignoring it for: w")));
    EXPECT_THAT(platform.log.lines(vo::LogLevel::info).back(),
                HasSubstr("Using configuration file: \"Test\" version: \"2.0\" from: /"));
}

TEST(ConfigurationReader, malformedActionOrStep_isReportedWithItsPlace)
{
    const std::pair<std::string, std::string> rows[] = {
        {"- text", "1:3 Found an action without Description, skipping"},
        {"-\n  Description: d", "2:3 Found an action without Condition, skipping: d"},
        {"- {Description: d, Condition: c, ExecuteAnyTimeConditionTrue: no, SkipIfRulesActive: x}",
         "1:3 Found an action without execution synchronicity, skipping: d"},
        {kRule + "}", "1:3 No Action item or Actions list item, skipping: d"},
        {kRule + "Actions: x, Action: StopAll}", "1:3 d had no valid actions and was ignored"},
        {kRule + "\n Actions: [StopAll]}",
         "2:12 Found Action item without type inside of: d, skipping it"},
        {kRule + "\n Action: Fly}",
         "2:10 Found Action item with invalid type: Fly inside of: d, skipping it"},
        {kRule + "Action: FreezeChain, ActionParameters: text}",
         "1:3 Found a FreezeChain/UnfreezeChain action without Chain parameter, skipping: "
         "FreezeChain inside of: d"},
        {kRule + "Action: ApiCall,\n ActionParameters: {Module: m}}",
         "2:20 Skipping: ApiCall inside of: d: line 2, column 20: the call has no Method"},
    };
    for (const auto& [text, expected] : rows) {
        Names problems;
        const ConfigurationReader reader([&problems](const ConfigurationProblem& problem) {
            problems.push_back(std::to_string(problem.line) + ':' + std::to_string(problem.column) +
                               ' ' + problem.text);
            EXPECT_EQ(problem.label, "loadConfigFile");
        });
        EXPECT_FALSE(reader.readAction(YAML::Load(text)[0])) << text;
        EXPECT_EQ(problems.at(0), expected);
    }
}

TEST_F(LaunchpadTest, laterFile_replacesTheActionsOfEarlierFilesOnly)
{
    access.add("other", "'K'");
    load(kList + kRule + "Action: StopAll}");
    load(kList + kRule + "Actions: [{Action: StopAll}, {Action: Fly}]}");
    EXPECT_THAT(access.actions(), ElementsAre(testing::Key(2), testing::Key(4)));
    EXPECT_THAT(platform.log.lines(vo::LogLevel::info).back(),
                HasSubstr("Deleted all configuration sets derived from previous config file"));

    load("DialogFocusPolicy: no_focus");
    EXPECT_THAT(platform.log.lines(vo::LogLevel::warning).back(),
                HasSubstr("No AutonomousActions found in config file, skipping."));
    for (const char* text :
         {"", "text", "a: [", "ConfigurationDescription: d", "ConfigurationVersion: 2",
          "{ConfigurationDescription: d, ConfigurationVersion: 3.0, AutonomousActions: []}",
          "{ConfigurationDescription: d, ConfigurationVersion: 99999999999, AutonomousActions: []}",
          "{ConfigurationDescription: d, ConfigurationVersion: 2., AutonomousActions: []}"})
        EXPECT_THROW(launchpad->loadConfigFile(folder.write("bad.cfg", text)), std::exception);
    EXPECT_THROW(launchpad->loadConfigFile(folder.path() + "/missing.cfg"), YAML::BadFile);
    EXPECT_EQ(access.actions().size(), 2U);

    // With a value that cannot be converted, the actions before it stay.
    const std::string begin = kList + kRule + "Action: StopAll}\n" + kRule;
    for (const char* text :
         {"Action: SetState, ActionParameters: {State: s, Force: 3}}",
          "Action: FreezeChain, ActionParameters: {Chain: c, Duration: 3000000000}}",
          "Action: [StopAll]}"}) {
        EXPECT_THROW(load(begin + text), YAML::Exception);
        EXPECT_EQ(access.actions().size(), 2U) << text;
    }

    // The dialog's policy holds until a file says otherwise.
    for (const char* policy : {"focus_topics", "no_focus", "other"}) {
        load(kList + "DialogFocusPolicy: " + policy);
        load(kList);
        EXPECT_EQ(access.configControlsDialog(), policy != std::string("other")) << policy;
    }
}

}  // namespace
}  // namespace KR
