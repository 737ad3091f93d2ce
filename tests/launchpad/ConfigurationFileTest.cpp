#include <boost/algorithm/string.hpp>
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
  ExecuteAfterIfSimultaniouslyTrue: [d, e]
  ExecuteAnyTimeConditionTrue: false
  ExecuteAnyTimeConditionEdgeTrue: true
  ExecuteBeforeActivityIfConditionTrue: yes
  Action: FreezeChain
  Deadline: 7
  ActionParameters: {Chain: Legs, Duration: 3, Deadline: 8}
  Actions:
  - {Action: SwitchFocus, ActionParameters: {Activity: x, Flags: -1, Reason: 7, Other: 1}}
  - {Action: SetState, ActionParameters: {State: solitary, Force: false}}
  - {Action: BlockAutonomousFocus, ActionParameters: {Reason: none}}
  - {Action: UnblockAutonomousFocus}
  - {Action: StopFocus, ActionParameters: {Reason: r, Activity: x}}
  - {Action: StopAll, ActionParameters: {Reason: s}}
  - {Action: SetConfiguration, ActionParameters: {ConfigurationSet: c, Module: M}}
  - {Action: UnfreezeChain, ActionParameters: {Chain: Head, Duration: 3}}
  - {Action: ApiCall, ActionParameters: {Module: M, Method: m}, Deadline: 5}
)");
    const std::vector<AutonomousActionItem> items = {
        {1, {{"Activity", "x"}, {"Flags", -1}, {"Reason", "7"}}},
        {6, {{"State", "solitary"}, {"Force", false}}},
        {4, {}},
        {5, {}},
        {2, {{"Reason", "r"}}},
        {3, {{"Reason", "s"}}},
        {7, {{"ConfigurationSet", "c"}, {"Module", "M"}}},
        {10, {{"Chain", "Head"}}},
        {8, {{"Module", "M"}, {"Method", "m"}, {"Deadline", 5}}},
        {9, {{"Chain", "Legs"}, {"Duration", 3}, {"Deadline", 7}}}};
    const AutonomousAction expected{"whole", "LifeConfig", items, "'K' == 1", 1,
                                    0x6,     {"d", "e"},   {"a"}, {"b", "c"}};
    EXPECT_EQ(vo::toValue(launchpad->getAction("whole")), vo::toValue(expected));
    EXPECT_THAT(platform.log.lines(vo::LogLevel::warning),
                ElementsAre("NimbraLaunchpad/readYamlStringOrListOfStrings: Itmes under "
                            "SkipIfRulesActive must be strings. Ignoring it for: whole"));
    EXPECT_THAT(platform.log.lines(vo::LogLevel::info).back(),
                HasSubstr("Using configuration file: \"Test\" version: \"2.0\" from: /"));
}

TEST_F(LaunchpadTest, malformedActionOrStep_isWarnedAboutAndTheOthersAreRead)
{
    load(kList + "- text\n" + kRule + "Actions: x, Action: StopAll}\n" + kRule +
         "Actions: [StopAll, {Action: FreezeChain, ActionParameters: text}, {Action: StopAll}],\n"
         "   SkipIfRulesActive: {a: b}}\n");
    const std::string begin = "NimbraLaunchpad/loadConfigFile: ";
    EXPECT_THAT(
        platform.log.lines(vo::LogLevel::warning),
        ElementsAre(begin + "Found an action without Description, skipping",
                    begin + "d had no valid actions and was ignored",
                    "NimbraLaunchpad/readYamlStringOrListOfStrings: SkipIfRulesActive item must be "
                    "a list or string. Ignoring it for: d",
                    begin + "Found Action item without type inside of: d, skipping it",
                    begin + "Found a FreezeChain/UnfreezeChain action without Chain parameter, "
                            "skipping: FreezeChain inside of: d"));
    EXPECT_EQ(launchpad->getAction("d").items.size(), 1U);
    EXPECT_THROW(load("AutonomousActions: {a: 1, b: 2}\nDialogFocusPolicy: [a]"), YAML::Exception);
    load("AutonomousActions: {a: 1, b: 2}");
    EXPECT_EQ(platform.log.lines(vo::LogLevel::warning).size(), 7U) << "one for each";
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
    EXPECT_FALSE(access.configControlsDialog()) << "not read";
    EXPECT_THAT(platform.log.lines(vo::LogLevel::warning).back(),
                HasSubstr("No AutonomousActions found in config file, skipping."));
    for (const char* text :
         {"", "a: [", "ConfigurationVersion: 2",
          "{ConfigurationDescription: d, ConfigurationVersion: 3.0, AutonomousActions: []}"})
        EXPECT_THROW(launchpad->loadConfigFile(folder.write("bad.cfg", text)), std::exception);
    EXPECT_EQ(errorOf([&] { launchpad->loadConfigFile(folder.write("bad.cfg", "\n{a: 1}")); }),
              folder.path() +
                  "/bad.cfg:2:1: the configuration has no ConfigurationVersion "
                  "(supported are versions up to 2)");
    EXPECT_EQ(access.actions().size(), 2U);

    // With a value that cannot be converted, the actions before it stay.
    const std::string begin = kList + kRule + "Action: StopAll}\n" + kRule + "\n ";
    const std::pair<const char*, const char*> rows[] = {
        {"Action: SetState, ActionParameters: {State: s, Force: 3}}", "6:56: %true or false"},
        {"Action: FreezeChain, ActionParameters: {Chain: c, Duration: 3000000000}}",
         "6:62: %an integer of 32 bits"},
        {"Action: [StopAll]}", "6:10: %a text"}};
    for (const auto& [text, error] : rows) {
        const std::string expected = folder.path() + "/test.cfg:" + error;
        EXPECT_EQ(errorOf<YAML::BadConversion>([&, text = text] { load(begin + text); }),
                  boost::replace_all_copy(expected, "%", "bad conversion, expected "));
        EXPECT_EQ(access.actions().size(), 2U) << text;
    }

    // The dialog's policy holds until a file says otherwise.
    for (const char* policy : {"focus_topics", "no_focus", "other"}) {
        load(kList + "DialogFocusPolicy: " + policy);
        load(kList);
        EXPECT_EQ(access.configControlsDialog(), policy != std::string("other")) << policy;
    }

    // No file is no error, and one that is asked for fails as the default one does.
    logged();
    comeUp(nullptr, "");
    EXPECT_THAT(logged(), testing::Not(HasSubstr("default config file")));
    comeUp(nullptr, "/none");
    EXPECT_THAT(logged(), testing::StartsWith("error NimbraLaunchpad: Can't load default config "
                                              "file: /none: /none: No such file"));
}

TEST_F(LaunchpadTest, reload_leavesAHoldAsItIs)
{
    const std::string rule = kList + "- {Description: d, ExecuteAnyTimeConditionEdgeTrue: true, " +
                             "Condition: \"'K' == 1 for 10 s\", Action: ";
    load(rule + "StopAll}");
    launchpad->startMonitoringConditions();
    raiseK(1);
    platform.advance(std::chrono::seconds(6));
    load(rule + "UnblockAutonomousFocus}");
    platform.advance(std::chrono::seconds(4));
    EXPECT_THAT(responder.calls, ElementsAre(ElementsAre("d")));
}

}  // namespace
}  // namespace KR
