#include <cmath>
#include <gmock/gmock.h>

#include "platform/kr/KRError.h"
#include "robot/KRPreferenceManager.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using List = KRValue::Array;

struct KRPreferenceManagerTest : testing::Test {
    /// The robot starts anew.
    void restart(const std::string& file)
    {
        preferences.reset();
        preferences = KRModule::createModule<KRPreferenceManager>(platform.broker, file);
    }
    std::size_t errors() { return platform.log.lines(vo::LogLevel::error).size(); }

    VirtualPlatform platform;
    TemporaryFolder folder;
    const std::string path = folder.path() + "/preferences";
    boost::shared_ptr<KRPreferenceManager> preferences;
};

TEST_F(KRPreferenceManagerTest, values_survive_a_restart_in_their_types)
{
    const std::string domain = "com.halvex.nimbra.PerceptionHeavyPlugin";
    const List nested{1, List{}, "x"};
    const List values{true, 7, std::int64_t{1} << 62, 0.1, 2.0, "NAN", "", u8"\u00e9\n\"", nested};
    const auto all = [&](const std::string& angle) {
        EXPECT_EQ(KRValue(preferences->getValueList(domain)).toDisplayString(),
                  "[[\"EZAngle\", \"" + angle +
                      "\"], [\"EZDist1\", \"1.5\"], "
                      "[\"EZDist2\", \"2.5\"], [\"PPMaxDist\", \"3.5\"]]");
        EXPECT_EQ(preferences->getValue(domain, "EZAngle"), KRValue(angle));
    };
    for (const std::string& file : {path, std::string()}) {
        const auto mayRestart = [&] { file.empty() ? void() : restart(file); };
        restart(file);
        all("90.0");
        preferences->setValue(domain, "EZAngle", "45");
        for (std::size_t i = 0; i < values.size(); ++i)
            preferences->setValue("d", std::to_string(i), values[i]);
        mayRestart();
        for (std::size_t i = 0; i < values.size(); ++i)
            EXPECT_EQ(preferences->getValue("d", std::to_string(i)), values[i]);
        all("45");
        EXPECT_THAT(preferences->getDomainList(), ElementsAre(domain, "d"));
        for (const char* key : {"EZAngle", "EZAngle", "none"})
            preferences->removeValue(domain, key);
        for (std::size_t i = 1; i < values.size(); ++i)
            preferences->removeValue("d", std::to_string(i));
        mayRestart();
        all("90.0");
        EXPECT_EQ(preferences->getValueList("d").size(), 1U);
        preferences->removeValue("d", "0");
        EXPECT_THAT(preferences->getDomainList(), ElementsAre(domain));
    }
    for (const char* unknown : {"d", "none"})
        EXPECT_THROW(preferences->getValue(unknown, "0"), KRError);
    EXPECT_EQ(errors(), 0U);
}

TEST_F(KRPreferenceManagerTest, value_that_cannot_be_kept_is_refused_and_the_old_one_stays)
{
    KRValue deepest = List{};
    for (int i = 1; i < PreferenceFile::kMaxDepth; ++i)
        deepest = List{deepest};
    const KRValue deep = List{deepest};
    // So that the file is as long as it may be.
    const std::string longest(
        PreferenceFile::kMaxBytes - PreferenceFile::text({{"d", {{"k", ""}}}}).size(), 'x');
    for (const std::string& file : {path, std::string()}) {
        restart(file);
        preferences->setValue("d", "k", 1);
        for (const KRValue& value : List{KRValue(), std::nan(""), INFINITY, deep, "\xff",
                                         KRValue::Binary{1}, longest + "x"})
            EXPECT_THROW(preferences->setValue("d", "k", value), KRError);
        EXPECT_THROW(preferences->setValue("", "k", 1), KRError);
        EXPECT_THROW(preferences->setValue("d", "", 1), KRError);
        EXPECT_EQ(preferences->getValue("d", "k"), KRValue(1));
    }
    for (const KRValue& value : List{deepest, longest, 1}) {
        restart(path);
        preferences->setValue("d", "k", value);
        restart(path);
        EXPECT_TRUE(preferences->getValue("d", "k") == value);
    }
    folder.write("preferences.new", "{\"d\": {\"k");  // as one killed while writing leaves it
    restart(path);
    preferences->setValue("d", "k", 2);
    EXPECT_EQ(errors(), 0U);
    std::filesystem::create_directory(path + ".new");  // a file is never written in its place
    EXPECT_THROW(preferences->setValue("d", "k", 3), KRError);
    EXPECT_EQ(preferences->getValue("d", "k"), KRValue(2));
    restart(path);
    EXPECT_EQ(preferences->getValue("d", "k"), KRValue(2));
}

TEST_F(KRPreferenceManagerTest, damaged_file_is_set_aside_and_reported)
{
    const std::string damages[] = {
        "",
        "{",
        "[]",
        R"({"d": 1})",
        R"({"d": {"k": {}}})",
        R"({"d": {"k": null}})",
        R"({"d": {"k": 18446744073709551615}})",
        std::string(1'000'000, '['),
        R"({"d": {"k": )" + std::string(100, '[') + std::string(100, ']') + "}}",
        std::string(5'000'000, ' ')};
    for (const std::string& damage : damages) {
        folder.write("preferences", damage);
        platform.log.clear();
        restart(path);
        EXPECT_EQ(errors(), 1U) << damage.substr(0, 50);
        EXPECT_EQ(std::filesystem::file_size(path + ".damaged"), damage.size());
        preferences->setValue("d", "k", 1);
        restart(path);
        EXPECT_EQ(preferences->getValue("d", "k"), KRValue(1));
    }
    // What is no file is not touched.
    restart(folder.path());
    EXPECT_THAT(platform.log.lines(vo::LogLevel::error).back(), HasSubstr("no regular file"));
    preferences->setValue("d", "k", 2);
    EXPECT_EQ(preferences->getValue("d", "k"), KRValue(2));
}

}  // namespace
}  // namespace KR
