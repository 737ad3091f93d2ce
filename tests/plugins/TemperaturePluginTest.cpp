#include <cmath>

#include "plugins/builtin/TemperaturePlugin.h"
#include "tests/plugins/SenseTest.h"

namespace KR {

struct TemperaturePluginTest : SenseTest<TemperaturePlugin> {
    FakeService motion{platform, "KRMotion", "getBodyNames/1"};
    const std::string kEmpty =
        "HighestTemperature=0 HighestJoint='None' TemperatureStatus='Unknown'";

    void SetUp() override
    {
        motion.set("getBodyNames", std::vector<std::string>{"Head", "RHipYawPitch", "Arm"});
        make();
        follow("HighestTemperature HighestJoint TemperatureStatus");
    }
    void heat(const std::string& joint, const KRValue& value)
    {
        write("Device/SubDeviceList/" + joint + "/Temperature/Sensor/Value", value);
    }
};

TEST_F(TemperaturePluginTest, publishes_the_first_of_the_hottest_joints_every_five_seconds)
{
    heat("Head", 30);
    heat("Arm", 30);
    heat("RHipYawPitch", 100);
    const std::string cold = "HighestTemperature=30 HighestJoint='Head' TemperatureStatus='Cold'";
    EXPECT_EQ(start(), kEmpty + " " + cold);
    EXPECT_EQ(inTurn({start(), after(seconds(5) - kMoment)}), "");
    EXPECT_EQ(after(kMoment), cold);  // unchanged, but raised
    EXPECT_EQ(inTurn({stop(), after(seconds(60))}), kEmpty);
    std::string all;
    for (const int degrees : {39, 40, 69, 70, 89, 90})
        all += plugin->xGetStatusTemperature(degrees) + " ";
    EXPECT_EQ(all, "Cold Warm Warm Hot Hot Critical ");
}

TEST_F(TemperaturePluginTest, readings_that_are_no_temperature_are_passed_over)
{
    start();
    for (const KRValue& reading : {KRValue(), KRValue("hot"), KRValue(std::nan("")),
                                   KRValue(INFINITY), KRValue(1e300), KRValue(-1)}) {
        heat("Head", reading);
        heat("Arm", KRValue());
        EXPECT_EQ(after(seconds(5)), "") << reading;
        heat("Arm", 0.9);
        EXPECT_THAT(after(seconds(5)),
                    testing::StartsWith("HighestTemperature=0 HighestJoint='Arm'"));
    }
}

TEST_F(TemperaturePluginTest, without_joint_names_it_starts_and_stops_with_empty_values)
{
    heat("Head", 50);
    motion.set("getBodyNames", 3);
    for (const std::string message : {"can't get body names: ", "error at initialisation. Got: "}) {
        make();
        expectComplaint("error LaunchpadPluginTemperature/TemperaturePlugin: " + message);
        EXPECT_EQ(inTurn({start(), after(seconds(5))}), kEmpty);
        EXPECT_EQ(stop(), kEmpty);
        motion.die();
    }
}

}  // namespace KR
