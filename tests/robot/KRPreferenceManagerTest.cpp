#include <cmath>
#include <csignal>
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/kr/KRError.h"
#include "robot/KRPreferenceManager.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

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
    const std::vector<KRValue> values = {true,
                                         7,
                                         std::int64_t{1} << 62,
                                         0.1,
                                         2.0,
                                         "NAN",
                                         "",
                                         u8"\u00e9\n\"",
                                         KRValue::Array{1, KRValue::Array{}, "x"}};
    for (const std::string& file : {path, std::string()}) {
        restart(file);
        EXPECT_EQ(KRValue(preferences->getValueList(domain)).toDisplayString(),
                  R"([["EZAngle", "90.0"], ["EZDist1", "1.5"], ["EZDist2", "2.5"], )"
                  R"(["PPMaxDist", "3.5"]])");
        EXPECT_EQ(preferences->getValue(domain, "EZDist2"), KRValue("2.5"));
        preferences->setValue(domain, "EZAngle", "45");
        for (std::size_t i = 0; i < values.size(); ++i)
            preferences->setValue("d", std::to_string(i), values[i]);
        if (!file.empty())
            restart(file);
        for (std::size_t i = 0; i < values.size(); ++i)
            EXPECT_EQ(preferences->getValue("d", std::to_string(i)), values[i]);
        EXPECT_EQ(preferences->getValue(domain, "EZAngle"), KRValue("45"));
        EXPECT_EQ(KRValue(preferences->getValueList(domain)[0]),
                  KRValue(KRValue::Array{"EZAngle", "45"}));
        EXPECT_THAT(preferences->getDomainList(), ElementsAre(domain, "d"));
        for (const char* key : {"EZAngle", "EZAngle", "none"})
            preferences->removeValue(domain, key);
        for (std::size_t i = 1; i < values.size(); ++i)
            preferences->removeValue("d", std::to_string(i));
        if (!file.empty())
            restart(file);
        EXPECT_EQ(preferences->getValue(domain, "EZAngle"), KRValue("90.0"));
        EXPECT_EQ(preferences->getValueList("d").size(), 1U);
        preferences->removeValue("d", "0");
        EXPECT_THAT(preferences->getDomainList(), ElementsAre(domain));
    }
    EXPECT_THROW(preferences->getValue("d", "none"), KRError);
    EXPECT_THROW(preferences->getValue("none", "0"), KRError);
    EXPECT_EQ(errors(), 0U);
}

TEST_F(KRPreferenceManagerTest, value_that_cannot_be_kept_is_refused_and_the_old_one_stays)
{
    KRValue deepest = KRValue::Array{};
    for (int i = 1; i < PreferenceFile::kMaxDepth; ++i)
        deepest = KRValue::Array{deepest};
    const KRValue deep = KRValue::Array{deepest};
    // So that the file is as long as it may be.
    const std::string longest(
        PreferenceFile::kMaxBytes - PreferenceFile::text({{"d", {{"k", ""}}}}).size(), 'x');
    for (const std::string& file : {path, std::string()}) {
        restart(file);
        preferences->setValue("d", "k", 1);
        for (const KRValue& value :
             {KRValue(), KRValue(std::nan("")), KRValue(INFINITY), deep, KRValue("\xff"),
              KRValue(KRValue::Binary{1}), KRValue(longest + "x")})
            EXPECT_THROW(preferences->setValue("d", "k", value), KRError);
        EXPECT_THROW(preferences->setValue("", "k", 1), KRError);
        EXPECT_THROW(preferences->setValue("d", "", 1), KRError);
        EXPECT_EQ(preferences->getValue("d", "k"), KRValue(1));
    }
    for (const KRValue& value : {deepest, KRValue(longest), KRValue(1)}) {
        restart(path);
        preferences->setValue("d", "k", value);
        restart(path);
        EXPECT_TRUE(preferences->getValue("d", "k") == value);
    }
    EXPECT_EQ(errors(), 0U);
    std::filesystem::remove_all(folder.path());
    EXPECT_THROW(preferences->setValue("d", "k", 2), KRError);
    EXPECT_EQ(preferences->getValue("d", "k"), KRValue(1));
}

TEST_F(KRPreferenceManagerTest, damaged_file_is_set_aside_and_reported)
{
    const std::string damages[] = {
        "",
        "{",
        "[]",
        "{\"d\": 1}",
        "{\"d\": {\"k\": {}}}",
        "{\"d\": {\"k\": null}}",
        "{\"d\": {\"k\": 18446744073709551615}}",
        std::string(1'000'000, '['),
        "{\"d\": {\"k\": " + std::string(100, '[') + std::string(100, ']') + "}}",
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

// Needs a process that can be killed. It is killed when it says so, not after a time.
TEST_F(KRPreferenceManagerTest, what_was_set_survives_a_kill)
{
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const PreferenceFile file(path);
        for (int i = 0;; ++i) {
            file.write({{"d", {{"k", i}, {"text", std::string(10'000, 'x')}}}});
            if (::write(pipe[1], &i, sizeof i) != sizeof i)
                ::_exit(1);
        }
    }
    int last = 0;
    while (last < 20)
        ASSERT_EQ(::read(pipe[0], &last, sizeof last), ssize_t{sizeof last});
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    ::close(pipe[0]);
    ::close(pipe[1]);
    folder.write("preferences.new", "{\"d\": {\"k");  // as one more killed while writing leaves it
    restart(path);
    EXPECT_GE(preferences->getValue("d", "k").toInt(), 20);
    EXPECT_EQ(preferences->getValue("d", "text").toString().size(), 10'000U);
    preferences->setValue("d", "k", "new");
    restart(path);
    EXPECT_EQ(preferences->getValue("d", "k"), KRValue("new"));
    EXPECT_EQ(errors(), 0U);
}

}  // namespace
}  // namespace KR
