#include "host/ConfigurationCheck.h"
#include "host/KnownRobot.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

class ConfigurationCheckTest : public testing::Test {
protected:
    ConfigurationReport inspect(const std::string& rest, const KeyCatalogue* keys)
    {
        const std::string head = "ConfigurationDescription: d\nConfigurationVersion: \"2.0\"\n";
        return inspectConfiguration(folder.write("f.cfg", head + rest), keys);
    }
    static std::vector<std::string> texts(const std::vector<ConfigurationProblem>& problems)
    {
        std::vector<std::string> result;
        for (const ConfigurationProblem& problem : problems)
            result.push_back(std::to_string(problem.line) + ":" + std::to_string(problem.column) +
                             " " + problem.text + (problem.expected.empty() ? "" : " > ") +
                             problem.expected);
        return result;
    }

    const TemporaryFolder folder;
    const KnownRobot robot;
};

const std::string kStopAll = ", ExecuteAnyTimeConditionEdgeTrue: true, Action: StopAll";
const std::string kRule = ", Condition: \"'TesselReady'\"" + kStopAll;

TEST_F(ConfigurationCheckTest, WhatItsAuthorCanHardlyMeanIsAWarning)
{
    const std::string text = R"(AutonomousAction: []
Plugins: []
Plugins: []
AutonomousActions:
- {Description: greet somebody)" +
                             kRule + R"(,
   ExecuteAfterActiveRules: x, SkipIfRuleActive: x, [x]: y, Description: twice,
   SkipIfRulesActive: [farewell, greet somebodi, greet somebody, {}],
   ExcuteAfterActiveRules: "Action swithFocus to behavior p/b",
   ExecuteAfterIfSimultaniouslyTrue: nobody,
   ActionParameters: {Resaon: r, Reason: r, State: s}}
- {Description: farewell)" + kRule +
                             R"(, Actions: [
   &step {Action: ApiCall, ActionParameters: {Module: m, Method: m}, Acton: x},
   *step,
   {Action: BlockAutonomousFocus, ActionParameters: {Reason: r}},
   {Action: Fly, ActionParameters: {Reason: r}},
   {Action: ApiCall, ActionParameters: {Module: m, Methd: m, Method: m}}]}
- {Description: "")" + kRule +
                             R"(}
- {Description: farewell)" + kRule +
                             R"(}
...
--- second
)";
    const ConfigurationReport report = inspect(text, &robot.keys());
    EXPECT_THAT(
        texts(report.warnings),
        ElementsAre(
            "3:1 a configuration file has no key 'AutonomousAction'; did you mean "
            "'AutonomousActions'?",
            "5:1 'Plugins' is given twice; the first one counts",
            "8:4 a rule has no key 'ExecuteAfterActiveRules'; did you mean "
            "'ExcuteAfterActiveRules'?",
            "8:32 a rule has no key 'SkipIfRuleActive'; did you mean 'SkipIfRulesActive'?",
            "8:53 a rule has no key ''", "8:61 'Description' is given twice; the first one counts",
            "9:34 no rule is called 'greet somebodi'; did you mean 'greet somebody'?",
            "11:38 no rule is called 'nobody'",
            "12:23 StopAll has no key 'Resaon'; did you mean 'Reason'?",
            "12:45 StopAll has no key 'State'",
            "14:70 a step has no key 'Acton'; did you mean 'Action'?",
            "16:54 BlockAutonomousFocus has no key 'Reason'",
            "18:52 ApiCall has no key 'Methd'; did you mean 'Method'?",
            "19:17 the Description is empty", "20:17 the rule of line 13 is called 'farewell', too",
            "22:1 the document ends above; from here on nothing is read"));
    EXPECT_THAT(texts(report.problems),
                ElementsAre("9:66 Itmes under SkipIfRulesActive must be strings. Ignoring it for: "
                            "greet somebody",
                            HasSubstr("17:13 Found Action item with invalid type: Fly inside of: "
                                      "farewell, skipping it > one of SwitchFocus, StopFocus, "),
                            HasSubstr("18:52 Skipping: ApiCall inside of: farewell: ")));
    EXPECT_THAT(report.ruleNames(), ElementsAre("greet somebody", "farewell", "", "farewell"));
    EXPECT_THAT(inspect(text, nullptr).warnings, IsEmpty());
    EXPECT_EQ(inspectConfiguration(NIMBRA_TEST_DATA "/autonomy.cfg", &robot.keys()).warnings.size(),
              0U);
}

TEST_F(ConfigurationCheckTest, FaultsOfTheWholeFileStandWhereTheyAre)
{
    const std::string rules = "AutonomousActions:\n- {Description: a" + kRule + "}\n";
    const std::pair<std::string, std::vector<std::string>> rows[] = {
        {rules, {}},
        {"Plugins: [HumanTracked, Human, PerceptionHeavy]\n" + rules,
         {"3:25 there is no plugin 'Human' to add"}},
        {"Plugins: HumanTracked\nDialogFocusPolicy: [a]\n" + rules,
         {"3:10 Plugins must be a sequence", "4:20 DialogFocusPolicy must be a text"}},
        {"AutonomousActions: {a: 1}\n", {"3:20 AutonomousActions must be a sequence"}},
        {"", {"1:1 No AutonomousActions found in config file, skipping."}},
        {rules + "- {Description: b, Condition: [c]}\n- {Description: c" + kRule + "}\n- {}\n",
         {"5:31 bad conversion, expected a text: loading stops here",
          "7:3 Found an action without Description, skipping"}},
        {"AutonomousActions:\n- Description: a\n  Condition: ''\n  Action: StopAll\n"
         "  ExecuteAnyTimeConditionTrue: true\n",
         {"5:14 the condition of 'a' is empty"}},
    };
    for (const auto& [text, problems] : rows) {
        const ConfigurationReport report = inspect(text, &robot.keys());
        EXPECT_EQ(texts(report.problems), problems) << text;
        EXPECT_LE(report.rules.size(), 1U) << "those above the place where loading stops";
    }
    EXPECT_THAT(inspect(rows[1].first, nullptr).plugins,
                ElementsAre("HumanTracked", "PerceptionHeavy"));
    EXPECT_THROW(inspectConfiguration(folder.path() + "/none", nullptr), UnreadableFile);

    // Where the condition does not stand as it is, its doubts stand at its beginning.
    const std::string begin = "- {Description: a, Condition: \"";
    EXPECT_THAT(
        texts(inspect("AutonomousActions:\n" + begin + "'TesselReady' && 'None'\"" + kStopAll +
                          "}\n" + begin + "\\\"\\\" == 'None'\"" + kStopAll + "}",
                      &robot.keys())
                  .warnings),
        ElementsAre("4:49 the condition of 'a': nobody publishes 'None'",
                    "5:17 the rule of line 4 is called 'a', too",
                    "5:31 the condition of 'a': nobody publishes 'None'"));

    // Names in every text could make a report as large as the file squared.
    std::string large = "AutonomousActions:\n- {Description: " + std::string(1'000'000, 'x') +
                        kRule + ", Actions: [";
    for (int i = 0; i < 20; ++i)
        large += "{},";
    const ConfigurationReport cut = inspect(large + "]}\n", nullptr);
    EXPECT_TRUE(cut.isCut);
    EXPECT_EQ(cut.problems.size(), 16U);
}

}  // namespace
}  // namespace KR
