#include <boost/algorithm/string.hpp>

#include "host/RunCommand.h"
#include "robot/Scenario.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"
#include "timeline/Text.h"

namespace KR {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;
using Kind = ScenarioStep::Kind;

const char* const kHead = "Scenario: Test\nStart: 2026-11-21 06:00:00\nTimeline:\n";

class ScenarioTest : public testing::Test {
protected:
    Scenario load(const std::string& text) { return loadScenario(folder.write("s.yaml", text)); }
    /// The error, without the path.
    std::string errorOf(const std::string& text)
    {
        const std::string path = folder.write("s.yaml", text);
        const std::string error = ::errorOf<ScenarioError>([&] { loadScenario(path); });
        EXPECT_TRUE(error == "none" || boost::starts_with(error, path + ":")) << error;
        return boost::erase_first_copy(error, path + ":");
    }

    TemporaryFolder folder;
};

TEST_F(ScenarioTest, HoldsWhatHappensInTheOrderWrittenAndTheWorldsStepsAsCalls)
{
    const Scenario scenario = load(std::string(kHead) + R"(
  - At: "06:00"
    Say: Good morning
    Raise: {K/b: 1, K/a: [true, "1", 2.5, ~]}
    Pulse: K/pulse
    Call: {Module: M, Method: m, Args: [1]}
    Enter: {Anna: [5, -2], Ben: [1.5, 0]}
    Walk: {Anna: [1, 0], Ben: {To: [[2, 0], [3, 1]], Speed: 0.5}}
    Look: {Anna: robot, Ben: [0, 1]}
    Wave: {Anna: 2.5}
    Leave: [Ben, Anna]
    Move: {Place: [1, 1], For: 3}
    Lift: up
    Push: left
    Fall: back
    Heat: {LArm: 78, HeadYaw: 30}
    Use: {Arms: 0.5}
    Posture: Sit
    Charger: off
    Battery: {Draining: 4, Charge: 50}
    Language: French
    Install: packages/x
    Remove: x
  - {At: "2 07:30:15.25", Battery: 7, Install: /p, Enter: {Ben: [1, 1]}, Look: {Ben: ahead}, Lift: down}
  - {At: "08:00", Battery: {Charging: 30}, Charger: on, Fall: front, Walk: {Ben: {To: [2, 3]}},
     Move: {Place: [2, -3], For: 4, Size: 1.5}, Leave: Ben}
End: 2026-11-23 00:00:00
)");
    EXPECT_EQ(scenario.title, "Test");
    EXPECT_EQ(isoTime(scenario.start), "2026-11-21T06:00:00.000000Z");
    EXPECT_EQ(*scenario.end - scenario.start, hours(42));
    EXPECT_THAT(scenario.keys(), ElementsAre("K/a", "K/b", "K/pulse"));
    std::string told;
    for (const ScenarioEntry& entry : scenario.timeline) {
        told += isoTime(entry.time) + "\n";
        for (const ScenarioStep& step : entry.steps) {
            if (step.kind == Kind::call)
                told += step.call->module() + "." + step.call->method() +
                        KRValue(step.call->arguments()).toDisplayString() + "\n";
            else
                told += step.text + " " + step.value.toDisplayString() + "\n";
        }
    }
    EXPECT_EQ(boost::replace_all_copy(told, folder.path(), "FOLDER"), R"(2026-11-21T06:00:00.000000Z
Good morning none
K/b 1
K/a [true, "1", 2.5, none]
K/pulse 0
K/pulse 1
M.m[1]
KRWorld.enter["Anna", 5.0, -2.0]
KRWorld.enter["Ben", 1.5, 0.0]
KRWorld.walk["Anna", [[1.0, 0.0]], 1.2]
KRWorld.walk["Ben", [[2.0, 0.0], [3.0, 1.0]], 0.5]
KRWorld.look["Anna", "robot"]
KRWorld.look["Ben", [0.0, 1.0]]
KRWorld.wave["Anna", 2.5]
KRWorld.leave["Ben"]
KRWorld.leave["Anna"]
KRWorld.move[1.0, 1.0, 3.0, 0.5]
KRWorld.lift[true]
KRWorld.push["left"]
KRWorld.fall["back"]
KRWorld.heat["LArm", 78.0]
KRWorld.heat["HeadYaw", 30.0]
KRWorld.use["Arms", 0.5]
KRRobotPosture.goToPosture["Sit", 1.0]
KRBattery.connectCharger[false]
KRBattery.setCharge[50.0]
KRBattery.setDischargeRate[4.0]
KRTextToSpeech.setLanguage["French"]
PackageManager.upgrade["FOLDER/packages/x"]
PackageManager.removePkg["x"]
2026-11-22T07:30:15.250000Z
KRBattery.setCharge[7.0]
PackageManager.upgrade["/p"]
KRWorld.enter["Ben", 1.0, 1.0]
KRWorld.look["Ben", "ahead"]
KRWorld.lift[false]
2026-11-22T08:00:00.000000Z
KRBattery.setChargeRate[30.0]
KRBattery.connectCharger[true]
KRWorld.fall["front"]
KRWorld.walk["Ben", [[2.0, 3.0]], 1.2]
KRWorld.move[2.0, -3.0, 4.0, 1.5]
KRWorld.leave["Ben"]
)");
}

TEST_F(ScenarioTest, WrongOnesAreRefusedWithThePlace)
{
    struct Row {
        std::string text;
        const char* error;
    };
    const std::string head = kHead;
    const std::string entry = head + "  - At: \"06:00\"\n    ";
    std::string crowd = entry + "Enter: {p0: [1, 1]";
    for (int i = 1; i < 100; ++i)
        crowd += ", p" + std::to_string(i) + ": [1, 1]";
    const std::string full = head + "  []\n#";
    const std::string padding(kMaxScenarioBytes - full.size(), ' ');
    const Row rows[] = {
        // The last that is accepted, and what is not.
        {crowd + "}\n", "none"},
        {crowd + ", p100: [1, 1]}\n", "more than 100 people do not fit in"},
        {full + padding, "none"},
        {full + padding + " ", "larger than"},
        {entry + "Say: x\nEnd: \"06:00\"\n", "none"},
        {entry + "Say: x\n  - At: \"2 24:00\"\n    Say: x\nEnd: \"24:00\"\n", "none"},
        {head + "  - {At: \"366 24:00\", Say: x}\n", "none"},
        {head + "  []\nEnd: 2027-11-22 06:00\n", "none"},
        {head + "  []\nEnd: 2027-11-22 06:00:01\n", "a scenario takes 366 days at most"},
        {entry + "Battery: {Charge: 100, Charging: 3.6e11, Draining: 0}\n", "none"},
        {entry + "Battery: {Draining: 3.7e11}\n", "Draining is out of range"},
        {entry + "Battery: 100.1\n", "5:14: Charge is out of range"},
        {"[1]", "1:1: a scenario is a mapping"},
        {"Scenario: x\nTimeline: []\n", "1:1: 'Start' is missing"},
        {"Scenario: [x]\nStart: 1\nTimeline: []", "1:11: Scenario must be a text"},
        {"Scenario: x\nStart: 1969-12-31 06:00\nTimeline: []", "2:8: Start must be"},
        {"Scenario: x\nStart: 2026-11-21 06:00\nTimeline: {a: b}", "3:11: Timeline"},
        {head + "  - At: \"06:00\"\nBegin: 1\n", "5:1: unknown key 'Begin'"},
        {head + "  - x\n", "4:5: an entry of the Timeline is a mapping"},
        {head + "  - Say: x\n", "4:5: 'At' is missing"},
        {head + "  - At: \"06:00\"\n", "4:5: an entry needs something"},
        {head + "  - At: \"367 06:00\"\n    Say: x\n", "4:9: At must be a time"},
        {head + "  - At: \"05:59:59\"\n    Say: x\n", "4:9: At lies before the Start"},
        {entry + "Say: x\n  - At: \"2 06:00\"\n    Say: x\n  - At: \"1 07:00\"\n    Say: x\n",
         "8:9: At lies before the entry above it"},
        {entry + "Say: x\n    Sing: y\n", "6:5: unknown key 'Sing'"},
        {entry + "Say: x\n    Say: y\n", "6:5: 'Say' is given twice"},
        {entry + "Raise: Key\n", "5:12: Raise must be a mapping"},
        {entry + "Raise: {a: {b: c}}\n", "5:16: "},
        {entry + "Raise: {Nimbra/State: solitary}\n", "5:13: 'Nimbra/State'"},
        {entry + "Pulse: Nimbra/Asleep\n", "5:12: 'Nimbra/Asleep'"},
        {entry + "Pulse: \"\"\n", "must not be empty"},
        {entry + "Call: {Module: M}\n", "5:11: "},
        {entry + "Call: {Module: M, Method: m, Args: 1}\n", "5:40: "},
        {entry + "Raise: {a: [1, [-.inf]]}\n", "5:21: a reading"},
        {entry + "Enter: {}\n", "5:12: Enter must be a mapping"},
        {entry + "Enter: {Anna: [1]}\n", "5:19: a place is [x, y]"},
        {entry + "Enter: {Anna: [1, 1e6]}\n", "5:19: a place lies within 100"},
        {entry + "Enter: {\"\": [1, 1]}\n", "5:13: a person's name"},
        {entry + "Enter: {A: [1, 1], A: [1, 1]}\n", "5:24: 'A' is given twice"},
        {entry + "Enter: {A: [1, 1]}\n  - At: \"06:00\"\n    Enter: {A: [1, 1]}\n",
         "7:13: 'A' is here already"},
        {entry + "Walk: {A: [1, 1]}\n", "5:12: 'A' is not here"},
        {entry + "Leave: []\n", "5:12: Leave needs a name"},
        {entry + "Enter: {A: [1, 1]}\n    Leave: [A, A]\n", "6:16: 'A' is not here"},
        {entry + "Enter: {A: [1, 1]}\n    Walk: {A: []}\n", "6:15: a walk goes to"},
        {entry + "Enter: {A: [1, 1]}\n    Walk: {A: {Speed: 1}}\n", "'To' is missing"},
        {entry + "Enter: {A: [1, 1]}\n    Walk: {A: {To: [1, 1], Speed: 0}}\n", "6:15: the speed"},
        {entry + "Enter: {A: [1, 1]}\n    Wave: {A: -1}\n", "6:15: the time"},
        {entry + "Enter: {A: [1, 1]}\n    Look: {A: up}\n", "6:15: where somebody"},
        {entry + "Lift: true\n", "5:11: Lift is up or down"},
        {entry + "Push: below\n", "5:11: 'below' is not front"},
        {entry + "Heat: {Tail: 3}\n", "5:12: there is no chain or joint 'Tail'"},
        {entry + "Heat: {Arms: 1000}\n", "5:18: 1000"},
        {entry + "Posture: Fly\n", "5:14: there is no posture 'Fly'"},
        {entry + "Language: Dog\n", "5:15: the language 'Dog'"},
        {entry + "Remove: \"\"\n", "5:13: Remove needs"},
        {head + "  - At: \"06:00\"\n    Say: x\nEnd: \"05:00\"\n", "6:6: End lies"},
        {"Scenario: [x", "1:1: end of sequence"},
    };
    for (const Row& row : rows)
        EXPECT_THAT(errorOf(row.text), HasSubstr(row.error)) << row.text.substr(0, 200);
    EXPECT_THROW(loadScenario(folder.path() + "/missing"), ScenarioError);
    EXPECT_THROW(loadScenario(folder.path()), ScenarioError);
}

TEST(DayTimeTest, RunEndsAtATimeOrAfterADurationUpToAYear)
{
    const vo::TimePoint start(hours(24 * 20000 + 6));
    const std::pair<const char*, seconds> ends[] = {
        {"1s", seconds(1)},        {"2m", minutes(2)},       {"3h", hours(3)},
        {"366d", hours(24 * 366)}, {"06:00:01", seconds(1)}, {"2 06:00", hours(24)}};
    for (const auto& [text, length] : ends)
        EXPECT_EQ(endFromText(text, start) - start, length) << text;
    for (const char* text :
         {"0s", "-1s", "06:00", "367d", "2147483647d", "5", "s", "1 s", "1y", "", " 1s"})
        EXPECT_THROW(endFromText(text, start), UsageError) << text;
}

TEST(DayTimeTest, TimesAreReadAsTheyAreWrittenInUtc)
{
    const vo::TimePoint day(hours(24 * 20000));
    EXPECT_EQ(midnightOf(day), day);
    EXPECT_EQ(midnightOf(day + hours(24) - vo::Duration(1)), day);
    EXPECT_EQ(parseDayTime("24:00")->sinceFirstMidnight(2), hours(48));
    EXPECT_EQ(parseDayTime("3  1:02:03.4")->sinceFirstMidnight(1),
              hours(49) + minutes(2) + seconds(3) + milliseconds(400));
    for (const char* text : {"", ":", "6", "1:2", "12:00:", "12:00:00.", "-1 12:00", "12:00 ",
                             "1e1:00", "06:60", "24:01", "0 06:00"})
        EXPECT_FALSE(parseDayTime(text)) << text;
    EXPECT_FALSE(parseDayTime(std::string(1'000'000, '1')));
    for (const char* text : {"2024-10-04 00:00", "2024-10-04T00:00:00"})
        EXPECT_EQ(parseDateTime(text), day) << text;
    EXPECT_EQ(parseDateTime("1970-01-01 00:00"), vo::TimePoint());
    for (const char* text :
         {"2024-10-04", "2024-10-04 0:00", "2024-10-04 00:00:", "2024-13-04 00:00",
          "2024-10-04 24:00", "2024-10-04 00:60", "2024-10-04 00:00:60", "2023-02-29 00:00",
          "2024-10-04  00:00", "2024-10-04 00:00 "})
        EXPECT_FALSE(parseDateTime(text)) << text;
}

}  // namespace
}  // namespace KR
