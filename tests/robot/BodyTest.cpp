#include <cmath>

#include "plugins/builtin/PosturePlugin.h"
#include "plugins/builtin/TemperaturePlugin.h"
#include "robot/Body.h"
#include "robot/BodyMotion.h"
#include "tests/robot/RobotTest.h"

namespace KR {

struct BodyTest : RobotTest<PosturePlugin> {
    /// The process remembers when a robot was last moved; this is long afterwards.
    void startLongAfter(const std::string& data)
    {
        static int time = 0;
        time += 1000;
        life.answers["getLifeTime"] = [this, offset = time] {
            return vo::toValue(platform.memory().lifeTime() + offset);
        };
        make();
        follow(data);
        start();
    }
    std::string temperature(const std::string& joint)
    {
        return data("Device/SubDeviceList/" + joint + "/Temperature/Sensor/Value");
    }

    FakeService life{platform, "KRNimbra", "getLifeTime"};
};

TEST_F(BodyTest, posture_takes_time_to_change)
{
    startLongAfter("Posture PostureFamily");
    const auto go = [this](const char* posture, double speed) {
        call("KRRobotPosture", "goToPosture", posture, speed);
    };
    go("Sit", 0.5);  // two levels down, at half speed
    EXPECT_EQ(after(seconds(6) - kMoment), "Posture='Unknown' PostureFamily='Unknown'");
    EXPECT_EQ(after(kMoment), "Posture='Sit' PostureFamily='Sitting'");
    go("Stand", 1);
    go("Crouch", 1);  // thinks better of it
    EXPECT_EQ(after(seconds(10)),
              "Posture='Unknown' PostureFamily='Unknown' Posture='Crouch' "
              "PostureFamily='Crouching'");
    go("Crouch", 1);
    EXPECT_EQ(after(seconds(10)), "");
    for (const auto& [posture, speed] : std::map<std::string, double>{
             {"Stand", 0}, {"Sit", 1.01}, {"Crouch", std::nan("")}, {"Fly", 1}})
        EXPECT_THROW(go(posture.c_str(), speed), KRError) << posture;
}

TEST_F(BodyTest, is_lifted_in_hands_and_neither_by_a_push_nor_a_fall)
{
    for (const int phase : {0, 50, 130, 199}) {  // of the check, in milliseconds
        SCOPED_TRACE(phase);
        startLongAfter("Lifted RobotPushedRecently RobotFellRecently");
        platform.advance(seconds(20) + milliseconds(phase));
        raised();
        world("lift", true);
        EXPECT_EQ(after(seconds(1)), "Lifted=true");
        EXPECT_EQ(after(seconds(100)), "");
        world("push", "left");
        world("lift", false);
        EXPECT_EQ(after(seconds(3) - milliseconds(200)), "");
        EXPECT_EQ(after(seconds(2)), "Lifted=false");
        world("push", "back");
        EXPECT_EQ(after(seconds(1)).find("Lifted"), std::string::npos);
        world("fall", "back");
        platform.advance(seconds(3));
        EXPECT_EQ(data("leftFootContact"), "0.0");
        world("push", "back");  // lies, and has nothing to recover from
        EXPECT_THROW(world("fall", "front"), KRError);
        call("KRRobotPosture", "goToPosture", "Stand", 1.0);
        EXPECT_EQ(after(seconds(60)).find("Lifted"), std::string::npos);
        EXPECT_EQ(data("rightFootContact"), "1.0");
    }
    EXPECT_EQ(platform.memory().getEventHistory("robotHasFallen").getSize(), 4U);
    EXPECT_EQ(platform.memory().getEventHistory("KRMotion/Safety/PushRecovery").getSize(), 4U);
    plugin.reset();
    EXPECT_EQ(platform.clock->untilNextTask(), std::nullopt);
}

TEST(BodyMotionTest, feels_what_the_formulas_say)
{
    constexpr double g = 9806.65;
    using std::chrono::milliseconds;
    const auto feels = [](const BodyMotion& motion, int ms, std::array<double, 5> expected) {
        const BodyReadings felt = motion.at(milliseconds(ms));
        for (std::size_t i = 0; i < 5; ++i)
            EXPECT_NEAR(i < 3 ? felt.acceleration[i] : felt.rotation[i - 3], expected[i], 0.5)
                << ms << " ms, " << i;
    };
    BodyMotion motion;
    feels(motion, 0, {0, 0, g, 0, 0});
    motion.push(BodyMotion::Side::left, milliseconds(1000));  // so to the right
    feels(motion, 1000, {0, 1666.7, g, 0, 0});
    feels(motion, 1300, {0, 613.1, g, 0, 0});  // 1/e of it
    feels(motion, 3500, {0, 0, g, 0, 0});
    motion.lift(true, milliseconds(4000));
    feels(motion, 4000, {0, 0, g, 300, 0});
    feels(motion, 4200, {0, 0, g - 1233.7, 0, 0});
    motion.lift(false, milliseconds(4300));
    motion.tip(BodyMotion::kOnBack, milliseconds(800), true, milliseconds(5000));
    // A quarter of the way, with half of the final rate: 22.5°, and 2 · 90° · 0.5 / 0.8 s.
    feels(motion, 5400, {g * 0.38268, 0, g * 0.92388, 0, -1963.5});
    feels(motion, 5800, {g, 0, 0, 0, 0});
    EXPECT_TRUE(motion.at(milliseconds(6299)).feetOnGround);
    EXPECT_FALSE(motion.at(milliseconds(6300)).feetOnGround);
}

TEST_F(BodyTest, joints_warm_and_cool_exponentially_unless_held_still)
{
    const milliseconds half(415'888);  // ln 2 of the time constant
    const auto pass = [&] { platform.advance(half + Body::kHeatCycle); };
    world("use", "LArm", 1.0);
    pass();
    EXPECT_EQ(temperature("LElbowRoll"), "60");  // half-way from 25 to 95
    EXPECT_EQ(temperature("RElbowRoll"), "25");
    robot.body().holdStill("Arms", true);
    pass();
    pass();
    EXPECT_EQ(temperature("LElbowRoll"), "34");  // three quarters of the way back
    robot.body().holdStill("Arms", false);
    platform.advance(seconds(6000));
    EXPECT_EQ(temperature("LElbowRoll"), "95");
    world("heat", "HeadYaw", 105);
    EXPECT_EQ(temperature("HeadYaw"), "105");
    pass();
    EXPECT_EQ(temperature("HeadYaw"), "65");
    platform.advance(std::chrono::hours(3));
    EXPECT_EQ(temperature("HeadYaw"), "25");
    EXPECT_EQ(platform.clock->untilNextTask(), std::nullopt);
    const double nan = std::nan("");
    EXPECT_THROW(world("heat", "Tail", 30), KRError);
    EXPECT_THROW(world("use", "Legs", 1.1), KRError);
    EXPECT_THROW(world("use", "Legs", nan), KRError);
    EXPECT_THROW(world("heat", "Legs", nan), KRError);
    EXPECT_THROW(world("push", "above"), KRError);
}

TEST_F(BodyTest, temperature_plugin_reads_every_joint)
{
    auto temperatures = KRModule::createModule<TemperaturePlugin>(platform.broker);
    world("heat", "RHipYawPitch", 100);  // it leaves that one out
    world("heat", "RAnkleRoll", 72);
    temperatures->startPlugin();
    platform.advance(seconds(1));
    EXPECT_EQ(data("Launchpad/HighestJoint"), "\"RAnkleRoll\"");
    EXPECT_EQ(data("Launchpad/TemperatureStatus"), "\"Hot\"");
}

}  // namespace KR
