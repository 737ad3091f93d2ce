#include "host/ConfigurationCheck.h"
#include "host/DurationCheck.h"
#include "host/KeyCheck.h"
#include "host/KnownRobot.h"
#include "host/Nearest.h"
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
    static std::string texts(const std::vector<ConfigurationProblem>& problems)
    {
        std::string result;
        for (const ConfigurationProblem& problem : problems)
            result += std::to_string(problem.line) + ":" + std::to_string(problem.column) + " " +
                      problem.text + "\n";
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
   {Action: BlockAutonomousFocus, ActionParameters: {Reason: r}, Deadline: 1},
   {Action: Fly, ActionParameters: {Reason: r}},
   {Action: ApiCall, ActionParameters: {Module: m, Methd: m, Method: m}}]}
- {Description: "")" + kRule +
                             R"(, Deadline: 0}
- {Description: farewell)" + kRule +
                             R"(}
...
--- second
)";
    const ConfigurationReport report = inspect(text, &robot.keys());
    EXPECT_EQ(
        texts(report.warnings),
        R"(3:1 a configuration file has no key 'AutonomousAction'; did you mean 'AutonomousActions'?
5:1 'Plugins' is given twice; the first one counts
8:4 a rule has no key 'ExecuteAfterActiveRules'; did you mean 'ExcuteAfterActiveRules'?
8:32 a rule has no key 'SkipIfRuleActive'; did you mean 'SkipIfRulesActive'?
8:53 a rule has no key ''
8:61 'Description' is given twice; the first one counts
9:34 no rule is called 'greet somebodi'; did you mean 'greet somebody'?
11:38 no rule is called 'nobody'
12:23 StopAll has no key 'Resaon'; did you mean 'Reason'?
12:45 StopAll has no key 'State'
14:70 a step has no key 'Acton'; did you mean 'Action'?
16:54 BlockAutonomousFocus has no key 'Reason'
18:52 ApiCall has no key 'Methd'; did you mean 'Method'?
19:17 the Description is empty
19:115 the step fails: its deadline must be 1 second or more
20:17 the rule of line 13 is called 'farewell', too
22:1 the document ends above; from here on nothing is read
)");
    EXPECT_EQ(texts(report.problems),
              R"(9:66 Itmes under SkipIfRulesActive must be strings. Ignoring it for: greet somebody
17:13 Found Action item with invalid type: Fly inside of: farewell, skipping it
18:52 Skipping: ApiCall inside of: farewell: a call has Module, Method and Args, but no "Methd"
)");
    EXPECT_THAT(report.ruleNames(), ElementsAre("greet somebody", "farewell", "", "farewell"));
    EXPECT_THAT(inspect(text, nullptr).warnings, IsEmpty());
    EXPECT_EQ(inspectConfiguration(NIMBRA_TEST_DATA "/autonomy.cfg", &robot.keys()).warnings.size(),
              0U);
}

TEST_F(ConfigurationCheckTest, FaultsOfTheWholeFileStandWhereTheyAre)
{
    const std::string rules = "AutonomousActions:\n- {Description: a" + kRule + "}\n";
    const std::pair<std::string, const char*> rows[] = {
        {rules, ""},
        {"Plugins: [HumanTracked, Human, PerceptionHeavy]\n" + rules,
         "3:25 there is no plugin 'Human' to add\n"},
        {"Plugins: HumanTracked\nDialogFocusPolicy: [a]\n" + rules,
         "3:10 Plugins must be a sequence\n4:20 DialogFocusPolicy must be a text\n"},
        {"AutonomousActions: {a: 1}\n", "3:20 AutonomousActions must be a sequence\n"},
        {"", "1:1 No AutonomousActions found in config file, skipping.\n"},
        {rules + "- {Description: b, Condition: [c]}\n- {Description: c" + kRule + "}\n- {}\n",
         "5:31 bad conversion, expected a text: loading stops here\n"
         "7:3 Found an action without Description, skipping\n"},
        {"AutonomousActions: [{Description: a, Condition: ''" + kStopAll + "}]\n",
         "3:49 the condition of 'a' is empty\n"},
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
    const std::string doubtful = "AutonomousActions:\n" + begin + "'TesselReady' && 'None'\"" +
                                 kStopAll + "}\n" + begin + "\\\"\\\" == 'None'\"" + kStopAll + "}";
    EXPECT_EQ(texts(inspect(doubtful, &robot.keys()).warnings),
              R"(4:49 the condition of 'a': nobody publishes 'None'
5:17 the rule of line 4 is called 'a', too
5:31 the condition of 'a': nobody publishes 'None'
)");
    const std::string held = "AutonomousActions:\n" + begin +
                             "'TesselReady' && 'Launchpad/Hour' == 3 for 2 h\"" + kStopAll;
    EXPECT_EQ(texts(inspect(held + "}", &robot.keys()).warnings),
              "4:49 the condition of 'a': 'for 2 h' is never reached: ('Launchpad/Hour' == 3) is"
              " true for at most 1 h\n");

    // Names in every text could make a report as large as the file squared.
    std::string large = "AutonomousActions:\n- {Description: " + std::string(1'000'000, 'x') +
                        kRule + ", Actions: [";
    for (int i = 0; i < 20; ++i)
        large += "{},";
    const ConfigurationReport cut = inspect(large + "]}\n", nullptr);
    EXPECT_TRUE(cut.isCut);
    EXPECT_EQ(cut.problems.size(), 16U);
}

using Check = std::vector<KeyDoubt> (*)(const Expression&, const KeyCatalogue&);

/// Conditions, and below each the doubts about it; of a table that has the doubts that are
/// expected.
std::string withDoubts(const std::string& table, Check check, const KeyCatalogue& keys)
{
    std::string told;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        if (line[0] == ' ')
            continue;
        told += line + "\n";
        for (const KeyDoubt& doubt : check(parseCondition(line), keys))
            told += "  " + doubt.text + "\n";
    }
    return told;
}

TEST(KeyCheckTest, doubtsWhatNobodyPublishesAndWhatAKeyNeverHolds)
{
    KeyCatalogue keys;
    keys.addPublished(KeyDescription::integer("Level", "").between(1, 5).emptyAs(-1), "p");
    keys.addPublished(KeyDescription::text("Status", "").oneOf({"Low", "Full"}).emptyAs("None"),
                      "p");
    keys.addPublished(KeyDescription::boolean("Asleep", ""), "p");
    keys.addPublished(KeyDescription::number("Distance", "").atLeast(-1), "p");
    keys.addPublished(KeyDescription::text("Count/*/x", ""), "p");
    keys.addPublished({"Any"}, "p");
    keys.addPublished(KeyDescription::boolean("Flag", "").emptyAs(-1), "p");
    keys.addRead("Read", "p");
    const std::string expected = R"('Level' == 5 || 'Level' == -1 || 'Level' > 4 || 'Level' < 0
5 <= 'Level' && -1 >= 'Level' && 4 < 'Level' && 0 > 'Level'
'Status' == "None" && 'Status' != "Low" || 'Count/a/x' == "b"
'Asleep' == 1 && !'Asleep' && 'Distance' < 0.5 && 'Distance' == 2
'Asleep' > false && true > 'Asleep' && 'Distance' <= -1 && 'Distance' > 1e9
'Status' < "M" && 'Any' < 3 && 'Any' == "x" && 'Flag' > -2 && 'Level' == 'Status'
'Status' < 3 || 'Level' > "a"
  'Status' is never less than 3: it is text, "Low" or "Full"
  'Level' is never more than "a": it is integer, 1 to 5
'Asleep' < 0 || 'Asleep' > true || 'Flag' < -1
  'Asleep' is never less than 0: it is boolean
  'Asleep' is never more than true: it is boolean
  'Flag' is never less than -1: it is boolean
6 < 'Level' || -2 >= 'Level'
  'Level' is never more than 6: it is integer, 1 to 5
  'Level' is never as little as -2: it is integer, 1 to 5
'Status' == "low" || 'Level' == 6 && 3 == 'Level' && 6 == 'Level' || 'Asleep' == 2
  'Status' is never "low": it is text, "Low" or "Full"
  'Level' is never 6: it is integer, 1 to 5
  'Asleep' is never 2: it is boolean
'Level' == 2.5 && 'Level' == "2" || 'Level' > 5 || 6 <= 'Level' || 'Distance' < -1
  'Level' is never 2.5: it is integer, 1 to 5
  'Level' is never "2": it is integer, 1 to 5
  'Level' is never more than 5: it is integer, 1 to 5
  'Level' is never as much as 6: it is integer, 1 to 5
  'Distance' is never less than -1: it is number, -1 or more
!('Levl' == 9) && 'Read'
  nobody publishes 'Levl'; did you mean 'Level'?
  nobody publishes 'Read'
'Level' within 1 s of "a" && age('Levl') < 2 s && count('Status' == "low", 1 s) > 6
  nobody publishes 'Levl'; did you mean 'Level'?
  'Status' is never "low": it is text, "Low" or "Full"
)";
    EXPECT_EQ(withDoubts(expected, keyDoubts, keys), expected);
}

TEST(KeyCheckTest, doubtsDurationsThatAreLongerThanWhatTheyHoldStaysTrue)
{
    // Up to the last duration that is reached, in each way in which a bound comes about.
    const std::string expected =
        R"('Launchpad/Hour' == 3 for 59.99 min && 'Launchpad/Minute' >= 58 for 119999 ms
'Launchpad/Hour' == 3 for 1 h
  'for 1 h' is never reached: ('Launchpad/Hour' == 3) is true for at most 1 h
('Launchpad/Hour' >= 21 || 'Launchpad/Hour' < 6) for 8.9 h
('Launchpad/Hour' >= 21 || 6 > 'Launchpad/Hour') for 9 h
  'for 9 h' is never reached: (('Launchpad/Hour' >= 21) || (6 > 'Launchpad/Hour')) is true for at most 9 h
'Launchpad/Hour' for 22 h && !'Launchpad/Hour' for 1 h && 'Launchpad/Hour' >= 0 for 48 h
  'for 1 h' is never reached: !'Launchpad/Hour' is true for at most 1 h
!('Launchpad/Hour' < 3 || 'Launchpad/Lifted' || !('Launchpad/Hour' != 9)) for 14 h
  'for 14 h' is never reached: !(('Launchpad/Hour' < 3) || 'Launchpad/Lifted' || !('Launchpad/Hour' != 9)) is true for at most 14 h
('Launchpad/Hour' < 9 && 'Launchpad/Lifted' && 'Launchpad/Hour' > 6 && 'Launchpad/MinuteOfDay' < 30) for 1 h
  'for 1 h' is never reached: (('Launchpad/Hour' < 9) && 'Launchpad/Lifted' && ('Launchpad/Hour' > 6) && ('Launchpad/MinuteOfDay' < 30)) is true for at most 30 min
('Launchpad/Hour' == 3 || 'Launchpad/Lifted') for 2 h && ('Launchpad/Hour' == 3 || 'Launchpad/Minute' == 3) for 2 h
('Launchpad/Hour' < 3) == ('Launchpad/Hour' < 5) for 22 h
  'for 22 h' is never reached: (('Launchpad/Hour' < 3) == ('Launchpad/Hour' < 5)) is true for at most 22 h
('Launchpad/Hour' == 'Launchpad/Month' || 'Launchpad/Date' < 3) for 2000 h
('Launchpad/DayName' == "Sunday" || 'Launchpad/DayName' == "Monday") for 2 h for 46 h for 30 s
  'for 46 h' is never reached: ((('Launchpad/DayName' == "Sunday") || ('Launchpad/DayName' == "Monday")) for 2 h) is true for at most 46 h
'Launchpad/Month' == 2 for 743 h && ('Launchpad/Hour' < 3 && 'Launchpad/Hour' > 5) for 1 ms
  'for 1 ms' is never reached: (('Launchpad/Hour' < 3) && ('Launchpad/Hour' > 5)) is never true
count('Launchpad/Minute' == 3 for 2 min, 1 s) > 0 || 'Launchpad/Lifted' within 1 s of !('Launchpad/Minute' == 4 for 3 min)
  'for 2 min' is never reached: ('Launchpad/Minute' == 3) is true for at most 1 min
  'for 3 min' is never reached: ('Launchpad/Minute' == 4) is true for at most 1 min
'Launchpad/Hour' within 1 s of 'Launchpad/Lifted' for 2 s && age('A') < 2 s for 3 s && age('A') != 2 s for 3 s
age('A') == 5 s for 0.001 ms
  'for 0.001 ms' is never reached: (age('A') == 5 s) is true for at most 0.001 ms
(age('A') >= 5 s && age('A') < 8 s) for 2999.999 ms && (age('A') > 5 s && age('B') <= 8 s) for 9 s
(age('A') > 5 s && 'Launchpad/Lifted' && 8 s > age('A')) for 3 s
  'for 3 s' is never reached: ((age('A') > 5 s) && 'Launchpad/Lifted' && (age('A') < 8 s)) is true for at most 2999.999 ms
age('A') > 5 s && age('A') <= 5 s || age('A') > 5 s && age('B') < 3 s || age('A') <= 5 s && age('A') == 5 s
  (age('A') > 5 s) && (age('A') <= 5 s) is never true
)";
    EXPECT_EQ(withDoubts(expected, durationDoubts, KnownRobot().keys()), expected);
}

TEST(NearestTest, NearIsWhatAFewSlipsMakeOfAText)
{
    const std::string longest(200, 'x');
    const struct {
        std::string text;
        std::vector<std::string> candidates;
        std::string nearest;
    } rows[] = {
        {"Reason", {"Raeson", "Reasons", "Season"}, "Reasons"},  // the first of the nearest
        {"Reason", {"son", "Read", "Reaction"}, ""},
        {"Reason", {"Reas", "Riason"}, "Riason"},
        {"elevenbytes1234", {"elevenbytes1999"}, "elevenbytes1999"},
        {"elevenbytes123", {"elevenbytes999"}, ""},
        {"a rule of twenty-five byt", {"b sule og twenty-four cyt"}, ""},
        {"ab", {"b", "xy"}, "b"},
        {"", {"a"}, ""},
        {longest, {longest + "y"}, longest + "y"},
        {longest + "y", {longest}, ""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(nearestText(row.text, row.candidates), row.nearest) << row.text;
    EXPECT_EQ(didYouMean("Flag", {"Force", "Flags"}), "; did you mean 'Flags'?");
    EXPECT_EQ(didYouMean("Flag", {}), "");
}

}  // namespace
}  // namespace KR
