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
    /// The zone that a person is counted in, 0 for none.
    int zoneOfPeople()
    {
        for (int zone = 1; zone <= 3; ++zone) {
            if (data("EngagementZones/PeopleInZone" + std::to_string(zone)) != "[]")
                return zone;
        }
        return 0;
    }
};

TEST_F(SensesTest, people_are_seen_and_put_into_zones_by_distance_and_direction)
{
    struct Row {
        const char* what;
        Place place;
        int zone;  ///< 0 for not seen
    };
    for (const Row& row : std::vector<Row>{{"at the robot", {0, 0}, 1},
                                           {"on the first limit", {1.5, 0}, 1},
                                           {"beyond it", {1.501, 0}, 2},
                                           {"there with another zero", {-0.0, 0}, 1},
                                           {"on the second limit", {2.5, 0}, 2},
                                           {"beyond it", {2.501, 0}, 3},
                                           {"at the edge of the angle", {1, -1}, 1},
                                           {"outside of it", {1, 1.01}, 3},
                                           {"at the side", {0, -1}, 3},
                                           {"out of it to the right", {1, -1.01}, 3},
                                           {"behind", {-0.01, 1}, 0},
                                           {"behind, to the right", {-0.01, -1}, 0},
                                           {"on the limit of detection", {3.5, 0}, 3},
                                           {"beyond it", {3.501, 0}, 0}}) {
        world("enter", "Anna", row.place.x, row.place.y);
        EXPECT_EQ(zoneOfPeople(), row.zone) << row.what;
        EXPECT_EQ(data(kPeople + "VisiblePeopleList") == "[]", row.zone == 0) << row.what;
        world("leave", "Anna");
        platform.advance(seconds(3));
    }
    world("enter", "Anna", 2.0, 0.0);
    call("KREngagementZones", "setFirstLimitDistance", 2);
    EXPECT_EQ(zoneOfPeople(), 1);
    call("KREngagementZones", "setLimitAngle", 0);
    call("KREngagementZones", "setSecondLimitDistance", 1);
    EXPECT_EQ(zoneOfPeople(), 1);
    call("KRPeoplePerception", "setMaximumDetectionRange", 1.9);
    EXPECT_EQ(data(kPeople + "VisiblePeopleList"), "[]");
}

TEST_F(SensesTest, people_walk_evenly_and_a_world_at_rest_costs_nothing)
{
    world("enter", "Anna", 5, 0);
    world("walk", "Anna", List{List{3, 0}, List{3, 0}, List{3, 2}}, 2.0);
    platform.advance(seconds(1));
    EXPECT_EQ(data(kPeople + "Person/1/Distance"), "3.0");
    platform.advance(milliseconds(400));
    EXPECT_EQ(data(kPeople + "Person/1/Distance"), KRValue(std::hypot(3, 0.8)).toDisplayString());
    const auto zone = platform.memory().getData("EngagementZones/LastMovementsInZone3");
    EXPECT_EQ(zone[0], KRValue(List{1728000001, 400'000}));
    // [direction, 0], [left, bottom, width, height], [distance, certainty] of half by 1.7 metres
    const double there = std::hypot(3, 0.8);
    const double width = 2 * std::atan(0.25 / there);
    const double height = 2 * std::atan(0.85 / there);
    const double left = std::atan2(0.8, 3) - width / 2;
    std::vector<double> told;
    for (const auto& part : zone[1][0].toArray()) {
        for (const auto& number : part.toArray())
            told.push_back(number.toFloat());
    }
    EXPECT_THAT(told,
                testing::Pointwise(testing::DoubleNear(1e-9),
                                   std::vector<double>{left + width / 2, 0.0, left, -height / 2,
                                                       width, height, there, 1.0}));
    world("walk", "Anna", List{List{1, 0}}, 0.5);  // from where she is
    platform.advance(seconds(60));
    EXPECT_EQ(data(kPeople + "Person/1/Distance"), "1.0");
    EXPECT_EQ(data("EngagementZones/LastMovementsInZone1"), "[]");
    plugin.reset();
    EXPECT_EQ(platform.clock->untilNextTask(), std::nullopt);
}

TEST_F(SensesTest, people_look_at_the_robot_within_the_tolerance_of_their_gaze)
{
    const auto looks = [this] { return data(kPeople + "Person/1/IsLookingAtRobot"); };
    const auto at = [](double degrees) {
        const double radians = (180 + degrees) * 3.14159265358979 / 180;
        return List{2 + std::cos(radians), std::sin(radians)};
    };
    world("enter", "Anna", 2, 0);
    EXPECT_EQ(looks(), "1");  // faces the robot
    world("walk", "Anna", List{List{2, 1}, List{2, 0}}, 10.0);
    platform.advance(seconds(1));
    EXPECT_EQ(looks(), "0");
    world("look", "Anna", "robot");
    EXPECT_EQ(looks(), "1");
    for (const double degrees : {-19.9, 19.9, -20.1, 20.1, 180.0}) {
        world("look", "Anna", at(degrees));
        EXPECT_EQ(looks(), std::abs(degrees) < 20 ? "1" : "0") << degrees;
    }
    world("look", "Anna", "ahead");
    EXPECT_EQ(looks(), "0");
    call("KRGazeAnalysis", "unsubscribe", "_LaunchpadPluginPerceptionHeavy");
    EXPECT_EQ(looks(), "none");
}

TEST_F(SensesTest, waves_and_movements_reach_the_plugin_and_end)
{
    world("enter", "Anna", 2, 0);
    EXPECT_EQ(after(seconds(0)), "PeopleNotSeen=false NumPeopleZone2=1");
    world("enter", "Ben", 3, 0);
    EXPECT_EQ(after(seconds(0)), "NumPeopleZone3=1");
    world("wave", "Ben", 1.5);
    EXPECT_EQ(after(seconds(0)), "NumMotionZone3=1 WavingDetection=1");
    EXPECT_EQ(data("WavingDetection/PersonWaving"), "2");
    EXPECT_EQ(after(seconds(1) - kMoment), "");
    EXPECT_EQ(after(kMoment), "WavingDetection=1");
    EXPECT_EQ(after(milliseconds(600)), "NumMotionZone3=0");
    world("wave", "Ben", 0.1);  // again, within a second
    EXPECT_EQ(after(milliseconds(200)), "NumMotionZone3=1 WavingDetection=1 NumMotionZone3=0");
    EXPECT_EQ(after(seconds(4)), "WavingDetection=0");
    world("leave", "Ben");
    EXPECT_EQ(after(seconds(5)), "NumPeopleZone3=0");
    world("move", 1, 0, 2.0, 0.5);
    world("move", 0.0, 3.0, 4.0, 0.31);  // 0.103 rad wide
    world("move", 3, 0, 4.0, 0.29);      // too small to count
    world("move", -2, 0, 4.0, 1.0);      // behind
    EXPECT_EQ(after(seconds(2)), "NumMotionZone1=1 NumMotionZone3=1 NumMotionZone1=0");
    EXPECT_EQ(after(seconds(5)), "NumMotionZone3=0");
    call("KRWavingDetection", "unsubscribe", "_LaunchpadPluginPerceptionHeavy");
    call("KRMovementDetection", "unsubscribe", "_LaunchpadPluginPerceptionHeavy");
    world("wave", "Anna", 1.5);
    EXPECT_EQ(after(seconds(3)), "");
}

TEST_F(SensesTest, extractor_works_for_its_own_subscribers_until_the_last_is_gone)
{
    plugin.reset();
    call("KRBasicAwareness", "stopAwareness");
    world("enter", "Anna", 1, 0);
    world("wave", "Anna", 3600);
    const std::vector<std::string> services = {"KRPeoplePerception", "KREngagementZones",
                                               "KRMovementDetection", "KRWavingDetection",
                                               "KRGazeAnalysis"};
    const auto working = [&] {
        std::string text;
        for (const auto& name : services)
            text += platform.broker->getProxy(name)->call<bool>("isProcessing") ? "x" : "-";
        return text + " " + data(kPeople + "VisiblePeopleList") +
               data("EngagementZones/PeopleInZone1");
    };
    for (const auto& service : services)
        call(service, "unsubscribe", "_LaunchpadPluginPerceptionHeavy");
    EXPECT_EQ(working(), "----- [][]");
    const std::vector<std::string> expected = {"x---- [2][]", "xx--- [3][3]", "--x-- [][]",
                                               "x--x- [4][]", "x---x [5][]"};
    for (std::size_t i = 0; i < services.size(); ++i) {
        for (const char* subscriber : {"a", "b", "b"})
            call(services[i], "subscribe", subscriber);
        call(services[i], "unsubscribe", "a");
        call(services[i], "unsubscribe", "c");
        EXPECT_EQ(working(), expected[i]);
        EXPECT_EQ(data("EngagementZones/LastMovementsInZone1"), "[]");
        call(services[i], "unsubscribe", "b");
        EXPECT_EQ(working(), "----- [][]");
    }
}

TEST_F(SensesTest, nonsense_is_refused_and_changes_nothing)
{
    // The last values that are accepted.
    const std::string longest(100, 'x');
    world("walk", (world("enter", longest, 100.0, -100.0), longest), List(1000, List{1, 1}), 12.0);
    play(
        "KRWorld.enter [Ben, -100, 100]; KRWorld.walk [Ben, [[100, -100]], 0.001];"
        "KRWorld.wave [Ben, 86400]; KRWorld.move [-100, 100, 86400, 100]; KRWorld.leave [Ben]");
    for (int i = 1; i < 100; ++i)
        world("move", -1, 0, 1, 1);
    play("KRWorld.move [-1, 0, 1, 1] -> refused; wait 1; KRWorld.move [-1, 0, 1, 1]");
    world("leave", longest);
    world("enter", "Anna", 2, 0);
    after(seconds(0));
    for (const std::string deed : {"enter [Anna, 1, 1]",
                                   "enter [\"\", 1, 1]",
                                   "enter [Ben, .nan, 1]",
                                   "enter [Ben, 1, -100.1]",
                                   "walk [Ben, [[1, 1]], 1]",
                                   "walk [Anna, [], 1]",
                                   "walk [Anna, [1, 1], 1]",
                                   "walk [Anna, [[1, 1], [1, .nan]], 1]",
                                   "walk [Anna, [[1, 1]], 0.0009]",
                                   "walk [Anna, [[1, 1]], 12.1]",
                                   "walk [Anna, [[1, 1]], .nan]",
                                   "look [Anna, up]",
                                   "look [Anna, [1, .inf]]",
                                   "wave [Anna, 0]",
                                   "wave [Anna, 86400.1]",
                                   "wave [Anna, .nan]",
                                   "leave [Ben]",
                                   "move [1, 1, 1, 0]",
                                   "move [1, 1, 1, 100.1]",
                                   "move [1, 1, 86400.1, 1]"})
        EXPECT_EQ(ask("KRWorld." + deed), "refused") << deed;
    EXPECT_THROW(world("enter", longest + "x", 1, 1), KRError);
    EXPECT_THROW(world("walk", "Anna", List(1001, List{1, 1}), 1.0), KRError);
    EXPECT_EQ(after(seconds(10)), "");
    for (int i = 1; i < 100; ++i)
        world("enter", std::to_string(i), 1, 1);
    EXPECT_THROW(world("enter", "Ben", 1, 1), KRError);
}

struct TrackingTest : RobotTest<HumanTrackedPlugin> {
    std::string tracked() { return data("KRBasicAwareness/HumanTracked"); }
};

TEST_F(TrackingTest, nearest_is_tracked_until_gone_and_who_comes_back_is_new)
{
    call("KRGazeAnalysis", "subscribe", "test");
    make();
    follow("SameTrackedHuman DistanceOfTrackedHuman ZoneOfTrackedHuman");
    start();
    world("enter", "Anna", 3, 0);
    EXPECT_EQ(after(seconds(0)),
              "SameTrackedHuman=0 SameTrackedHuman=1 DistanceOfTrackedHuman=3.0 "
              "ZoneOfTrackedHuman=3 DistanceOfTrackedHuman=3.0 ZoneOfTrackedHuman=3");
    world("enter", "Ben", 2, 0);
    world("enter", "Clara", 1, 0);
    EXPECT_EQ(tracked(), "1");
    world("leave", "Anna");
    platform.advance(seconds(3) - kMoment);
    EXPECT_EQ(data(kPeople + "VisiblePeopleList"), "[2, 3]");
    for (const char* all : {"PeopleList", "PopulationUpdated"})
        EXPECT_EQ(data(kPeople + all), "[1, 2, 3]") << all;
    EXPECT_EQ(tracked(), "1");
    platform.advance(kMoment);
    EXPECT_EQ(tracked(), "3");
    for (const char* datum : {"Distance", "EngagementZone", "IsLookingAtRobot"})
        EXPECT_EQ(data(kPeople + "Person/1/" + datum), "none") << datum;
    world("enter", "Anna", 1, 0);
    EXPECT_EQ(data(kPeople + "PeopleList"), "[2, 3, 4]");
    world("leave", "Clara");
    world("enter", "Clara", 1, 0);  // blinked
    platform.advance(seconds(5));
    EXPECT_EQ(tracked(), "3");
    call("KRBasicAwareness", "stopAwareness");
    EXPECT_EQ(tracked(), "-1");
    EXPECT_EQ(data(kPeople + "PeopleList"), "[2, 3, 4]");
    call("KRGazeAnalysis", "unsubscribe", "test");
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
    platform.advance(seconds(3600));
    EXPECT_EQ(data(kPeople + "PeopleList"), "[]");
}

}  // namespace KR
