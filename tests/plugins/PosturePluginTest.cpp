#include <cmath>

#include "plugins/builtin/PosturePlugin.h"
#include "tests/plugins/SenseTest.h"

namespace KR {
const std::string kWarning = "warning LaunchpadPluginPosture/";

struct PosturePluginTest : SenseTest<PosturePlugin> {
    FakeService posture{platform, "KRRobotPosture", "getPosture getPostureFamily"};
    FakeService model{platform, "KRRobotModel", "_getRobotType"};
    FakeService life{platform, "KRNimbra", "getLifeTime"};
    int lifeOffset = 0;
    const FakeService::Answer lifeTime = [this] {
        return vo::toValue(platform.memory().lifeTime() + lifeOffset);
    };

    void SetUp() override
    {
        model.set("_getRobotType", 0);
        posture.set("getPosture", "Stand");
        posture.set("getPostureFamily", "Standing");
        life.answers["getLifeTime"] = lifeTime;
        follow("Posture PostureFamily RobotPushedRecently RobotFellRecently Lifted");
        make();
    }
    /// The process remembers when the robot last moved; this is long afterwards.
    std::string startLongAfter()
    {
        static int time = 0;
        lifeOffset = time += 1000;
        sense({0, 0, 0, 0, 0, 0, 0});
        raised();
        const auto published = start();
        platform.log.clear();
        return published;
    }
    void sense(const std::vector<KRValue>& values)
    {
        const std::string sensor = "Device/SubDeviceList/InertialSensor/";
        std::size_t i = 0;
        for (const auto* axis : {"AccX", "AccY", "AccZ", "GyrX", "GyrY"})
            platform.memory().raiseEvent(sensor + axis + "/Sensor/Value", values[i++]);
        platform.memory().raiseEvent("leftFootContact", values[5]);
        platform.memory().raiseEvent("rightFootContact", values[6]);
    }
};

TEST_F(PosturePluginTest, starts_once_the_platform_is_ready_and_blanks_when_made_and_stopped)
{
    const std::string empty =
        "Posture=none PostureFamily=none RobotPushedRecently=none RobotFellRecently=none "
        "Lifted=none";
    EXPECT_EQ(raised(), empty);
    plugin->startPlugin();
    expectComplaint(kWarning + "_startPlugin: The plugin can't be started before Tessel is ready");
    EXPECT_EQ(inTurn({write("robotHasFallen"), stop()}), "");
    startLongAfter();
    EXPECT_EQ(inTurn({stop(), after(seconds(5))}), empty);
    // What happened recently was said once in this process.
    EXPECT_EQ(start(), "Posture='Stand' PostureFamily='Standing' Lifted=false");
    life.die();
    write("TesselReady");
    expectComplaint(kWarning + "onTesselReady: error at initialisation. Got: ");
}

TEST_F(PosturePluginTest, posture_is_polled_every_two_seconds_and_on_events_and_raised_on_change)
{
    startLongAfter();
    posture.set("getPosture", "Crouch");
    EXPECT_EQ(justAfter(seconds(2)), "Posture='Crouch'");
    for (const std::string event : {"PostureFamilyChanged", "PostureChanged"}) {
        posture.set("getPosture", event);
        posture.set("getPostureFamily", event);
        EXPECT_EQ(write(event), "Posture='" + event + "' PostureFamily='" + event + "'");
        EXPECT_EQ(write("PostureFamilyChanged"), "");
    }
    posture.die();
    write("PostureChanged");
    expectComplaint(kWarning + "xNotifyPostureChange: error NotifyPostureChangeKRRobotPosture::");
}

TEST_F(PosturePluginTest, push_and_fall_are_recent_for_thirteen_seconds_after_the_last)
{
    const struct {
        const char* event;
        const char* datum;
        bool (PosturePlugin::*isRecent)();
        std::string complaint;
    } rows[] = {{"KRMotion/Safety/PushRecovery", "RobotPushedRecently",
                 &PosturePlugin::xIsStillInRecentPushRecovery,
                 kWarning + "xIsStillInRecentPushRecovery: error IsStillInRecentPushRecoveryKRN"},
                {"robotHasFallen", "RobotFellRecently",
                 &PosturePlugin::xIsStillInRecentFallRecovery, "none"}};
    for (const auto& [event, datum, isRecent, complaint] : rows) {
        SCOPED_TRACE(event);
        make();
        const auto yes = std::string(datum) + "=true";
        startLongAfter();
        lifeOffset = 0;  // as in memory's histories
        platform.advance(milliseconds(2500));
        raised();
        EXPECT_THAT(write(event), HasSubstr(yes));
        platform.advance(seconds(5));
        EXPECT_THAT(write(event), Not(HasSubstr(datum)));
        EXPECT_THAT(after(seconds(13) - kMoment), Not(HasSubstr("Recently")));
        EXPECT_EQ(after(kMoment), std::string(datum) + "=false");
        for (const int offset : {-1, -1000, 0}) {  // twelve seconds old, yet to come, thirteen
            lifeOffset = offset;
            EXPECT_EQ((plugin.get()->*isRecent)(), offset == -1) << offset;
        }
        EXPECT_EQ(write(event), yes);
        stop();
        EXPECT_EQ(platform.clock->untilNextTask(), std::nullopt);
        platform.log.clear();
        life.fail("getLifeTime");
        EXPECT_FALSE((plugin.get()->*isRecent)());
        expectComplaint(complaint);
        life.answers["getLifeTime"] = lifeTime;
        platform.advance(milliseconds(500));
        start();
        write(event);
        plugin->exit();
        EXPECT_EQ(after(seconds(20)), "");
    }
}

TEST_F(PosturePluginTest, lifted_begins_with_one_step_of_motion_and_ends_four_seconds_after_it)
{
    startLongAfter();
    sense({100, -50, 20, 10, 0, false, 0.49});
    EXPECT_EQ(justAfter(milliseconds(200)), "Lifted=true");
    platform.advance(milliseconds(1800));
    sense({100, -50, 20, 21, 0, 0, 0});  // once lifted, this little is motion
    EXPECT_EQ(after(seconds(1)), "");
    sense({100, -50, 20, 30, 0, 0, 0});  // and this is not
    EXPECT_EQ(after(seconds(1)), "");
    sense({500, -50, 20, 30, 0, 1, 0});  // nor is this, with a foot on the ground
    EXPECT_EQ(justAfter(seconds(2)), "Lifted=false");
}

TEST_F(PosturePluginTest, lifting_takes_motion_and_both_feet_off_the_ground)
{
    const std::string kCannot = kWarning + "xIsLifted: Cannot get data: ";
    struct Row {
        const char* what;
        std::vector<KRValue> values;
        const char* raised;
        std::string complaint = "none";
        int robotType = 0;
    };
    for (const auto& row :
         std::vector<Row>{{"above the threshold", {0, 0, 0, -176, 0, 0, 0}, "Lifted=true"},
                          {"below the threshold", {0, 0, 0, -174, 0, 0, 0}, ""},
                          {"the axis that does not count", {0, 0, 0, 0, 1e9, 0, 0}, ""},
                          {"left foot just has contact", {500, 0, 0, 0, 0, 0.5, 0}, ""},
                          {"right foot just has contact", {500, 0, 0, 0, 0, 0, 0.5}, ""},
                          {"not a number", {std::nan(""), 500, 0, 0, 0, 0, 0}, ""},
                          {"infinite", {0, -INFINITY, 0, 0, 0, 0, 0}, "Lifted=true"},
                          {"text", {"500", 500, 0, 0, 0, 0, 0}, "", kCannot},
                          {"missing", {500, 0, 0, 0, 0, KRValue(), 0}, "", kCannot},
                          {"other robots", {500, 0, 0, 0, 0, 0, 0}, "", "none", 1}}) {
        SCOPED_TRACE(row.what);
        model.set("_getRobotType", row.robotType);
        make();
        EXPECT_THAT(startLongAfter(), testing::EndsWith("Lifted=false"));
        sense(row.values);
        EXPECT_EQ(after(milliseconds(200)), row.raised);
        expectComplaint(row.complaint);
    }
}

}  // namespace KR
