#include <filesystem>
#include <fstream>

#include "life/EventStream.h"
#include "life/Life.h"
#include "platform/kr/KRMemory.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

const std::string kRules = R"({ConfigurationDescription: d, ConfigurationVersion: 2,
  AutonomousActions: [
    {Description: held, Condition: "'K' == 1 for 100 s", Action: StopAll,
     ExecuteAnyTimeConditionEdgeTrue: true},
    {Description: counted, Condition: "count('K' == 1, 200 s) >= 2", Action: StopAll,
     ExecuteAnyTimeConditionEdgeTrue: true}]})";

class HistoryKeeperTest : public testing::Test {
protected:
    /// One life of a program: it starts at that time, K becomes true after `idle` and stays so for
    /// `length`, if that is any, and it ends. Returns which rules were hit.
    std::string live(vo::Duration start, vo::Duration idle, vo::Duration length)
    {
        VirtualPlatform platform;
        platform.clock->jumpWallClock(start);
        std::string hits;
        EventStream events(platform.clock);
        const vo::Connection told = events.happened.connect([&hits](const Event& event) {
            if (const auto* const hit = std::get_if<RuleProposed>(&event.what))
                hits += hit->rule.name + " ";
        });
        Life life(platform.broker, events,
                  {folder.write("rules.cfg", kRules), "", {}, {}, folder.path() + "/state"});
        life.start();
        platform.advance(idle);
        if (length > 0s)
            platform.memory().raiseEvent("K", 1);
        platform.advance(length);
        life.stop();
        for (const vo::LogRecord& record : platform.log.records()) {
            if (record.category == "Nimbra.History")
                log += record.text + "\n";
        }
        return hits;
    }

    const TemporaryFolder folder;
    const std::string file = folder.path() + "/state/histories.json";
    std::string log;
};

TEST_F(HistoryKeeperTest, HoldsAndCountsGoOnAfterAShortAbsence)
{
    const struct {
        const char* what;
        vo::Duration start;
        vo::Duration idle;
        std::string did;
    } rows[] = {
        {"at once: 70 s and then 30", 70s, 0s, "held "},
        {"the longest absence", 670s, 0s, "held "},
        {"one second more", 671s, 0s, ""},
        {"the last moment to become true again", 70s, 60s, "held "},
        {"one second too late", 70s, 61s, ""},
        {"the clock went back", 69s, 0s, ""},
    };
    for (const auto& row : rows) {
        fs::remove_all(folder.path() + "/state");
        EXPECT_EQ(live(0s, 0s, 70s), "");
        EXPECT_EQ(live(row.start, row.idle, 30s), row.did) << row.what;
        EXPECT_EQ(live(row.start + row.idle + 30s, 0s, 69s), row.did.empty() ? "" : "held ")
            << "once more, after: " << row.what;
    }
    EXPECT_THAT(log, HasSubstr("Holds and counts begin anew: they were kept 601 s ago\n"));
    EXPECT_THAT(log, HasSubstr("Holds and counts begin anew: they were kept -1 s ago\n"));
}

TEST_F(HistoryKeeperTest, WhatWaitsToGoOnOutlivesTheNextRestartToo)
{
    live(0s, 0s, 70s);
    EXPECT_EQ(live(70s, 30s, 0s), "");
    EXPECT_EQ(live(100s, 20s, 1s), "held ");
    live(200s, 0s, 70s);
    EXPECT_EQ(live(270s, 61s, 0s), "");
    EXPECT_EQ(live(331s, 0s, 1s), "") << "its time was over";
}

TEST_F(HistoryKeeperTest, ADamagedFileIsSetAsideAndAllBeginsAnew)
{
    const std::string good = R"({"version": 1, "saved": 1728000070000000, "parts": {)";
    const std::string rows[] = {
        "",
        R"({"version": 2, "saved": 0, "parts": {}})",
        good + R"("x": {"true": true, "instants": [1728000070000001]}}})",
        good + R"("x": {"true": true, "instants": [2, 1]}}})",
        good + R"("x": {"instants": [1]}}})",
        good + R"("x": {"true": true, "instants": [-9223372036854775808]}}})",
        good + R"("x": {"true": true, "instants": [1e300]}}})",
        R"({"version": 1, "saved": -9223372036854775808, "parts": {}})",
    };
    for (const std::string& content : rows) {
        log.clear();
        folder.write("state/histories.json", content);
        EXPECT_EQ(live(70s, 0s, 30s), "") << content;
        EXPECT_THAT(log, HasSubstr(file + " is damaged, and is now " + file + ".damaged"))
            << content;
        EXPECT_EQ(fs::file_size(file + ".damaged"), content.size());
        EXPECT_EQ(live(100s, 0s, 70s), "held ") << "what followed was kept again";
    }
    // What it does not know, and what has nothing to go on with, harms nothing.
    log.clear();
    folder.write("state/histories.json",
                 good + R"("gone": {"true": true, "instants": []}, "x": {"true": false,
                           "instants": [1, 1]}}})");
    EXPECT_EQ(live(70s, 0s, 100s), "held ");
    EXPECT_EQ(log, "");
}

TEST_F(HistoryKeeperTest, AFolderThatCannotBeUsedIsSaidAndLeavesTheRulesAlone)
{
    folder.write("state", "a file");
    EXPECT_THAT(errorOf([&] { live(0s, 0s, 1s); }), HasSubstr("cannot make the state folder "));
    fs::remove(folder.path() + "/state");
    fs::create_directories(file);
    EXPECT_EQ(live(0s, 0s, 100s), "held ");
    EXPECT_EQ(log, "Holds and counts are not kept: " + file + " is no regular file\n");
    EXPECT_TRUE(fs::is_directory(file));
}

}  // namespace
}  // namespace KR
