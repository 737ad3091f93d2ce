#include <cmath>
#include <limits>

#include "plugins/builtin/PerceptionHeavyPlugin.h"
#include "tests/plugins/SenseTest.h"

namespace KR {
using List = KRValue::Array;

const std::string kTag = "LaunchpadPluginPerceptionHeavy/";

struct PerceptionHeavyPluginTest : SenseTest<PerceptionHeavyPlugin> {
    FakeService preferences{platform, "KRPreferenceManager", "getValue/1/1"};
    FakeService people{platform, "KRPeoplePerception",
                       "subscribe/1 setMaximumDetectionRange/1 getTimeBeforePersonDisappears"};
    FakeService zones{
        platform, "KREngagementZones",
        "subscribe/1 setFirstLimitDistance/1 setSecondLimitDistance/1 setLimitAngle/1"};
    FakeService gaze{platform, "KRGazeAnalysis", "subscribe/1"};
    FakeService movement{platform, "KRMovementDetection", "subscribe/1"};

    void SetUp() override
    {
        make();
        follow(
            "WavingDetection PeopleNotSeen NumPeopleZone1 NumPeopleZone2 NumPeopleZone3 "
            "NoPeopleInZones NumMotionZone1 NumMotionZone2 NumMotionZone3 NoMotionInZones");
    }
    std::string wave() { return write("WavingDetection/PersonWaving"); }
    std::string updateZones()
    {
        return inTurn({write("EngagementZones/PeopleInZonesUpdated"),
                       write("EngagementZones/MovementsInZonesUpdated")});
    }
};

TEST_F(PerceptionHeavyPluginTest, start_switches_services_on_and_publishes_and_stop_blanks)
{
    FakeService waving{platform, "KRWavingDetection", "subscribe/1"};
    make();
    const std::string once = "subscribe:\"_LaunchpadPluginPerceptionHeavy\"";
    const std::pair<const char*, const char*> pushed[] = {
        {" setMaximumDetectionRange:3.5",
         " setFirstLimitDistance:1.5 setSecondLimitDistance:2.5 setLimitAngle:90.0"},
        {" setMaximumDetectionRange:1.0",
         " setFirstLimitDistance:2.0 setSecondLimitDistance:3.0 setLimitAngle:4.0"}};
    for (const auto& [range, limits] : pushed) {
        EXPECT_EQ(updateZones(), "");
        EXPECT_EQ(inTurn({start(), start()}),
                  "PeopleNotSeen=true NumPeopleZone1=0 NumPeopleZone2=0 NumPeopleZone3=0 "
                  "NoPeopleInZones=true NumMotionZone1=0 NumMotionZone2=0 NumMotionZone3=0 "
                  "NoMotionInZones=true");
        EXPECT_EQ(stop(),
                  "WavingDetection=none NumPeopleZone1=none NumMotionZone1=none "
                  "NumPeopleZone2=none NumMotionZone2=none NumPeopleZone3=none "
                  "NumMotionZone3=none NoPeopleInZones=none NoMotionInZones=none "
                  "PeopleNotSeen=none");
        EXPECT_EQ(std::exchange(people.calls, ""), once + range);
        EXPECT_EQ(std::exchange(zones.calls, ""), once + limits);
        for (FakeService* service : {&movement, &gaze, &waving})
            EXPECT_EQ(std::exchange(service->calls, ""), once) << service->name;
        int value = 0;
        for (const char* key : {"PPMaxDist", "EZDist1", "EZDist2", "EZAngle"})
            preferences.set(
                "getValue:\"com.halvex.nimbra.PerceptionHeavyPlugin\":\"" + std::string(key) + "\"",
                std::to_string(++value));
    }
    plugin->xRaiseDefaultEvents();
    EXPECT_THAT(raised(), testing::StartsWith("WavingDetection=0 NumPeopleZone1=0 NumMotionZone1"));
    movement.die();
    EXPECT_THROW(start(), KRError);
}

TEST_F(PerceptionHeavyPluginTest, preferences_that_are_no_number_give_the_default)
{
    const std::string error =
        "error " + kTag + "xGetKRPreferenceValue: Error when getting preferences: ";
    constexpr float kMax = std::numeric_limits<float>::max();
    const std::vector<std::pair<KRValue, float>> rows = {
        {"2.25", 2.25F},   {2.25, 2.25F}, {"-INFINITY", -INFINITY},
        {"abc", 1.0F},     {" 2", 1.0F},  {List{2}, 1.0F},
        {KRValue(), 1.0F}, {7, 7.0F},     {-kMax, -kMax},
        {"1e39", 1.0F},    {-1e39, 1.0F}, {INFINITY, INFINITY}};
    for (const auto& [value, expected] : rows) {
        preferences.set("getValue", value);
        EXPECT_EQ(plugin->xGetKRPreferenceValue("PPMaxDist", 1.0F), expected) << value;
        expectComplaint(expected == 1.0F ? error : "none");
    }
    preferences.set("getValue", "NAN");
    zones.fail("setLimitAngle");
    start();
    EXPECT_THAT(people.calls, testing::EndsWith("setMaximumDetectionRange:nan"));
    expectComplaint("error " + kTag +
                    "_startPlugin: Fail to update parameters with error: KREngagementZ");
    EXPECT_TRUE(plugin->isPluginRunning());
}

TEST_F(PerceptionHeavyPluginTest, wave_lasts_until_its_person_would_have_disappeared)
{
    people.set("getTimeBeforePersonDisappears", 2);
    start();
    EXPECT_EQ(inTurn({wave(), after(seconds(1))}), "WavingDetection=1");
    EXPECT_EQ(wave(), "WavingDetection=1");
    plugin->xWavingTimeout();  // of a wave before, which was on its way already
    EXPECT_EQ(justAfter(milliseconds(2600)), "WavingDetection=0");
    platform.log.clear();
    for (const KRValue& time : {KRValue(std::nan("")), KRValue(-3), KRValue(1e30), KRValue("2")}) {
        people.set("getTimeBeforePersonDisappears", time);
        EXPECT_EQ(inTurn({wave(), after(milliseconds(600))}), "WavingDetection=1 WavingDetection=0")
            << time;
        expectComplaint("warning " + kTag + "xCheckForWaving: No time of disappearance: ");
    }
    people.set("getTimeBeforePersonDisappears", 86400);
    EXPECT_EQ(inTurn({wave(), after(seconds(86400))}), "WavingDetection=1");
    EXPECT_EQ(after(seconds(1)), "WavingDetection=0");
    wave();
    stop();
    EXPECT_EQ(after(seconds(100'000)), "");
    start();
    EXPECT_EQ(wave(), "WavingDetection=1");
    plugin->exit();
    EXPECT_EQ(after(seconds(100'000)), "");
}

TEST_F(PerceptionHeavyPluginTest, people_are_counted_and_raised_when_they_change)
{
    const std::string key = "EngagementZones/PeopleInZone";
    start();
    write(key + "1", List{18});
    write(key + "2", List{17, 18});
    write(key + "3", "wrong");
    EXPECT_EQ(updateZones(), "NumPeopleZone1=1 NumPeopleZone2=2 NoPeopleInZones=false");
    write(key + "2", 17);  // no list, so nobody
    EXPECT_EQ(updateZones(), "NumPeopleZone2=0");
    write(key + "1", List{});
    EXPECT_EQ(updateZones(), "NumPeopleZone1=0 NoPeopleInZones=true");
    for (const KRValue& nobody : {KRValue(List{}), KRValue(17), KRValue()}) {
        write("PeoplePerception/VisiblePeopleList", List{17});
        EXPECT_EQ(write("PeoplePerception/PopulationUpdated"), "PeopleNotSeen=false");
        write("PeoplePerception/VisiblePeopleList", nobody);
        EXPECT_EQ(write("PeoplePerception/PopulationUpdated"), "PeopleNotSeen=true") << nobody;
    }
}

TEST_F(PerceptionHeavyPluginTest, movements_are_counted_when_all_their_confidences_reach_the_limit)
{
    const auto blob3 = [](double a, double b, double c) {
        return List{0, List{0, 0, a, b}, List{0, c}};
    };
    const auto blob6 = [](double a, double b, double c) {
        return List{0, 0, List{0, c}, 0, List{a, b}, 0};
    };
    const double low = std::nextafter(0.1, 0.0);
    const std::string key = "EngagementZones/LastMovementsInZone";
    start();
    platform.log.clear();
    write(key + "1", List{0, List{blob3(0.1, 0.1, 0.1), blob3(low, 1, 1), blob3(1, low, 1),
                                  blob3(1, 1, low), List{0, 0, List{0, 0.1F}, 0}}});
    write(key + "2", List{});
    write(key + "3", List{0, List{blob6(0.1, 0.1, 0.1), blob6(low, 1, 1), blob6(1, low, 1),
                                  blob6(1, 1, low)}});
    EXPECT_EQ(updateZones(), "NumMotionZone1=2 NumMotionZone3=1 NoMotionInZones=false");
    expectComplaint("none");
    for (const KRValue& blob :
         {KRValue(1), KRValue(List{0, 0, 0}), KRValue(List{0, 0, List{1}}),
          KRValue(List{0, List{0, 0, 1}, List{0, 1}}), KRValue(List{0, 0, List{0, "1"}})}) {
        EXPECT_FALSE(plugin->xFilterMovementBlob(blob)) << blob;
        expectComplaint("error " + kTag + "xFilterMovementBlob: Error filtering movement blob: ");
    }
    write(key + "1", List{0, "wrong"});
    write(key + "3", List{0});
    EXPECT_EQ(updateZones(), "NumMotionZone1=0 NumMotionZone3=0 NoMotionInZones=true");
}

}  // namespace KR
