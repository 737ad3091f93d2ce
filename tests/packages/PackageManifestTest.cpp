#include <boost/algorithm/string/erase.hpp>
#include <string>

#include "platform/packages/PackageManifest.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"

namespace KR {
namespace {

struct PackageManifestTest : testing::Test {
    TemporaryFolder folder;

    vo::PackageInfo read(const std::string& manifest)
    {
        folder.write(kPackageManifestFile, manifest);
        return readPackageManifest(folder.path());
    }
    /// What is wrong with a manifest, its path left out.
    std::string problems(const std::string& manifest)
    {
        const auto path = folder.path() + "/" + kPackageManifestFile + ":";
        auto text = errorOf<PackageManifestError>([&] { read(manifest); });
        boost::erase_all(text, path);
        return text;
    }
};

const std::string kHead = "ConfigurationVersion: 1.7\nUuid: .p-1_x\nVersion: 1.10\n";

TEST_F(PackageManifestTest, everything_that_is_declared_is_read)
{
    const auto package = read(kHead + R"(SupportedLanguages: [French, English]
Behaviors:
  - Path: a/grüßen
    Nature: solitary
    Permissions: [canRunOnPod, other]
    UserRequestable: true
    Conditions:
      launchTrigger: ["'A' == 1", "this does not ((parse"]
      terminationTrigger: |
        'B'
        && 'C'
    Tags: {English: launcher, French: [launcher, DialogReflex/x]}
  - {Path: plain, UserRequestable: false, Permissions: canRunInSleep}
)");
    EXPECT_EQ(package.uuid(), ".p-1_x");
    EXPECT_EQ(package.version(), "1.10");
    EXPECT_THAT(package.supportedLanguages(), ElementsAre("French", "English"));
    EXPECT_EQ(package.path(), folder.path());
    ASSERT_EQ(package.behaviors().size(), 2U);
    const auto& full = package.behaviors().front();
    EXPECT_EQ(vo::behaviorKey(package, full), ".p-1_x/a/grüßen");
    EXPECT_EQ(full.nature(), "solitary");
    EXPECT_THAT(full.permissions(), ElementsAre("canRunOnPod", "other"));
    EXPECT_TRUE(full.isUserRequestable());
    EXPECT_THAT(full.conditions("launchTrigger"), ElementsAre("'A' == 1", "this does not ((parse"));
    EXPECT_THAT(full.conditions("terminationTrigger"), ElementsAre("'B'\n&& 'C'\n"));
    EXPECT_THAT(full.languagesToTags(),
                ElementsAre(Pair("English", ElementsAre("launcher")),
                            Pair("French", ElementsAre("launcher", "DialogReflex/x"))));
    const auto& plain = package.behaviors().back();
    EXPECT_EQ(plain.path() + plain.nature(), "plain");
    EXPECT_THAT(plain.permissions(), ElementsAre("canRunInSleep"));
    EXPECT_FALSE(plain.isUserRequestable());
    EXPECT_TRUE(plain.conditions().empty() && plain.languagesToTags().empty());
}

TEST_F(PackageManifestTest, wrong_manifest_tells_what_is_wrong_and_where)
{
    const auto uuid = [](const std::string& text) {
        return "ConfigurationVersion: 1\nVersion: 1\nUuid: " + text + "\n";
    };
    const auto behavior = [](const std::string& text) {
        return kHead + "Behaviors:\n  - " + text + "\n";
    };
    const auto list = [](int count, const char* value = "") {
        std::string text;
        for (int i = 0; i < count; ++i)
            text += (i == 0 ? "x" : ", x") + std::to_string(i) + value;
        return *value == '\0' ? "[" + text + "]" : "{" + text + "}";
    };
    const auto behaviors = [](int count) {
        std::string text = kHead + "Behaviors:\n";
        for (int i = 0; i < count; ++i)
            text += "  - {Path: b" + std::to_string(i) + "}\n";
        return text;
    };
    const std::string room(kMaxManifestBytes - kHead.size() - 2, ' ');
    const struct {
        std::string manifest;
        const char* problem;  ///< "none" for what is just accepted
    } rows[] = {
        {"", "a manifest is a mapping"},
        {"Uuid: p\nVersion: 1\n", "1:1: the configuration has no ConfigurationVersion"},
        {"Uuid: p\nConfigurationVersion: 2.0\nX: y\n", "2:23: ConfigurationVersion \"2.0\" is not"},
        {kHead + "Uuid: other\n", "4:1: a manifest has 'Uuid' twice"},
        {kHead + "SupportedLanguages: [English, \"\"]\n", "4:31: an entry of SupportedLanguages"},
        {uuid(".."), "3:7: the Uuid '..' is the name of a folder above"},
        {uuid("."), "is the name of a folder above"},
        {uuid("aZ09._-"), "none"},
        {uuid("a~b"), "the Uuid 'a~b' holds other characters"},
        {uuid(std::string(200, 'a')), "none"},
        {uuid(std::string(201, 'a')), "is longer than 200 bytes"},
        {uuid("\"p\xff\""), "Uuid is not readable text in UTF-8: 'p\\xff'"},
        {behavior("{}"), "5:5: there is no Path"},
        {behavior("{Path: ../a}"), "5:12: the Path '../a' holds the name '..'"},
        {behavior("{Path: a/}"), "5:12: the Path 'a/' holds an empty name"},
        {behavior("{Path: a}\n  - {Path: a/b}\n  - {Path: a}"),
         "7:12: the Path 'a' is that of an earlier"},
        {kHead + "Behaviors: {Path: a}\n", "4:12: Behaviors must be a sequence"},
        {behavior("{Path: a, UserRequestable: 1}"), "5:32: UserRequestable must be true or false"},
        {behavior("{Path: a, Conditions: {t: [[]]}}"), "5:32: an entry of 't' of Conditions"},
        {behavior("{Path: a, Tags: {t: [u, v, \"\"]}}"), "5:32: an entry of 't' of Tags"},
        {behavior("{Path: a, Nature: " + std::string(16 * 1024, 'x') + "}"), "none"},
        {behavior("{Path: a, Nature: " + std::string(16 * 1024 + 1, 'x') + "}"),
         "5:23: Nature is longer than 16384 bytes"},
        {kHead + "SupportedLanguages: " + list(1000), "none"},
        {kHead + "SupportedLanguages: " + list(1001),
         "4:21: SupportedLanguages has more than 1000"},
        {behavior("{Path: a, Tags: " + list(1000, ": y") + "}"), "none"},
        {behavior("{Path: a, Tags: " + list(1001, ": y") + "}"), "5:21: Tags has more than 1000"},
        {behaviors(1000), "none"},
        {behaviors(1001), "5:3: there are more than 1000 behaviours"},
        {kHead + room + "#\n", "none"},
        {kHead + room + "##\n", "larger than 1048576 bytes"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(problems(row.manifest), HasSubstr(row.problem)) << row.manifest.substr(0, 100);
}

TEST_F(PackageManifestTest, all_problems_are_told_together)
{
    EXPECT_EQ(problems("ConfigurationVersion: 1\nUuid: a b\nX: 1\n"),
              "3:1: a manifest has no 'X'\n"
              "2:7: the Uuid 'a b' holds other characters than letters, digits, '.', '_' and '-'\n"
              "1:1: there is no Version");
    std::filesystem::remove(folder.path() + "/" + kPackageManifestFile);
    EXPECT_THROW(readPackageManifest(folder.path()), PackageManifestError);
}

}  // namespace
}  // namespace KR
