#include <cmath>
#include <gmock/gmock.h>

#include "platform/kr/KRError.h"
#include "plugins/builtin/BatteryPlugin.h"
#include "robot/SimulatedBattery.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kStatusKey = "Device/SubDeviceList/Battery/Charge/Sensor/Status";

/// A battery service that answers what the test says.
struct BatteryPluginTest : testing::Test {
    VirtualPlatform platform;
    std::function<vo::Value()> charge = [] { return vo::toValue(50); };
    boost::shared_ptr<BatteryPlugin> plugin;

    void SetUp() override
    {
        auto object = std::make_shared<vo::ServiceObject>("KRBattery");
        object->dynamicMethod({"getBatteryCharge", "", 0},
                              [this](const std::vector<vo::Value>&) { return charge(); });
        platform.broker->session().registerService(object);
        plugin = KRModule::createModule<BatteryPlugin>(platform.broker);
        setStatus(0);
    }
    void setStatus(int word) { platform.memory().raiseEvent(kStatusKey, word); }
    /// Every value that an event has had, oldest first.
    std::vector<KRValue> raised(const std::string& name)
    {
        std::vector<KRValue> values;
        const auto history = platform.memory().getEventHistory("Launchpad/" + name);
        for (const auto& entry : history.toArray())
            values.push_back(entry[0]);
        return values;
    }
};

TEST_F(BatteryPluginTest, bands_begin_exactly_at_their_bounds)
{
    struct Row {
        int percent;
        int band;
        const char* word;
    };
    // clang-format off
    const std::vector<Row> rows = {{-1, 1, "Critical"}, {19, 1, "Critical"}, {20, 2, "Low"},
                                   {39, 2, "Low"}, {40, 3, "Half"}, {59, 3, "Half"},
                                   {60, 4, "Full"}, {79, 4, "Full"}, {80, 5, "Full"}};
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.percent);
        charge = [&] { return vo::toValue(row.percent); };
        EXPECT_EQ(plugin->xGetBatteryLevel(), row.band);
        EXPECT_EQ(plugin->xGetStatusBatteryLevel(row.band), row.word);
    }
}

TEST_F(BatteryPluginTest, charge_that_cannot_be_had_is_critical_and_warned_of)
{
    const std::vector<std::function<vo::Value()>> faults = {
        []() -> vo::Value { throw std::runtime_error("no board"); },
        [] { return vo::toValue("half"); },
        [] { return vo::Value(); },
    };
    for (const auto& fault : faults) {
        platform.log.clear();
        charge = fault;
        EXPECT_EQ(plugin->xGetBatteryLevel(), 1);
        EXPECT_THAT(platform.log.lines(vo::LogLevel::warning),
                    ElementsAre(testing::StartsWith("LaunchpadPluginBattery/xGetBatteryLevel: "
                                                    "Can't get battery level: ")));
    }
}

TEST_F(BatteryPluginTest, publishes_empty_values_then_real_ones_every_minute_until_stopped)
{
    EXPECT_THAT(plugin->getGroups(), ElementsAre("solitary", "interactive"));
    EXPECT_THAT(platform.memory().getDeclarers("Launchpad/BatteryStatus"),
                ElementsAre("_LaunchpadPluginBattery"));
    EXPECT_THAT(platform.memory().getDeclarers("Launchpad/BatteryIsCharging"), IsEmpty());

    plugin->stopPlugin();
    EXPECT_THAT(raised("BatteryLevel"), IsEmpty());
    plugin->startPlugin();
    plugin->startPlugin();
    platform.runPending();
    EXPECT_THAT(raised("BatteryLevel"), ElementsAre(KRValue(-1), KRValue(3)));
    platform.advance(seconds(59));
    EXPECT_EQ(raised("BatteryLevel").size(), 2U);
    platform.advance(seconds(1));  // unchanged, but raised
    EXPECT_THAT(raised("BatteryLevel"), ElementsAre(KRValue(-1), KRValue(3), KRValue(3)));
    plugin->stopPlugin();
    platform.advance(minutes(5));
    EXPECT_EQ(raised("BatteryLevel").back(), KRValue(-1));
    EXPECT_THAT(raised("BatteryStatus"),
                ElementsAre(KRValue("None"), KRValue("Half"), KRValue("Half"), KRValue("None")));
    EXPECT_THAT(raised("BatteryIsCharging"), ElementsAre(KRValue(0), KRValue(0)));
}

TEST_F(BatteryPluginTest, charging_state_is_remembered_over_a_stop)
{
    setStatus(0xFF);
    plugin->startPlugin();
    platform.advance(minutes(1));
    EXPECT_THAT(raised("BatteryIsCharging"), ElementsAre(KRValue(0), KRValue(true)));
    plugin->stopPlugin();
    plugin->startPlugin();
    platform.advance(minutes(1));
    EXPECT_EQ(raised("BatteryIsCharging").back(), KRValue(0));
    setStatus(0x7F);
    platform.advance(minutes(1));
    EXPECT_EQ(raised("BatteryIsCharging").back(), KRValue(false));
}

TEST_F(BatteryPluginTest, unreadable_status_word_fails_that_check_and_not_the_task)
{
    platform.memory().raiseEvent(kStatusKey, KRValue("broken"));
    plugin->startPlugin();
    platform.advance(minutes(1));
    EXPECT_THAT(raised("BatteryLevel"), ElementsAre(KRValue(-1), KRValue(3), KRValue(3)));
    EXPECT_THAT(raised("BatteryIsCharging"), ElementsAre(KRValue(0)));
    plugin->exit();
    platform.advance(minutes(2));
    EXPECT_EQ(raised("BatteryLevel").size(), 3U);
}

TEST(SimulatedBatteryTest, drains_through_all_bands_and_recharges_on_the_clock)
{
    VirtualPlatform platform;
    SimulatedBattery battery(platform.broker);
    auto plugin = KRModule::createModule<BatteryPlugin>(platform.broker);
    const auto service = platform.broker->session().service("KRBattery");
    service.call("setDischargeRate", 20);
    plugin->startPlugin();
    std::vector<int> bands;
    for (int hour = 0; hour < 5; ++hour) {
        platform.advance(minutes(61));
        bands.push_back(platform.memory().getData("Launchpad/BatteryLevel").toInt32());
    }
    EXPECT_THAT(bands, ElementsAre(4, 3, 2, 1, 1));
    platform.advance(hours(24));
    EXPECT_EQ(battery.getBatteryCharge(), 0);

    service.call("connectCharger", true);
    platform.advance(hours(1));
    EXPECT_EQ(battery.getBatteryCharge(), 40);
    EXPECT_EQ(platform.memory().getData("Launchpad/BatteryIsCharging"), KRValue(true));
    EXPECT_EQ(platform.memory().getData("KRBattery/ConnectedToChargingStation"), KRValue(true));
    platform.advance(hours(24));
    EXPECT_EQ(battery.getBatteryCharge(), 100);
    EXPECT_THROW(battery.setCharge(std::nan("")), KRError);
}

}  // namespace
}  // namespace KR
