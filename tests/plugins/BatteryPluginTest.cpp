#include "plugins/builtin/BatteryPlugin.h"
#include "tests/plugins/SenseTest.h"

namespace KR {

struct BatteryPluginTest : SenseTest<BatteryPlugin> {
    FakeService battery{platform, "KRBattery", "getBatteryCharge"};
    const std::string kEmpty = "BatteryLevel=-1 BatteryStatus='None' BatteryIsCharging=0";
    const std::string kHalf = "BatteryLevel=3 BatteryStatus='Half'";

    void SetUp() override
    {
        battery.set("getBatteryCharge", 50);
        make();
        follow("BatteryLevel BatteryStatus BatteryIsCharging");
        setStatus(0);
    }
    void setStatus(const KRValue& word)
    {
        write("Device/SubDeviceList/Battery/Charge/Sensor/Status", word);
    }
};

TEST_F(BatteryPluginTest, bands_begin_exactly_at_their_bounds_and_no_charge_is_critical)
{
    const std::tuple<int, int, const char*> rows[] = {
        {-1, 1, "Critical"}, {19, 1, "Critical"}, {20, 2, "Low"},  {39, 2, "Low"}, {40, 3, "Half"},
        {59, 3, "Half"},     {60, 4, "Full"},     {79, 4, "Full"}, {80, 5, "Full"}};
    for (const auto& [percent, band, word] : rows) {
        battery.set("getBatteryCharge", percent);
        EXPECT_EQ(plugin->xGetBatteryLevel(), band) << percent;
        EXPECT_EQ(plugin->xGetStatusBatteryLevel(band), word);
    }
    for (const bool fails : {true, false}) {
        battery.set("getBatteryCharge", "half");
        if (fails)
            battery.fail("getBatteryCharge");
        EXPECT_EQ(plugin->xGetBatteryLevel(), 1);
        expectComplaint("warning LaunchpadPluginBattery/xGetBatteryLevel: Can't get battery ");
    }
}

TEST_F(BatteryPluginTest, publishes_empty_values_then_real_ones_every_minute_until_stopped)
{
    EXPECT_EQ(stop(), "");
    EXPECT_EQ(inTurn({start(), start()}), kEmpty + " " + kHalf);
    EXPECT_EQ(justAfter(seconds(60)), kHalf);  // unchanged, but raised
    EXPECT_EQ(inTurn({stop(), after(seconds(300))}), kEmpty);
}

TEST_F(BatteryPluginTest, charging_state_is_remembered_over_a_stop_and_while_it_cannot_be_read)
{
    setStatus(0xFF);
    EXPECT_EQ(start(), kEmpty + " " + kHalf + " BatteryIsCharging=true");
    EXPECT_EQ(after(seconds(60)), kHalf);
    EXPECT_EQ(stop(), kEmpty);
    EXPECT_EQ(start(), kEmpty + " " + kHalf);
    setStatus("broken");  // fails that check and not the task
    EXPECT_EQ(after(seconds(60)), kHalf);
    setStatus(0x7F);
    EXPECT_EQ(after(seconds(60)), kHalf + " BatteryIsCharging=false");
    plugin->exit();
    EXPECT_EQ(after(seconds(120)), "");
}

}  // namespace KR
