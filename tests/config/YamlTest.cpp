#include <cmath>
#include <limits>
#include <sys/stat.h>
#include <yaml-cpp/yaml.h>

#include "platform/config/YamlFile.h"
#include "platform/config/YamlValue.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

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
        {"[-.INF, +.inf, inf, +.nan]", {-HUGE_VAL, HUGE_VAL, "inf", "+.nan"}},
        {"[[1, [a, 2.5]], []]", {Array{1, Array{"a", 2.5}}, Array{}}},
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
        {nested(kMaxYamlDepth + 1), "line 1, column 33: arrays are nested deeper than 32"},
        {"&a [*a]", "line 1, column 1: arrays are nested deeper than 32"},
        {many + "]", "line 1, column 1: more than 10000 values"},
    };
    for (const auto& [yaml, error] : rows)
        EXPECT_EQ(errorOf([text = yaml] { yamlToKRValue(YAML::Load(text)); }), error);
    EXPECT_THROW(yamlToKRValue(YAML::Load("{}")["none"]), std::runtime_error);
}

TEST(YamlFile, whateverThePathHolds_isReadOrRefusedWithItsName)
{
    constexpr std::size_t kMaxBytes = 1'000'000;
    const TemporaryFolder folder;
    const auto outcomeOf = [&](const std::string& path) {
        auto outcome = errorOf<YAML::Exception>([&] { loadYamlFile(path, kMaxBytes); });
        EXPECT_TRUE(outcome == "none" || outcome.find(path) != std::string::npos) << outcome;
        return outcome;
    };
    const std::string pipe = folder.path() + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_THAT(outcomeOf(pipe), testing::HasSubstr("not a regular file"));
    EXPECT_THAT(outcomeOf(folder.path()), testing::HasSubstr("not a regular file"));
    EXPECT_THAT(outcomeOf(folder.path() + "/missing"), testing::HasSubstr("No such file"));

    std::string bomb = "- &l0 [x]\n";
    for (int i = 1; i < 60; ++i) {
        const std::string alias = "*l" + std::to_string(i - 1);
        bomb += "- &l" + (std::to_string(i) + " [") + alias + (", " + alias) + "]\n";
    }
    const std::pair<std::string, const char*> rows[] = {
        {"", "none"},
        {"a: \"\xff\\0\"", "none"},
        {"a: " + std::string(kMaxBytes, 'x'), "larger than 1000000 bytes"},
        {std::string(100'000, '['), "nested deeper than 100"},
        {std::string(kMaxYamlFileDepth, '[') + std::string(kMaxYamlFileDepth, ']'), "none"},
        {"&a [b, *a]", "refers to a node that it is inside of"},
        {bomb, "more than 1000000 nodes, aliases written out"},
        {"\x7f\x01: [", "line 1, column"},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_THAT(outcomeOf(folder.write("file.yaml", text)), testing::HasSubstr(expected))
            << text.substr(0, 20);
}

}  // namespace
}  // namespace KR
