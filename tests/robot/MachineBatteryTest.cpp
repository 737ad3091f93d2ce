#include <gmock/gmock.h>
#include <map>

#include "platform/kr/KRError.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/KRProxy.h"
#include "robot/MachineBattery.h"
#include "robot/Robot.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using std::chrono::seconds;
using Files = std::map<std::string, std::string>;

void write(const TemporaryFolder& folder, const Files& files)
{
    for (const auto& [file, content] : files)
        folder.write(file, content);
}

TEST(MachineBatteryTest, ReadsWhatTheMachineSuppliesTell)
{
    struct Row {
        const char* what;
        Files files;
        std::string read;
    };
    const Files battery{{"B/type", "Battery\n"}, {"B/capacity", "71\n"}};
    const auto with = [](Files files, const Files& more) {
        files.insert(more.begin(), more.end());
        return files;
    };
    const Row rows[] = {
        {"nothing", {}, "none"},
        {"a desktop", {{"A/type", "Mains\n"}, {"A/online", "1\n"}}, "none"},
        {"plugged in", with(battery, {{"A/type", "Mains\n"}, {"A/online", "1\n"}}), "71 on"},
        {"not plugged in", with(battery, {{"A/type", "Mains\n"}, {"A/online", "0\n"}}), "71 off"},
        {"one source of two",
         with(battery, {{"A/type", "Mains\n"},
                        {"A/online", "0\n"},
                        {"U/type", "USB\n"},
                        {"U/online", "1\n"}}),
         "71 on"},
        {"held at its limit",
         with(battery,
              {{"B/status", "Not charging\n"}, {"A/type", "Mains\n"}, {"A/online", "1\n"}}),
         "71 on"},
        {"no source, charging", with(battery, {{"B/status", "Charging\n"}}), "71 on"},
        {"no source, full", with(battery, {{"B/status", "Full\n"}}), "71 on"},
        {"no source, unknown", with(battery, {{"B/status", "Unknown\n"}}), "71 off"},
        {"two batteries",
         with(battery, {{"B/status", "Full"},
                        {"C/type", "Battery"},
                        {"C/capacity", "30"},
                        {"C/status", "Discharging"}}),
         "50 off"},
        {"a mouse",
         with(battery, {{"M/type", "Battery\n"}, {"M/scope", "Device\n"}, {"M/capacity", "1\n"}}),
         "71 off"},
        {"garbled battery beside a good one",
         with(battery, {{"C/type", "Battery\n"}, {"C/capacity", "1e9\n"}}), "71 off"},
        {"too full", {{"B/type", "Battery\n"}, {"B/capacity", "101\n"}}, "none"},
        {"negative", {{"B/type", "Battery\n"}, {"B/capacity", "-1\n"}}, "none"},
        {"empty files", {{"B/type", "Battery\n"}, {"B/capacity", ""}}, "none"},
        {"binary", {{"B/type", "Battery\n"}, {"B/capacity", std::string(1000, '\0')}}, "none"},
        {"folders for files", {{"B/type/x", ""}, {"B/capacity/x", ""}}, "none"},
        {"a file for a folder", {{"B", "Battery"}}, "none"}};
    for (const Row& row : rows) {
        const TemporaryFolder folder;
        write(folder, row.files);
        const auto reading = MachineBattery::read(folder.path());
        EXPECT_EQ(reading ? std::to_string(reading->charge) + (reading->connected ? " on" : " off")
                          : "none",
                  row.read)
            << row.what;
    }
    EXPECT_FALSE(MachineBattery::isThere(""));
    EXPECT_FALSE(MachineBattery::isThere("/dev/null"));
}

TEST(MachineBatteryTest, PullingThePlugIsNoticedAndBadReadingsChangeNothing)
{
    VirtualPlatform platform;
    const TemporaryFolder folder;
    write(folder, {{"B/type", "Battery\n"}, {"B/capacity", "80\n"}, {"B/status", "Charging\n"}});
    Robot robot(platform.broker, {"", folder.path()});
    const auto battery = platform.broker->getProxy("KRBattery");
    const auto status = [&] {
        return platform.memory()
            .getData("Device/SubDeviceList/Battery/Charge/Sensor/Status")
            .toInt();
    };
    EXPECT_EQ(status(), 128);
    write(folder, {{"B/status", "Discharging\n"}, {"B/capacity", "79\n"}});
    platform.advance(seconds(5));
    EXPECT_EQ(status(), 0);
    EXPECT_EQ(platform.memory().getData("KRBattery/ConnectedToChargingStation"), KRValue(false));
    EXPECT_EQ(battery->call<int>("getBatteryCharge"), 79);
    folder.write("B/capacity", "?");
    platform.advance(seconds(60));
    EXPECT_EQ(battery->call<int>("getBatteryCharge"), 79);
    EXPECT_EQ(platform.log.lines(vo::LogLevel::warning).size(), 1U);
    folder.write("B/capacity", "78");
    platform.advance(seconds(5));
    EXPECT_EQ(battery->call<int>("getBatteryCharge"), 78);
    EXPECT_EQ(platform.memory().getEventHistory("KRBattery/ConnectedToChargingStation").getSize(),
              2U);
    EXPECT_THROW(MachineBattery(platform.broker, "/dev/null"), KRError);
}

}  // namespace
}  // namespace KR
