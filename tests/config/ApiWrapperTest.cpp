#include <yaml-cpp/yaml.h>

#include "platform/config/ApiWrapper.h"
#include "platform/vo/Session.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

TEST(ApiWrapper, malformedCall_isRefused)
{
    const std::pair<const char*, const char*> rows[] = {
        {"{Method: m}", "line 1, column 1: the call has no Module"},
        {"{Module: '', Method: m}", "column 10: Module must be a text"},
        {"{Module: a, Method: m, Args: [{}]}", "column 31: a mapping is no value"},
        {"{Module: a, Method: m, Args: [[~]]}", "column 30: an argument must not be null"},
        {"{Module: a, Method: m, args: []}", "column 24: a call has Module, Method and Args"},
    };
    for (const auto& [yaml, error] : rows)
        EXPECT_THAT(errorOf([yaml = yaml] { ApiWrapper(YAML::Load(yaml)); }),
                    testing::HasSubstr(error));
}

TEST(ApiWrapper, call_survivesItsExportAndReachesTheService)
{
    VirtualPlatform platform;
    platform
        .addService("KRLeds", "fade",
                    [](std::string name, double level, KRValue extra) {
                        return KRValue(KRValue::Array{std::move(name), level, std::move(extra)});
                    })
        ->method("off", [] {});

    const auto call = [](const char* yaml) {
        const ApiWrapper written(YAML::Load(yaml));
        return ApiWrapper(written.exportAutonomousActionParameters()).execute();
    };
    EXPECT_EQ(call("{Module: KRLeds, Method: fade, Args: [eyes, 1, ['2']]}"),
              KRValue(KRValue::Array{"eyes", 1.0, KRValue::Array{"2"}}));
    EXPECT_FALSE(call("{Args: [], Method: off, Module: KRLeds}").isValid());
    EXPECT_THROW(call("{Module: KRLeds, Method: off, Args: [1]}"), std::runtime_error);
}

}  // namespace
}  // namespace KR
