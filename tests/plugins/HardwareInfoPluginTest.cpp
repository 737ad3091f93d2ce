#include "plugins/builtin/HardwareInfoPlugin.h"
#include "tests/plugins/SenseTest.h"

namespace KR {

using HardwareInfoPluginTest = SenseTest<HardwareInfoPlugin>;

TEST_F(HardwareInfoPluginTest, publishes_at_every_start_and_does_not_retry_one_that_failed)
{
    FakeService model{platform, "KRRobotModel", "_getRobotTypeString"};
    make();
    follow("RobotType");
    for (const auto& [type, published] : std::map<std::string, std::string>{
             {"quolla", "brixa"}, {"brixa", "brixa"}, {"Quolla", "Quolla"}, {"", ""}}) {
        model.set("_getRobotTypeString", type);
        EXPECT_EQ(start(), "RobotType='" + published + "'");
        EXPECT_EQ(inTurn({start(), stop()}), "");
    }
    model.set("_getRobotTypeString", 7);
    EXPECT_THROW(start(), KRError);
    model.set("_getRobotTypeString", "x");
    EXPECT_EQ(start(), "");
}

}  // namespace KR
