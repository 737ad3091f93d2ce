#include <cmath>

#include "plugins/builtin/PosturePlugin.h"
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
    std::size_t count(const std::string& key)
    {
        return platform.memory().getEventHistory(key).getSize();
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
    const auto go = [this](const std::string& posture, double speed) {
        call("KRRobotPosture", "goToPosture", posture, speed);
    };
    const struct {
        std::string posture;
        double speed;
        int time;  ///< in seconds, from standing
        std::string family;
        long ahead;  ///< what is then felt, mm/s²
    } rows[] = {{"Sit", 0.5, 6, "Sitting", 0},        {"SitRelax", 1, 3, "Sitting", 0},
                {"Crouch", 1, 2, "Crouching", 0},     {"LyingBack", 1, 4, "LyingBack", 9807},
                {"StandZero", 1, 1, "Standing", 0},   {"LyingBelly", 1, 4, "LyingBelly", -9807},
                {"StandInit", 0.1, 10, "Standing", 0}};
    for (const auto& row : rows) {
        go(row.posture, row.speed);
        EXPECT_EQ(after(seconds(row.time) - kMoment), "Posture='Unknown' PostureFamily='Unknown'");
        EXPECT_EQ(after(kMoment),
                  "Posture='" + row.posture + "' PostureFamily='" + row.family + "'");
        EXPECT_EQ(std::lround(inertial("AccX")), row.ahead) << row.posture;
        go("Stand", 1);
        after(seconds(10));
    }
    go("Sit", 1);
    go("Crouch", 1);  // thinks better of it
    play(
        R"(wait 10 -> Posture='Unknown' PostureFamily='Unknown' Posture='Crouch' )"
        R"(PostureFamily='Crouching'; KRRobotPosture.goToPosture [Crouch, 1]; wait 10 -> nothing)");
    expectRefused(R"(KRRobotPosture.goToPosture [Stand, 0]; KRRobotPosture.goToPosture [Sit, 1.01];
                     KRRobotPosture.goToPosture [Fly, 1]; KRRobotPosture.goToPosture [Crouch, .nan])");
}

TEST_F(BodyTest, is_lifted_in_hands_and_neither_by_a_push_nor_a_fall)
{
    for (const int phase : {0, 130, 199}) {  // of the check, in milliseconds
        SCOPED_TRACE(phase);
        startLongAfter("Lifted");
        after(seconds(20) + milliseconds(phase));
        play(R"(lift [true]; wait 1 -> Lifted=true; wait 100 -> nothing; push [left]; lift [false];
                wait 2.8 -> nothing; wait 2 -> Lifted=false;
                push [back]; wait 1 -> nothing;
                fall [back]; wait 3; 'leftFootContact' -> 0.0;
                push [back]; fall [front] -> refused; KRRobotPosture.goToPosture [Stand, 1];
                wait 60 -> nothing;
                'rightFootContact' -> 1.0)");
    }
    EXPECT_EQ(count("robotHasFallen"), 3U);
    EXPECT_EQ(count("KRMotion/Safety/PushRecovery"), 3U);
    plugin.reset();
    EXPECT_EQ(platform.clock->untilNextTask(), std::nullopt);
}

TEST_F(BodyTest, push_is_recovered_from_on_the_feet_and_a_fall_ends_on_the_ground)
{
    const auto pushes = [&] {
        world("push", "front");
        return count("KRMotion/Safety/PushRecovery");
    };
    std::size_t expected = 0;
    for (const std::string posture : {"Stand", "Crouch", "Sit", "LyingBack"}) {
        play("KRRobotPosture.goToPosture [" + posture + ", 1]; wait 5");
        expected += posture == "Stand" || posture == "Crouch" ? 1 : 0;
        EXPECT_EQ(pushes(), expected) << posture;
    }
    world("lift", true);
    EXPECT_EQ(pushes(), expected);
    const double still = inertial("AccZ");
    platform.advance(Body::kMotionCycle - kMoment);
    EXPECT_EQ(inertial("AccZ"), still);
    platform.advance(kMoment);
    EXPECT_NE(inertial("AccZ"), still);
    play("fall [front]; 'PostureChanged' -> \"Unknown\"");  // out of the hands
    EXPECT_EQ(pushes(), expected);
    expectRefused(R"(KRRobotPosture.goToPosture [Stand, 1]; fall [back];
                     KRRobotPosture.goToPosture [LyingBack, 1])");
    platform.advance(milliseconds(800) - kMoment);
    EXPECT_EQ(count("robotHasFallen"), 0U);
    platform.advance(kMoment);
    EXPECT_EQ(count("robotHasFallen"), 1U);
    play(R"('PostureChanged' -> "LyingBelly"; 'PostureFamilyChanged' -> "LyingBelly")");
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
    robot->body().holdStill("Legs", true);
    robot->body().holdStill("Arms", true);
    robot->body().holdStill("Legs", false);
    pass();
    pass();
    EXPECT_EQ(temperature("LElbowRoll"), "34");  // three quarters of the way back
    robot->body().holdStill("Arms", false);
    play("wait 6000; heat [HeadYaw, 105]");
    EXPECT_EQ(temperature("LElbowRoll"), "95");
    pass();
    EXPECT_EQ(temperature("HeadYaw"), "65");
    play("wait 10800");
    EXPECT_EQ(temperature("HeadYaw"), "25");
    EXPECT_EQ(platform.clock->untilNextTask(), std::nullopt);
    const std::string head = "'Device/SubDeviceList/HeadYaw/Temperature/Sensor/Value' -> ";
    play("heat [HeadYaw, 105]; wait 4.999999; " + head + "105; wait 0.000001;" + head +
         "104; heat [HeadYaw, 150]; " + head +
         "150; heat [Legs, -20]; use [Legs, 0]; use [Legs, 1]");
    EXPECT_EQ(temperature("LKneePitch") + temperature("RKneePitch"), "-20-20");
    expectRefused(R"(heat [Legs, -20.1]; heat [Legs, 150.1]; heat [Legs, .nan]; heat [Tail, 30];
                     use [Legs, -0.1]; use [Legs, 1.1]; use [Legs, .nan];
                     push [above]; fall [left])");
}

}  // namespace KR
