#include <boost/algorithm/string/join.hpp>

#include "plugins/builtin/ActivitiesPlugin.h"
#include "plugins/builtin/BatteryPlugin.h"
#include "plugins/builtin/HardwareInfoPlugin.h"
#include "plugins/builtin/HumanTrackedPlugin.h"
#include "plugins/builtin/PerceptionHeavyPlugin.h"
#include "plugins/builtin/PosturePlugin.h"
#include "plugins/builtin/TemperaturePlugin.h"
#include "plugins/builtin/TimingPlugin.h"
#include "tests/robot/RobotTest.h"

namespace KR {

/// What all built-in plugins have in common.
struct BuiltinPluginsTest : RobotTest<NimbraLaunchpadPluginModule> {
    using Module = boost::shared_ptr<NimbraLaunchpadPluginModule>;
    using Maker = Module (*)(const boost::shared_ptr<KRBroker>&);

    template <class Plugin>
    static Module make(const boost::shared_ptr<KRBroker>& broker)
    {
        return KRModule::createModule<Plugin>(broker);
    }
    void startAnew(Maker maker)
    {
        plugin.reset();
        plugin = maker(platform.broker);
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
        Maker maker;
        std::string name, data;
        std::string stopped;  ///< what it is subscribed to then
    } rows[] = {
        {make<ActivitiesPlugin>, "Activities",
         "FocusedActivity! PreviousActivity! State! PreviousState! FocusCount/*! LifeTime! ",
         "Nimbra/FocusedActivity Nimbra/State " + ready},
        {make<BatteryPlugin>, "Battery", "BatteryLevel BatteryStatus BatteryIsCharging! ", ""},
        {make<HardwareInfoPlugin>, "HardwareInfo", "RobotType ", ""},
        {make<HumanTrackedPlugin>, "HumanTracked",
         "SameTrackedHuman DistanceOfTrackedHuman ZoneOfTrackedHuman TrackedHumanIsLookingAtRobot ",
         ""},
        {make<PerceptionHeavyPlugin>, "PerceptionHeavy",
         "WavingDetection PeopleNotSeen NumPeopleZone1 NumPeopleZone2 NumPeopleZone3 "
         "NoPeopleInZones NumMotionZone1 NumMotionZone2 NumMotionZone3 NoMotionInZones ",
         ""},
        {make<PosturePlugin>, "Posture",
         "RobotPushedRecently RobotFellRecently Lifted! Posture PostureFamily ", ready},
        {make<TemperaturePlugin>, "Temperature",
         "HighestTemperature HighestJoint TemperatureStatus ", ""},
        {make<TimingPlugin>, "Timing",
         "Year Month MonthName Day DayName Date Hour Minute Week MinuteOfDay ", ""}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        startAnew(row.maker);
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

        startAnew(row.maker);
        plugin->exit();
        platform.runPending();
        EXPECT_EQ(takeSubscriptions(), "");
        platform.advance(seconds(1));
        // Posture's checks go on until it is stopped.
        EXPECT_EQ(platform.clock->untilNextTask().has_value(), row.name == "Posture");
    }
}

}  // namespace KR
