#include <sstream>

#include "plugins/builtin/HardwareInfoPlugin.h"
#include "robot/MachineBattery.h"
#include "tests/robot/RobotTest.h"
#include "tests/support/TemporaryFolder.h"

namespace KR {
namespace {

/// Writes files of a line each: "B/type=Battery B/capacity=71".
void writeFiles(const TemporaryFolder& folder, const std::string& files)
{
    std::istringstream words(files);
    for (std::string word; words >> word;) {
        const auto split = word.find('=');
        folder.write(word.substr(0, split), word.substr(split + 1) + "\n");
    }
}

TEST(MachineBatteryTest, reads_what_the_machine_supplies_tell)
{
    const std::string battery = "B/type=Battery B/capacity=71 ";
    const std::string on = "A/type=Mains A/online=1 ";
    const std::string off = "A/type=Mains A/online=0 ";
    const struct {
        const char* what;
        std::string files;
        const char* read;
    } rows[] = {
        {"a desktop", on, "none"},
        {"held at its limit", battery + on + "B/status=Not", "71 on"},
        {"not plugged in", battery + off + "B/status=Charging", "71 off"},
        {"one source of two", battery + off + "U/type=USB U/online=1", "71 on"},
        {"the other one", battery + on + "U/type=USB U/online=0", "71 on"},
        {"no source, charging", battery + "B/status=Charging", "71 on"},
        {"no source, full", battery + "B/status=Full", "71 on"},
        {"no source, unknown", battery + "B/status=Unknown", "71 off"},
        {"two batteries",
         battery + "B/status=Full C/type=Battery C/capacity=30 C/status=Discharging", "50 off"},
        {"a mouse", battery + "M/type=Battery M/scope=Device M/capacity=1", "71 off"},
        {"garbled one beside a good one", battery + "C/type=Battery C/capacity=1e9", "71 off"},
        {"full and empty", "B/type=Battery B/capacity=100 C/type=Battery C/capacity=0", "50 off"},
        {"too full", "B/type=Battery B/capacity=101", "none"},
        {"negative", "B/type=Battery B/capacity=-1", "none"},
        {"empty files", "B/type=Battery B/capacity=", "none"},
        {"binary", "B/type=Battery B/capacity=" + std::string(1000, '\0'), "none"},
        {"folders for files", "B/type/x= B/capacity/x=", "none"},
        {"a file for a folder", "B=Battery", "none"}};
    for (const auto& row : rows) {
        const TemporaryFolder folder;
        writeFiles(folder, row.files);
        const auto reading = MachineBattery::read(folder.path());
        EXPECT_EQ(reading ? std::to_string(reading->charge) + (reading->connected ? " on" : " off")
                          : "none",
                  row.read)
            << row.what;
    }
    EXPECT_FALSE(MachineBattery::isThere(""));
    EXPECT_FALSE(MachineBattery::isThere("/dev/null"));
}

using MachineRobotTest = RobotTest<HardwareInfoPlugin>;

TEST_F(MachineRobotTest, pulled_plug_is_noticed_and_bad_readings_change_nothing)
{
    const TemporaryFolder folder;
    writeFiles(folder, "B/type=Battery B/capacity=80 B/status=Charging");
    robot.emplace(platform.broker, Robot::Options{"", folder.path()});
    const std::string status = "'Device/SubDeviceList/Battery/Charge/Sensor/Status' -> ";
    play(status + "128");
    writeFiles(folder, "B/status=Discharging B/capacity=79");
    play("wait 4.999999; KRBattery.isChargerConnected -> true;" + status + "128; wait 0.000001;" +
         status +
         "0; KRBattery.isChargerConnected -> false; KRBattery.getBatteryCharge -> 79;"
         "'KRBattery/ConnectedToChargingStation' -> false");
    folder.write("B/capacity", "?");
    play("wait 60; KRBattery.getBatteryCharge -> 79");
    EXPECT_EQ(platform.log.lines(vo::LogLevel::warning).size(), 1U);
    folder.write("B/capacity", "78");
    play("wait 5; KRBattery.getBatteryCharge -> 78");
    folder.write("B/capacity", "");
    play("wait 60");
    EXPECT_EQ(platform.log.lines(vo::LogLevel::warning).size(), 2U);  // again
    EXPECT_EQ(platform.memory().getEventHistory("KRBattery/ConnectedToChargingStation").getSize(),
              3U);  // one of them when the robot still had its own battery
    EXPECT_THROW(MachineBattery(platform.broker, "/dev/null"), KRError);
}

}  // namespace
}  // namespace KR
