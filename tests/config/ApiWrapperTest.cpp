#include <yaml-cpp/yaml.h>

#include "platform/config/ApiWrapper.h"
#include "platform/config/YamlError.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

TEST(ApiWrapper, malformedCall_isRefused)
{
    const std::pair<const char*, const char*> rows[] = {
        {"[Module, Method]", "1:1: a call is a mapping with Module, Method and Args"},
        {"{Method: m}", "1:1: the call has no Module"},
        {"{Module: a,\n Method: [m]}", "2:10: Method must be a text that is not empty"},
        {"{Module: a, Method: m, Args: x}", "1:30: Args must be a sequence"},
        {"{Module: a, Method: m, Args: [1, {}]}", "1:34: a mapping is no value"},
        {"{Module: a, Method: m, Args: [[1], [2, ~]]}", "1:30: an argument must not be null"},
        {"{Module: a, Method: m, args: []}",
         "1:24: a call has Module, Method and Args, but no \"args\""},
    };
    for (const auto& [yaml, error] : rows) {
        try {
            ADD_FAILURE() << ApiWrapper(YAML::Load(yaml)).method() << yaml;
        } catch (const YamlError& e) {
            EXPECT_EQ(textInFile("f", e.place(), e.what()), std::string("f:") + error);
        }
    }
    const std::map<std::string, KRValue> bad[] = {
        {{"Module", "a"}},
        {{"Module", "a"}, {"Method", ""}},
        {{"Module", "a"}, {"Method", "m"}, {"Args", 1}},
        {{"Module", "a"}, {"Method", "m"}, {"Args", KRValue::Array()}, {"more", 1}}};
    for (const auto& parameters : bad)
        EXPECT_THROW(ApiWrapper{parameters}, std::runtime_error) << parameters.size();
}

TEST(ApiWrapper, call_survivesItsExport)
{
    const auto call = [](const char* yaml) {
        const ApiWrapper written(YAML::Load(yaml));
        const ApiWrapper read(written.exportAutonomousActionParameters());
        return read.module() + "." + read.method() + KRValue(read.arguments()).toDisplayString();
    };
    EXPECT_EQ(call("{Module: KRLeds, Method: fade, Args: [eyes, 1.5, ['2']]}"),
              "KRLeds.fade[\"eyes\", 1.5, [\"2\"]]");
    EXPECT_EQ(call("{Method: off, Module: 5}"), "5.off[]");

    // What was not given is not there.
    const auto exported = [](const char* yaml) {
        return ApiWrapper(YAML::Load(yaml)).exportAutonomousActionParameters().count("Args");
    };
    EXPECT_EQ(exported("{Module: 5, Method: m}"), 0U);
    EXPECT_EQ(exported("{Module: 5, Method: m, Args: []}"), 1U);
}

}  // namespace
}  // namespace KR
