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
    double inertial(const std::string& axis)
    {
        const auto key = "Device/SubDeviceList/InertialSensor/" + axis + "/Sensor/Value";
        return platform.memory().getData(key).toFloat();
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
    const struct {
        const char* posture;
        double speed;
        int time;  ///< in seconds, from standing
        const char* family;
        long ahead;  ///< what is then felt, mm/s²
    } rows[] = {{"Sit", 0.5, 6, "Sitting", 0},        {"SitRelax", 1, 3, "Sitting", 0},
                {"Crouch", 1, 2, "Crouching", 0},     {"LyingBack", 1, 4, "LyingBack", 9807},
                {"StandZero", 1, 1, "Standing", 0},   {"LyingBelly", 1, 4, "LyingBelly", -9807},
                {"StandInit", 0.1, 10, "Standing", 0}};
    for (const auto& row : rows) {
        go(row.posture, row.speed);
        EXPECT_EQ(after(seconds(row.time) - kMoment), "Posture='Unknown' PostureFamily='Unknown'");
        EXPECT_EQ(after(kMoment),
                  std::string("Posture='") + row.posture + "' PostureFamily='" + row.family + "'");
        EXPECT_EQ(std::lround(inertial("AccX")), row.ahead) << row.posture;
        go("Stand", 1);
        platform.advance(seconds(10));
        raised();
    }
    go("Sit", 1);
    platform.advance(seconds(10));
    raised();
    go("Stand", 1);
    go("Crouch", 1);  // thinks better of it
    EXPECT_EQ(after(seconds(10)),
              "Posture='Unknown' PostureFamily='Unknown' Posture='Crouch' "
              "PostureFamily='Crouching'");
    go("Crouch", 1);
    EXPECT_EQ(after(seconds(10)), "");
    for (const std::string wrong : {"Stand, 0", "Sit, 1.01", "Crouch, .nan", "Fly, 1"})
        EXPECT_EQ(ask("KRRobotPosture.goToPosture [" + wrong + "]"), "refused") << wrong;
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

TEST_F(BodyTest, push_is_recovered_from_on_the_feet_and_a_fall_ends_on_the_ground)
{
    const auto count = [this](const char* key) {
        return platform.memory().getEventHistory(key).getSize();
    };
    const auto pushes = [&] {
        world("push", "front");
        return count("KRMotion/Safety/PushRecovery");
    };
    std::size_t expected = 0;
    for (const auto& [posture, recovers] : std::vector<std::pair<std::string, bool>>{
             {"Stand", true}, {"Crouch", true}, {"Sit", false}, {"LyingBack", false}}) {
        call("KRRobotPosture", "goToPosture", posture, 1.0);
        platform.advance(seconds(5));
        EXPECT_EQ(pushes(), expected += recovers ? 1 : 0) << posture;
    }
    world("lift", true);
    EXPECT_EQ(pushes(), expected);
    const double still = inertial("AccZ");
    platform.advance(Body::kMotionCycle - kMoment);
    EXPECT_EQ(inertial("AccZ"), still);
    platform.advance(kMoment);
    EXPECT_NE(inertial("AccZ"), still);
    world("fall", "front");  // out of the hands
    EXPECT_EQ(data("PostureChanged"), "\"Unknown\"");
    EXPECT_EQ(pushes(), expected);
    for (const char* posture : {"Stand", "LyingBack"})
        EXPECT_THROW(call("KRRobotPosture", "goToPosture", posture, 1.0), KRError);
    EXPECT_THROW(world("fall", "back"), KRError);
    platform.advance(milliseconds(800) - kMoment);
    EXPECT_EQ(count("robotHasFallen"), 0U);
    platform.advance(kMoment);
    EXPECT_EQ(count("robotHasFallen"), 1U);
    EXPECT_EQ(data("PostureChanged") + data("PostureFamilyChanged"),
              "\"LyingBelly\"\"LyingBelly\"");
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
    motion.push(BodyMotion::Side::front, milliseconds(1000));  // so to the back
    feels(motion, 1000, {1666.7, 0, g, 0, 0});
    motion.push(BodyMotion::Side::back, milliseconds(1000));
    feels(motion, 1000, {-1666.7, 0, g, 0, 0});
    motion.push(BodyMotion::Side::right, milliseconds(1000));
    feels(motion, 1000, {0, -1666.7, g, 0, 0});
    motion.push(BodyMotion::Side::left, milliseconds(1000));
    feels(motion, 1000, {0, 1666.7, g, 0, 0});
    feels(motion, 1300, {0, 613.1, g, 0, 0});  // 1/e of it
    feels(motion, 3500, {0, 0, g, 0, 0});
    motion.lift(true, milliseconds(4000));
    feels(motion, 4000, {0, 0, g, 300, 0});
    feels(motion, 4200, {0, 0, g - 1233.7, 0, 0});
    motion.lift(true, milliseconds(4250));  // it is already
    feels(motion, 4600, {0, 0, g + 1233.7, 0, 0});
    motion.lift(false, milliseconds(4700));
    motion.tip(BodyMotion::kOnBack, milliseconds(800), true, milliseconds(5000));
    // A quarter of the way, with half of the final rate: 22.5°, and 2 · 90° · 0.5 / 0.8 s.
    feels(motion, 5400, {g * 0.38268, 0, g * 0.92388, 0, -1963.5});
    feels(motion, 5800, {g, 0, 0, 0, 0});
    EXPECT_TRUE(motion.at(milliseconds(6299)).feetOnGround);
    EXPECT_FALSE(motion.at(milliseconds(6300)).feetOnGround);
    motion.tip(BodyMotion::kOnBelly, milliseconds(4000), false, milliseconds(7000));
    feels(motion, 8000, {g * 0.70711, 0, g * 0.70711, 0, 785.4});  // evenly, from where it was
    motion.tip(BodyMotion::kOnBelly, milliseconds(3000), false, milliseconds(8000));
    feels(motion, 9000, {0, 0, g, 0, 785.4});
    feels(motion, 11000, {-g, 0, 0, 0, 0});
}

TEST_F(BodyTest, joints_warm_and_cool_exponentially_unless_held_still)
{
    const milliseconds half(415'888);  // ln 2 of the time constant
    const auto pass = [&] { platform.advance(half + Body::kHeatCycle); };
    world("use", "LArm", 1.0);
    pass();
    EXPECT_EQ(temperature("LElbowRoll"), "60");  // half-way from 25 to 95
    EXPECT_EQ(temperature("RElbowRoll"), "25");
    robot.body().holdStill("Legs", true);
    robot.body().holdStill("Arms", true);
    robot.body().holdStill("Legs", false);
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
    play("KRWorld.heat [HeadYaw, 105]");
    platform.advance(seconds(5) - kMoment);
    EXPECT_EQ(temperature("HeadYaw"), "105");
    platform.advance(kMoment);
    EXPECT_EQ(temperature("HeadYaw"), "104");
    play("KRWorld.heat [Legs, -20]; KRWorld.use [Legs, 0]; KRWorld.use [Legs, 1]");
    EXPECT_EQ(temperature("LKneePitch") + temperature("RKneePitch"), "-20-20");
    play("KRWorld.heat [Legs, 150]");
    EXPECT_EQ(temperature("RAnkleRoll"), "150");
    for (const std::string deed :
         {"heat [Legs, -20.1]", "heat [Legs, 150.1]", "heat [Legs, .nan]", "use [Legs, -0.1]",
          "use [Legs, 1.1]", "use [Legs, .nan]", "heat [Tail, 30]", "push [above]", "fall [left]"})
        EXPECT_EQ(ask("KRWorld." + deed), "refused") << deed;
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
