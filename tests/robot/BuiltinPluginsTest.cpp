#include <boost/algorithm/string/join.hpp>

#include "plugins/builtin/BuiltinPlugins.h"
#include "tests/robot/RobotTest.h"

namespace KR {

/// What all built-in plugins have in common.
struct BuiltinPluginsTest : RobotTest<NimbraLaunchpadPluginModule> {
    void startAnew(const std::string& name)
    {
        plugin.reset();
        for (const BuiltinPlugin& builtin : builtinPlugins()) {
            if (builtin.name == name)
                plugin = builtin.make(platform.broker);
        }
        start();
    }
    /// The data that it may write, "!" after those that it did not declare.
    std::string described()
    {
        std::string text;
        for (const auto& key : plugin->getPublishedKeys()) {
            const auto declarers = platform.memory().getDeclarers(key);
            text += key.substr(key.find('/') + 1) +
                    (declarers == std::vector{plugin->getName()} ? " " : "! ");
        }
        return text;
    }
    /// The keys that it is subscribed to, and is no longer afterwards.
    std::string takeSubscriptions()
    {
        std::string text;
        for (const auto& entry : platform.broker->keys().entries()) {
            const auto& key = entry.description.key;
            if (errorOf([&] {
                    platform.memory().unsubscribeToMicroEvent(key, plugin->getName());
                }) == "none")
                text += key + " ";
        }
        return text;
    }

    FakeService life{platform, "KRNimbra",
                     "getFocusHistory/1 getStateHistory/1 getAutonomousActivityStatistics "
                     "getLifeTime"};
};

TEST_F(BuiltinPluginsTest, each_has_its_name_groups_data_and_subscriptions_and_ends_its_work)
{
    const std::string ready = "TesselReady ";
    const struct {
        std::string name, data;
        std::string stopped;  ///< what it is subscribed to then
    } rows[] = {
        {"Activities",
         "FocusedActivity! PreviousActivity! State! PreviousState! FocusCount/*! LifeTime! ",
         "Nimbra/FocusedActivity Nimbra/State " + ready},
        {"Battery", "BatteryLevel BatteryStatus BatteryIsCharging! ", ""},
        {"HardwareInfo", "RobotType ", ""},
        {"HumanTracked",
         "SameTrackedHuman DistanceOfTrackedHuman ZoneOfTrackedHuman TrackedHumanIsLookingAtRobot ",
         ""},
        {"PerceptionHeavy",
         "WavingDetection PeopleNotSeen NumPeopleZone1 NumPeopleZone2 NumPeopleZone3 "
         "NoPeopleInZones NumMotionZone1 NumMotionZone2 NumMotionZone3 NoMotionInZones ",
         ""},
        {"Posture", "RobotPushedRecently RobotFellRecently Lifted! Posture PostureFamily ", ready},
        {"Temperature", "HighestTemperature HighestJoint TemperatureStatus ", ""},
        {"Timing", "Year Month MonthName Day DayName Date Hour Minute Week MinuteOfDay ", ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        startAnew(row.name);
        EXPECT_EQ(plugin->getPluginName(), "_LaunchpadPlugin" + row.name);
        EXPECT_EQ(plugin->getName(), plugin->getPluginName());
        EXPECT_EQ(boost::join(plugin->getGroups(), " "),
                  row.name == "PerceptionHeavy" ? "" : "solitary interactive");
        EXPECT_EQ(described(), row.data);
        expectDescribedValues();
        stop();
        EXPECT_EQ(after(seconds(0)), "");
        expectDescribedValues();
        EXPECT_EQ(platform.clock->untilNextTask(), std::nullopt);
        EXPECT_EQ(takeSubscriptions(), row.stopped);

        startAnew(row.name);
        plugin->exit();
        platform.runPending();
        EXPECT_EQ(takeSubscriptions(), "");
        platform.advance(seconds(1));
        // Posture's checks go on until it is stopped.
        EXPECT_EQ(platform.clock->untilNextTask().has_value(), row.name == "Posture");
    }
}

}  // namespace KR
