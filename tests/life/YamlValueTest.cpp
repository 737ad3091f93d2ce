#include <cmath>
#include <gmock/gmock.h>
#include <limits>
#include <yaml-cpp/yaml.h>

#include "platform/life/YamlValue.h"

namespace KR {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(YamlValue, scalar_meansWhatTheCoreSchemaSays)
{
    using Array = KRValue::Array;
    const std::pair<const char*, Array> rows[] = {
        {"[~, null, NULL, nULL, '~', '']", {{}, {}, {}, "nULL", "~", ""}},
        {"- \n- a", {{}, "a"}},
        {"[True, FALSE, yes, 'true']", {true, false, "yes", "true"}},
        {"[-7, +7, 010, '5', 1_000, 12:30]", {-7, 7, 10, "5", "1_000", "12:30"}},
        {"[0o17, 0xfF, -0x1, 0x, 0o8, 0xg]", {15, 255, "-0x1", "0x", "0o8", "0xg"}},
        {"[-9223372036854775808]", {std::numeric_limits<std::int64_t>::min()}},
        {"[1., +.5, -1.5e+3, 1e3]", {1.0, 0.5, -1500.0, 1000.0}},
        {"[., +, -, 1e, e3, 1.2.3, +-1]", {".", "+", "-", "1e", "e3", "1.2.3", "+-1"}},
        {"[-.INF, +.inf, inf, +.nan]", {-kInfinity, kInfinity, "inf", "+.nan"}},
        {"[[1, [a, 2.5]], []]", {Array{1, Array{"a", 2.5}}, Array{}}},
        {"- |\n  12\n", {"12\n"}},
    };
    for (const auto& [yaml, values] : rows)
        EXPECT_EQ(yamlToKRValue(YAML::Load(yaml)), KRValue(values)) << yaml;
    EXPECT_TRUE(std::isnan(yamlToKRValue(YAML::Load(".NaN")).toFloat()));
}

TEST(YamlValue, whatIsNoValue_isRefusedWithItsPlace)
{
    const auto nested = [](std::size_t depth) {
        return std::string(depth, '[') + std::string(depth, ']');
    };
    EXPECT_NO_THROW(yamlToKRValue(YAML::Load(nested(kMaxYamlDepth))));
    std::string many = "[1";
    for (std::size_t i = 0; i < kMaxYamlValues; ++i)
        many += ",1";
    const std::pair<std::string, std::string> rows[] = {
        {"[1,\n  {a: 2}]", "line 2, column 3: a mapping is no value"},
        {"!!str 5", "line 1, column 1: a value has no tag, this one has tag:yaml.org,2002:str"},
        {"9223372036854775808", "line 1, column 1: the number does not fit in 64 bits"},
        {"1e999", "line 1, column 1: the number does not fit in 64 bits"},
        {nested(kMaxYamlDepth + 1), "line 1, column 33: arrays are nested deeper than 32"},
        {"&a [*a]", "line 1, column 1: arrays are nested deeper than 32"},
        {many + "]", "line 1, column 1: more than 10000 values"},
    };
    for (const auto& [yaml, error] : rows) {
        try {
            yamlToKRValue(YAML::Load(yaml));
            ADD_FAILURE() << yaml;
        } catch (const std::runtime_error& e) {
            EXPECT_EQ(e.what(), error);
        }
    }
    EXPECT_THROW(yamlToKRValue(YAML::Load("{}")["none"]), std::runtime_error);
}

}  // namespace
}  // namespace KR
