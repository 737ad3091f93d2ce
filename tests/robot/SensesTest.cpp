#include <cmath>

#include "plugins/builtin/HumanTrackedPlugin.h"
#include "plugins/builtin/PerceptionHeavyPlugin.h"
#include "tests/robot/RobotTest.h"

namespace KR {

using List = KRValue::Array;

const std::string kPeople = "PeoplePerception/";

struct SensesTest : RobotTest<PerceptionHeavyPlugin> {
    void SetUp() override
    {
        make();
        follow(
            "PeopleNotSeen NumPeopleZone1 NumPeopleZone2 NumPeopleZone3 NumMotionZone1 "
            "NumMotionZone2 NumMotionZone3 WavingDetection");
        start();
    }
};

TEST_F(SensesTest, people_are_seen_and_put_into_zones_by_distance_and_direction)
{
    const std::vector<std::string> places[] = {
        {"-0.01, 1", "-0.01, -1", "3.501, 0"},  // behind, or beyond the limit of detection
        {"0, 0", "-0.0, 0", "1.5, 0", "1, -1"},
        {"1.501, 0", "2.5, 0"},
        {"2.501, 0", "3.5, 0", "1, 1.01", "1, -1.01", "0, -1"}};  // or out of the angle
    for (int zone = 0; zone <= 3; ++zone) {
        for (const auto& place : places[zone]) {
            SCOPED_TRACE(place);
            play("enter [Anna, " + place + "]");
            for (int other = 1; other <= 3; ++other)
                EXPECT_EQ(data("EngagementZones/PeopleInZone" + std::to_string(other)) == "[]",
                          other != zone);
            EXPECT_EQ(data(kPeople + "VisiblePeopleList") == "[]", zone == 0);
            play("leave [Anna]; wait 3");
        }
    }
    play(R"(enter [Anna, 2, 0];                    KREngagementZones.setFirstLimitDistance [2];
            'EngagementZones/PeopleInZone1' -> [12];    KREngagementZones.setLimitAngle [0];
            KREngagementZones.setSecondLimitDistance [1];
            'EngagementZones/PeopleInZone1' -> [12];
            KRPeoplePerception.setMaximumDetectionRange [1.9];
            'PeoplePerception/VisiblePeopleList' -> [])");
}

TEST_F(SensesTest, people_walk_evenly_and_a_world_at_rest_costs_nothing)
{
    play(R"(enter [Anna, 5, 0]; walk [Anna, [[3, 0], [3, 0], [3, 2]], 2]; wait 1;
            'PeoplePerception/Person/1/Distance' -> 3.0; wait 0.4)");
    EXPECT_EQ(data(kPeople + "Person/1/Distance"), KRValue(std::hypot(3, 0.8)).toDisplayString());
    // [direction, 0], [left, bottom, width, height], [distance, certainty] of half by 1.7 metres
    EXPECT_THAT(data("EngagementZones/LastMovementsInZone3"),
                testing::MatchesRegex(
                    R"(\[\[1728000001, 400000\], \[\[\[0.260\S+, 0.0\], \[0.180\S+, -0.267\S+, )"
                    R"(0.160\S+, 0.534\S+\], \[3.104\S+, 1.0\]\]\].*)"));
    play(R"(walk [Anna, [[1, 0]], 0.5]; wait 60; 'PeoplePerception/Person/1/Distance' -> 1.0;
            'EngagementZones/LastMovementsInZone1' -> [])");  // from where she is
    plugin.reset();
    EXPECT_EQ(platform.clock->untilNextTask(), std::nullopt);
}

TEST_F(SensesTest, people_look_at_the_robot_within_the_tolerance_of_their_gaze)
{
    const std::string looks = "; 'PeoplePerception/Person/1/IsLookingAtRobot' -> ";
    play("enter [Anna, 2, 0]" + looks + "1; walk [Anna, [[2, 1], [2, 0]], 10]; wait 1" + looks +
         "0; look [Anna, robot]" + looks + "1");
    for (const double degrees : {-19.9, 19.9, -20.1, 20.1, 180.0}) {
        const double radians = (180 + degrees) * 3.14159265358979 / 180;
        world("look", "Anna", List{2 + std::cos(radians), std::sin(radians)});
        play("wait 0" + looks + (std::abs(degrees) < 20 ? "1" : "0"));
    }
    play("look [Anna, robot]; look [Anna, ahead]" + looks +
         "0; KRGazeAnalysis.unsubscribe [_LaunchpadPluginPerceptionHeavy]" + looks + "none");
}

TEST_F(SensesTest, waves_and_movements_reach_the_plugin_and_end)
{
    play(R"(enter [Anna, 2, 0];             wait 0 -> PeopleNotSeen=false NumPeopleZone2=1;
            enter [Ben, 3, 0];              wait 0 -> NumPeopleZone3=1;
            wave [Ben, 9]; wave [Ben, 1.5]; wait 0 -> NumMotionZone3=1 WavingDetection=1;
            'WavingDetection/PersonWaving' -> 2;
            wait 0.999999 -> nothing;       wait 0.000001 -> WavingDetection=1;
            wait 0.6 -> NumMotionZone3=0;   wave [Ben, 0.1];
            wait 0.2 -> NumMotionZone3=1 WavingDetection=1 NumMotionZone3=0;
            wait 4 -> WavingDetection=0;    leave [Ben]; wait 5 -> NumPeopleZone3=0)");
    // Of the last ones two are seen: 0.103 rad wide; too small to count; behind.
    play(R"(move [1, 0, 2, 0.5]; move [0, 3, 4, 0.31]; move [3, 0, 4, 0.29]; move [-2, 0, 4, 1];
            wait 2 -> NumMotionZone1=1 NumMotionZone3=1 NumMotionZone1=0;
            wait 5 -> NumMotionZone3=0;
            KRWavingDetection.unsubscribe [_LaunchpadPluginPerceptionHeavy];
            KRMovementDetection.unsubscribe [_LaunchpadPluginPerceptionHeavy];
            wave [Anna, 1.5]; wait 3 -> nothing)");
}

TEST_F(SensesTest, extractor_works_for_its_own_subscribers_until_the_last_is_gone)
{
    plugin.reset();
    play("KRBasicAwareness.stopAwareness; enter [Anna, 1, 0]; wave [Anna, 3600]");
    const std::pair<std::string, const char*> rows[] = {{"KRPeoplePerception", "x---- [2][]"},
                                                        {"KREngagementZones", "xx--- [3][3]"},
                                                        {"KRMovementDetection", "--x-- [][]"},
                                                        {"KRWavingDetection", "x--x- [4][]"},
                                                        {"KRGazeAnalysis", "x---x [5][]"}};
    const auto working = [&] {
        std::string text;
        for (const auto& row : rows)
            text += ask(row.first + ".isProcessing") == "true" ? "x" : "-";
        return text + " " + data(kPeople + "VisiblePeopleList") +
               data("EngagementZones/PeopleInZone1");
    };
    for (const auto& row : rows)
        call(row.first, "unsubscribe", "_LaunchpadPluginPerceptionHeavy");
    EXPECT_EQ(working(), "----- [][]");
    for (const auto& [service, expected] : rows) {
        for (const char* step : {".subscribe [a]", ".subscribe [b]", ".subscribe [b]",
                                 ".unsubscribe [a]", ".unsubscribe [c]"})
            play(service + step);
        EXPECT_EQ(working(), expected);
        EXPECT_EQ(data("EngagementZones/LastMovementsInZone1"), "[]");
        play(service + ".unsubscribe [b]");
        EXPECT_EQ(working(), "----- [][]");
    }
}

TEST_F(SensesTest, nonsense_is_refused_and_changes_nothing)
{
    // The last values that are accepted.
    const std::string longest(100, 'x');
    world("enter", longest, 100.0, -100.0);
    world("walk", longest, List(1000, List{1, 1}), 12.0);
    play(
        "enter [Ben, -100, 100]; walk [Ben, [[100, -100]], 0.001]; wave [Ben, 86400]; leave [Ben];"
        "move [-100, 100, 86400, 100]");
    for (int i = 1; i < 100; ++i)
        play("move [-1, 0, 1, 1]");
    play("move [-1, 0, 1, 1] -> refused; wait 1; move [-1, 0, 1, 1]; leave [" + longest +
         "];"
         "enter [Anna, 2, 0]; wait 0");
    raised();
    expectRefused(R"(enter [Anna, 1, 1];  enter ["", 1, 1];      enter [Ben, .nan, 1];
                     leave [Ben];         walk [Anna, [], 1];    enter [Ben, 1, -100.1];
                     look [Anna, up];     walk [Anna, [1, 1], 1];    walk [Ben, [[1, 1]], 1];
                     wave [Anna, 0];      walk [Anna, [[1, 1]], .nan];    move [1, 1, 1, 0];
                     wave [Anna, .nan];   walk [Anna, [[1, 1]], 12.1];    move [1, 1, 1, 100.1];
                     wave [Anna, 86400.1];    walk [Anna, [[1, 1]], 0.0009];
                     move [1, 1, 86400.1, 1]; walk [Anna, [[1, 1], [1, .nan]], 1];
                     look [Anna, [1, .inf]])");
    expectRefused("enter [" + longest + "x, 1, 1]");
    EXPECT_THROW(world("walk", "Anna", List(1001, List{1, 1}), 1.0), KRError);
    EXPECT_EQ(after(seconds(10)), "");
    for (int i = 1; i < 100; ++i)
        play("enter [" + std::to_string(i) + "x, 1, 1]");
    expectRefused("enter [Ben, 1, 1]");
}

using TrackingTest = RobotTest<HumanTrackedPlugin>;

TEST_F(TrackingTest, nearest_is_tracked_until_gone_and_who_comes_back_is_new)
{
    call("KRGazeAnalysis", "subscribe", "test");
    make();
    follow("SameTrackedHuman DistanceOfTrackedHuman ZoneOfTrackedHuman");
    start();
    play(R"(enter [Anna, 3, 0]; wait 0 -> SameTrackedHuman=0 SameTrackedHuman=1 )"
         R"(DistanceOfTrackedHuman=3.0 ZoneOfTrackedHuman=3 )"
         R"(DistanceOfTrackedHuman=3.0 ZoneOfTrackedHuman=3;
            enter [Ben, 2, 0]; enter [Clara, 1, 0]; 'KRBasicAwareness/HumanTracked' -> 1;
            leave [Anna]; wait 1; leave [Ben]; wait 1.999999;
            'PeoplePerception/VisiblePeopleList' -> [3];
            'PeoplePerception/PeopleList' -> [1, 2, 3];
            'PeoplePerception/PopulationUpdated' -> [1, 2, 3];
            'KRBasicAwareness/HumanTracked' -> 1; wait 0.000001;
            'KRBasicAwareness/HumanTracked' -> 3;
            'PeoplePerception/Person/1/Distance' -> none;
            'PeoplePerception/Person/1/EngagementZone' -> none;
            'PeoplePerception/Person/1/IsLookingAtRobot' -> none;
            enter [Anna, 1, 0]; 'PeoplePerception/PeopleList' -> [2, 3, 4];
            leave [Clara]; enter [Clara, 1, 0]; wait 5; 'KRBasicAwareness/HumanTracked' -> 3;
            KRBasicAwareness.stopAwareness;  'KRBasicAwareness/HumanTracked' -> -1;
            KRGazeAnalysis.unsubscribe [test];    'PeoplePerception/PeopleList' -> [3, 4])");
    stop();
    EXPECT_EQ(data(kPeople + "PeopleList"), "[]");
}

TEST_F(TrackingTest, crowd_that_comes_and_goes_takes_no_more_ids_than_there_are)
{
    call("KRPeoplePerception", "setTimeBeforePersonDisappears", 3600);
    for (int i = 0; i < 300; ++i) {
        world("enter", std::to_string(i), 1, 0);
        world("leave", std::to_string(i));
    }
    EXPECT_EQ(platform.memory().getData(kPeople + "PeopleList").getSize(), 200U);
    play("wait 3600; 'PeoplePerception/PeopleList' -> []");
}

}  // namespace KR
