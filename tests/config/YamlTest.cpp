#include <cmath>
#include <limits>
#include <sys/stat.h>
#include <yaml-cpp/yaml.h>

#include "platform/config/Configurator.h"
#include "platform/config/YamlFile.h"
#include "platform/config/YamlValue.h"
#include "platform/kr/KRBroker.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

std::string nested(std::size_t depth)
{
    return std::string(depth, '[') + std::string(depth, ']');
}

std::string repeated(const std::string& text, std::size_t count)
{
    std::string all;
    for (std::size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

TEST(YamlValue, scalar_meansWhatTheCoreSchemaSays)
{
    using Array = KRValue::Array;
    const std::pair<const char*, Array> rows[] = {
        {"[~, null, NULL, nULL, '~', '']", {{}, {}, {}, "nULL", "~", ""}},
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
    EXPECT_NO_THROW(yamlToKRValue(YAML::Load(nested(kMaxYamlDepth))));
    const auto ones = [](std::size_t count) { return "[" + repeated("1,", count - 1) + "1]"; };
    EXPECT_NO_THROW(yamlToKRValue(YAML::Load(ones(kMaxYamlValues))));
    const std::string half = ones(kMaxYamlValues / 2);
    const std::pair<std::string, std::string> rows[] = {
        {"[1,\n  {a: 2}]", ":2:3: a mapping is no value"},
        {"!!str 5", ":1:1: a value has no tag, this one has tag:yaml.org,2002:str"},
        {"9223372036854775808", ":1:1: the number does not fit in 64 bits"},
        {nested(kMaxYamlDepth + 1), ":1:33: arrays are nested deeper than 32"},
        {ones(kMaxYamlValues + 1), ":1:1: more than 10000 values"},
        {"[" + half + ",\n" + half + "]", ":2:1: more than 10000 values"},
    };
    for (const auto& [yaml, error] : rows) {
        try {
            ADD_FAILURE() << yamlToKRValue(YAML::Load(yaml)).toDisplayString();
        } catch (const YamlError& e) {
            EXPECT_EQ(textInFile("", e.place(), e.what()), error);
        }
    }
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
    EXPECT_THAT(outcomeOf(pipe), HasSubstr("not a regular file"));
    EXPECT_THAT(outcomeOf(folder.path() + "/missing"), HasSubstr("No such file"));

    // Written out: a million nodes, and a million bytes.
    const std::string nodes = "- &a [" + repeated("1,", 998) + "]\n" + repeated("- *a\n", 1000);
    const std::string bytes =
        "- &a " + std::string(1000, 'x') + "\n" + repeated("- *a\n", kMaxBytes / 1000 - 1);
    std::string bomb = "- &l0 [x]\n";
    for (int i = 1; i < 60; ++i) {
        const std::string alias = "*l" + std::to_string(i - 1);
        bomb += "- &l" + (std::to_string(i) + " [") + alias + (", " + alias) + "]\n";
    }
    const std::pair<std::string, const char*> rows[] = {
        {"", "none"},
        {"a: \"\xff\\0\"", "none"},
        {"a: " + std::string(kMaxBytes - 3, 'x'), "none"},
        {"a: " + std::string(kMaxBytes - 2, 'x'), "larger than 1000000 bytes"},
        {nodes, "none"},
        {nodes + "- 1\n", ":1002:3: more than 1000000 nodes, aliases written out"},
        {bytes, "none"},
        {bytes + "- y\n", ":1001:3: more than 1000000 bytes, aliases written out"},
        {nested(kMaxYamlFileDepth + 1), "nested deeper than 100"},
        {nested(kMaxYamlFileDepth), "none"},
        {"&a [b, *a]", "refers to a node that it is inside of"},
        {bomb, "more than 1000000 nodes, aliases written out"},
        {"\x7f\x01: [", ":1:1: "},
    };
    for (const auto& [text, expected] : rows)
        EXPECT_THAT(outcomeOf(folder.write("file.yaml", text)), HasSubstr(expected))
            << text.substr(0, 20);
}

TEST(YamlFile, piecesUpToALimit_areReadAndWhatFollowsTheDocumentIsFound)
{
    const TemporaryFolder folder;
    const auto outcomeOf = [&](std::size_t last) {
        const std::string first = "- a\n#" + std::string(kMaxYamlPieceBytes - 4096, 'x');
        const auto path = folder.write("f.yaml", first + "\n- b\n#" + std::string(last, 'x'));
        return errorOf<YAML::ParserException>([&] { loadYamlFile(path, 3 * kMaxYamlPieceBytes); });
    };
    EXPECT_EQ(outcomeOf(kMaxYamlPieceBytes - 4096), "none");
    EXPECT_THAT(outcomeOf(kMaxYamlPieceBytes + 4096),
                HasSubstr(":1:3: after this, more than 2097152 bytes of one collection"));

    const std::pair<const char*, std::size_t> rows[] = {
        {"", 0},
        {"---\na: 1\n...\n# end\n", 0},
        {"--- [1]\n--- [2]\n--- [3]\n", 2},
        {"a: 1\n...\n\n---\n]\n", 4},
    };
    for (const auto& [text, line] : rows)
        EXPECT_EQ(endOfYamlDocument(folder.write("f.yaml", text), 100).line, line) << text;
}

TEST(Configurator, version_isMajorOrMajorAndMinorUpToTheSupportedOne)
{
    const std::pair<const char*, const char*> rows[] = {
        {"{ConfigurationVersion: 2}", "none"},
        {"{ConfigurationVersion: '2.99'}", "none"},
        {"{ConfigurationVersion: 3}", "1:24: ConfigurationVersion \"3\" is not supported"},
        {"{ConfigurationVersion: 99999999999.0}",
         "is not supported (supported are versions up to 2)"},
        {"{ConfigurationVersion: 2.}", "1:24: ConfigurationVersion \"2.\" is not \"major\""},
        {"{ConfigurationVersion: 1.0.0}", "is not \"major\""},
        {"{configurationVersion: 2}",
         "1:1: the configuration has no ConfigurationVersion (supported are versions up to 2)"},
    };
    for (const auto& [yaml, expected] : rows) {
        std::string outcome = "none";
        try {
            Configurator::verifyConfigFileVersionCompatible(nullptr, YAML::Load(yaml), 2);
        } catch (const YamlError& e) {
            outcome = textInFile("", e.place(), e.what());
        }
        EXPECT_THAT(outcome, HasSubstr(expected)) << yaml;
    }
}

}  // namespace
}  // namespace KR
