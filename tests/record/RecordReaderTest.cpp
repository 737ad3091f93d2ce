#include <boost/algorithm/string.hpp>

#include "tests/record/RecordTest.h"

namespace KR {
namespace {

class RecordReaderTest : public RecordTest {
protected:
    /// What comes of a file with that content.
    struct Reading {
        std::string refusal = {};
        std::vector<std::string> texts = {};
        std::vector<std::string> told = {};
    };
    Reading read(const std::string& content) const
    {
        try {
            const ReadRecord reading(folder.write("read", content));
            return {"", reading.texts, reading.told()};
        } catch (const NoRecording& e) {
            return {e.what()};
        }
    }
    static bool isBeginning(const std::vector<std::string>& part,
                            const std::vector<std::string>& whole)
    {
        return part.size() <= whole.size() && std::equal(part.begin(), part.end(), whole.begin());
    }
};

TEST_F(RecordReaderTest, ARecordingCutAnywhereGivesItsWholeLines)
{
    for (const bool packed : {false, true}) {
        const std::string whole = contentOf(record(packed ? "packed.zst" : "plain", 4));
        const auto texts = read(whole).texts;
        ASSERT_EQ(texts.size(), 4U);
        for (std::size_t size = 0; size < whole.size(); ++size) {
            const Reading cut = read(whole.substr(0, size));
            EXPECT_TRUE(isBeginning(cut.texts, texts)) << size;
            EXPECT_TRUE(!cut.refusal.empty() || !cut.told.empty()) << size;
            EXPECT_LE(cut.told.size(), 2U) << size;
            const std::string kept = whole.substr(0, size);
            const auto lines = std::count(kept.begin(), kept.end(), '\n');
            if (!packed && lines > 0) {
                EXPECT_EQ(cut.texts.size(), std::min<std::size_t>(lines - 1, 4)) << size;
            }
        }
    }
}

TEST_F(RecordReaderTest, NoFlippedBitGoesUnnoticedOrCostsMoreThanTheLinesItTouches)
{
    for (const bool packed : {false, true}) {
        const std::string whole =
            contentOf(record(packed ? "packed.zst" : "plain", 3, "Ab\xc3\xa4\""));
        const auto texts = read(whole).texts;
        for (std::size_t bit = 0; bit < 8 * whole.size(); bit += 3) {
            std::string flipped = whole;
            flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
            const Reading got = read(flipped);
            for (const std::string& text : got.texts)
                EXPECT_THAT(texts, Contains(text)) << bit;
            if (packed && got.refusal.empty() && got.told.empty()) {
                EXPECT_EQ(got.texts, texts) << bit << ": it means nothing";
            }
            if (packed)
                continue;
            EXPECT_FALSE(got.refusal.empty() && got.told.empty()) << bit;
            EXPECT_TRUE(got.texts.size() + 2 >= texts.size() || !got.refusal.empty()) << bit;
            EXPECT_LE(got.told.size(), 3U) << bit;
        }
    }
}

TEST_F(RecordReaderTest, LinesOutOfOrderDoubledOrMissingAreToldOnceWithTheirPlace)
{
    std::vector<std::string> lines;
    const std::string whole = contentOf(record("whole", 6));
    boost::split(lines, whole, [](char c) { return c == '\n'; });
    const auto all = read(whole).texts;
    // The lines, by their numbers; the events that are given; what is told.
    const struct {
        std::vector<int> lines;
        std::vector<int> events;
        std::vector<std::string> told;
    } rows[] = {
        {{1, 2, 3, 4, 5, 6, 7, 8}, {1, 2, 3, 4, 5, 6}, {}},
        {{1, 2, 3, 3, 4, 5, 6, 7, 8, 8},
         {1, 2, 3, 4, 5, 6},
         {"4: the line with the number 3 stands twice",
          "10: the line with the number 8 stands twice"}},
        {{1, 2, 3, 5, 6, 7, 8}, {1, 2, 4, 5, 6}, {"4: line 4 is missing before it"}},
        {{1, 2, 6, 7, 8}, {1, 5, 6}, {"3: lines 3 to 5 are missing before it"}},
        {{1, 2, 4, 3, 5, 6, 7, 8},
         {1, 2, 4, 5, 6},
         {"3: the line with the number 4 is damaged, or not in its place"}},
        {{1, 2, 3, 4, 5, 6, 7, 2, 3, 8},
         {1, 2, 3, 4, 5, 6},
         {"8: the line with the number 2 is not in its place",
          "9: the line with the number 3 is damaged, or not in its place"}},
        {{1, 2, 3, 4, 5, 6, 8, 7},
         {1, 2, 3, 4, 5},
         {"7: line 7 is missing before it", "8: there is something after the last line"}},
        {{1, 2, 3}, {1, 2}, {"0: it was not closed"}},
        {{2, 3, 4, 5, 6, 7, 8}, {1, 2, 3, 4, 5, 6}, {"1: line 1 is missing before it"}},
    };
    for (const auto& row : rows) {
        std::string content;
        std::vector<std::string> texts;
        for (const int line : row.lines)
            content += lines[std::size_t(line) - 1] + "\n";
        for (const int each : row.events)
            texts.push_back(all[std::size_t(each) - 1]);
        const Reading got = read(content);
        EXPECT_EQ(got.texts, texts) << testing::PrintToString(row.lines);
        ASSERT_EQ(got.told.size(), row.told.size()) << testing::PrintToString(got.told);
        for (std::size_t i = 0; i < row.told.size(); ++i)
            EXPECT_THAT(got.told[i], testing::StartsWith(row.told[i]));
    }
}

TEST_F(RecordReaderTest, WhatIsNoRecordingOrALaterOneIsRefused)
{
    const std::string whole = contentOf(record("whole", 2));
    const std::pair<std::string, const char*> rows[] = {
        {"", "is no recording"},
        {"\n\n", "is no recording"},
        {std::string(100'000, 'x'), "is no recording"},
        {"{\"n\":1}\n", "is no recording"},
        {"\x28\xb5\x2f\xfd nonsense", "is no recording"},
        {boost::replace_first_copy(whole, "\"version\":1,\"program\":\"1.2.3\"", "\"version\":2"),
         "of version 2; this program reads versions up to 1"},
        {boost::replace_first_copy(whole, "nimbra recording", "other recording"), ""},
    };
    for (const auto& [content, refusal] : rows)
        EXPECT_THAT(read(content).refusal, HasSubstr(refusal)) << content;
    EXPECT_EQ(read(rows[6].first).told.size(), 1U);
    for (const std::string& path : {folder.path(), folder.path() + "/none"})
        EXPECT_THROW(RecordReader(path, {}), std::system_error);
    // A file that becomes shorter while it is read.
    record("shrinks", 20'000);
    ReadRecord begun(folder.path() + "/whole");
    RecordReader reader(folder.path() + "/shrinks",
                        [&](const RecordProblem& each) { begun.problems.push_back(each); });
    EXPECT_TRUE(reader.next());
    std::ofstream(folder.path() + "/shrinks", std::ios::trunc).close();
    begun.readFrom(reader);
    EXPECT_LT(begun.given.size(), 20'000U);
    EXPECT_THAT(begun.told().back(), HasSubstr("not closed"));
}

/// Version 1, as another program has written it.
TEST_F(RecordReaderTest, RecordingsOfEveryVersionAreRead)
{
    const ReadRecord read(NIMBRA_TEST_RECORDS "/version-1.jsonl");
    EXPECT_THAT(read.told(), IsEmpty());
    EXPECT_THAT(read.given,
                ElementsAre("again 1", "again 9", "state 71", "71", "gap 72-73", "74", "75"));
    RecordReader reader(NIMBRA_TEST_RECORDS "/version-1.jsonl", {});
    EXPECT_EQ(reader.header().file, 2U);
    ASSERT_TRUE(reader.seekCheckpoint(vo::TimePoint::max()));
    EXPECT_EQ(std::get<RecordCheckpoint>(*reader.next()).state,
              R"({"life":["solitary",1.0,null]})");
}

TEST_F(RecordReaderTest, SeekingGoesToTheFirstEntryThatIsNotBeforeTheTime)
{
    for (const char* name : {"plain", "packed.zst"}) {
        constexpr int kEvents = 30'000;
        ReadRecord read(record(name, kEvents));
        EXPECT_THAT(read.told(), IsEmpty());
        RecordReader reader(folder.path() + "/" + name,
                            [&](const RecordProblem& each) { read.problems.push_back(each); });
        const auto firstFrom = [&](double second) {
            reader.seek(start + vo::Duration(std::int64_t(second * 1e6)));
            const auto entry = reader.next();
            return entry ? std::get<RecordedEvent>(*entry).event.number : 0;
        };
        for (const int second : {1, 2, 14'999, 15'617, 1, 29'999, kEvents}) {
            EXPECT_EQ(firstFrom(second), std::uint64_t(second)) << name;
            EXPECT_EQ(firstFrom(second - 0.5), std::uint64_t(second)) << name;
        }
        EXPECT_EQ(firstFrom(-5), 1U);
        EXPECT_EQ(firstFrom(29'000.5), 29'001U);
        read.given.clear();
        read.readFrom(reader);
        EXPECT_EQ(read.given.size(), 999U) << "and all that comes after it";
        EXPECT_EQ(firstFrom(kEvents + 1), 0U);
        EXPECT_THAT(read.told(), IsEmpty());
    }
}

TEST_F(RecordReaderTest, SeekingACheckpointGivesTheLastWholeOneAndWhatFollows)
{
    constexpr std::uint64_t kEvents = 8000;
    for (const char* name : {"plain", "packed.zst"}) {
        const std::string path = folder.path() + "/" + name;
        RecordFile file(path, {});
        number = 0;
        while (number < kEvents) {
            const Event next = event(std::string(number == 5000 ? 300'000 : 100, 'x'));
            if (next.number % 1000 == 6 || next.number == 5005)
                file.add(RecordCheckpoint{next.number, next.time, R"({"a":[1.0]})"});
            file.add(RecordedEvent{next});
            if (next.number % 500 == 0)
                file.flush();
        }
        file.end();
        const bool isDamaged = name == std::string("plain");
        if (isDamaged)
            folder.write(name, boost::replace_first_copy(contentOf(path), "\"before\":3006",
                                                         "\"before\":3005"));
        RecordReader reader(path, [](const RecordProblem&) {});
        const std::pair<std::uint64_t, std::uint64_t> rows[] = {
            {6, 6},       {5, 0},       {7999, 7006}, {9999, 7006}, {4005, isDamaged ? 2006 : 3006},
            {5005, 5005}, {5006, 5006}, {5004, 4006}};
        for (const auto& [second, before] : rows) {
            EXPECT_EQ(reader.seekCheckpoint(start + std::chrono::seconds(second)), before != 0);
            const auto entry = reader.next();
            const auto* const checkpoint = std::get_if<RecordCheckpoint>(&*entry);
            EXPECT_EQ(checkpoint ? checkpoint->before : 0, before);
        }
        ReadRecord rest(path);
        rest.given.clear();
        EXPECT_TRUE(reader.seekCheckpoint(vo::TimePoint::max()));
        EXPECT_EQ(std::get<RecordCheckpoint>(*reader.next()).before, 7006U);
        rest.readFrom(reader);
        EXPECT_EQ(rest.given.size(), kEvents - 7005);
    }
}

}  // namespace
}  // namespace KR
