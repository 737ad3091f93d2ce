#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <yaml-cpp/yaml.h>

#include "platform/life/YamlFile.h"

namespace KR {
namespace {

using testing::HasSubstr;

TEST(YamlFile, whateverThePathHolds_isReadOrRefusedWithItsName)
{
    constexpr std::size_t kMaxBytes = 1'000'000;
    const std::filesystem::path folder =
        std::filesystem::path(testing::TempDir()) / ("yaml-file-" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    const auto outcomeOf = [&](const std::string& path) -> std::string {
        try {
            loadYamlFile(path, kMaxBytes);
            return "read";
        } catch (const YAML::Exception& e) {
            EXPECT_THAT(e.what(), HasSubstr(path));
            return e.what();
        }
    };
    const std::string pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_THAT(outcomeOf(pipe), HasSubstr("not a regular file"));
    EXPECT_THAT(outcomeOf(folder), HasSubstr("not a regular file"));
    EXPECT_THAT(outcomeOf(folder / "missing"), HasSubstr("No such file"));

    std::string bomb = "- &l0 [" + "x" + "]\n";
    for (int i = 1; i < 60; ++i) {
        const std::string alias = "*l" + std::to_string(i - 1);
        bomb += "- &l" + (std::to_string(i) + " [") + alias + (", " + alias) + "]\n";
    }
    const std::pair<std::string, const char*> rows[] = {
        {"", "read"},
        {"a: \"\xff\\0\"", "read"},
        {"a: " + std::string(kMaxBytes, 'x'), "larger than 1000000 bytes"},
        {std::string(100'000, '['), "nested deeper than 100"},
        {std::string(kMaxYamlFileDepth, '[') + std::string(kMaxYamlFileDepth, ']'), "read"},
        {"&a [b, *a]", "refers to a node that it is inside of"},
        {bomb, "more than 1000000 nodes, aliases written out"},
        {"\x7f\x01: [", "line 1, column"},
    };
    for (const auto& [text, expected] : rows) {
        const std::string path = folder / "file.yaml";
        std::ofstream(path, std::ios::binary) << text;
        EXPECT_THAT(outcomeOf(path), HasSubstr(expected)) << text.substr(0, 20);
    }
    std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace KR
