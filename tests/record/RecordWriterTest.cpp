#include <csignal>
#include <filesystem>
#include <random>
#include <sys/resource.h>

#include "tests/record/RecordTest.h"
#include "tests/support/Deadline.h"

namespace KR {
namespace {

namespace fs = std::filesystem;

class RecordWriterTest : public RecordTest {
protected:
    std::string randomText(std::size_t size)
    {
        std::string text(size, ' ');
        for (char& c : text)
            c = static_cast<char>('a' + random() % 26);
        return text;
    }

    std::minstd_rand random;
};

TEST_F(RecordWriterTest, WhatIsTakenIsReadBack)
{
    std::vector<std::string> lines;
    std::ifstream file(NIMBRA_TEST_RECORDS "/events.jsonl");
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    for (const char* name : {"plain", "packed.zst"}) {
        RecordWriter writer(clock, options(name));
        for (std::size_t i = 0; i < lines.size(); ++i) {
            writer.take(decodeEvent(lines[i]));
            if (i % 30 == 0)
                clock->advance(RecordWriter::kDelay);
        }
        writer.close();
        writer.take(event());
        EXPECT_TRUE(writer.isComplete());
        const ReadRecord read(options(name).path);
        EXPECT_EQ(read.texts, lines);
        EXPECT_THAT(read.told(), IsEmpty());
        RecordReader reader(options(name).path, {});
        EXPECT_EQ(reader.header().program, "1.2.3");
        EXPECT_GE(reader.header().time, start);
    }
    EXPECT_LT(fs::file_size(options("packed.zst").path), fs::file_size(options("plain").path) / 2);
    EXPECT_THAT(log.lines(vo::LogLevel::warning), IsEmpty());
}

TEST_F(RecordWriterTest, WithinASecondEverythingIsWithTheSystem)
{
    static_assert(RecordWriter::kDelay < std::chrono::seconds(1));
    for (const char* name : {"plain", "packed.zst"}) {
        number = 0;
        RecordWriter writer(clock, options(name));
        writer.take(event());
        EXPECT_EQ(contentOf(options(name).path), "");
        clock->advance(std::chrono::milliseconds(700));
        writer.take(event());
        clock->advance(std::chrono::milliseconds(50));
        writer.take(event());
        const ReadRecord read(options(name).path);
        EXPECT_THAT(read.given, ElementsAre("1", "2"));
        EXPECT_THAT(read.told(), ElementsAre(HasSubstr("not closed")));
    }
}

TEST_F(RecordWriterTest, WhatComesTooFastOrIsTooLargeIsAGapInItsPlace)
{
    KRValue deep;
    for (std::size_t i = 0; i <= kMaxRecordedDepth; ++i)
        deep = KRValue::Array{deep};
    const KRValue picture(KRValue::Binary(RecordQueue::kMaxBytes / 2 + 1));
    const auto write = [this](const KRValue& value) {
        Event written = event();
        written.what = KeyWritten{"K", value};
        return written;
    };
    RecordWriter writer(clock, options("gaps"));
    writer.take(write(deep));
    while (number < RecordQueue::kMaxEvents)
        writer.take(event());
    EXPECT_TRUE(writer.isComplete());
    writer.take(event());
    writer.take(event());
    EXPECT_FALSE(writer.isComplete());
    clock->advance(RecordWriter::kDelay);
    for (const Event& each :
         {event(), write(picture), write(picture), event(), write(picture), write(picture)})
        writer.take(each);
    writer.close();

    const ReadRecord read(options("gaps").path);
    EXPECT_THAT(read.told(), IsEmpty());
    EXPECT_EQ(read.given.at(0) + ", " + read.given.at(1), "gap 1-1, 2");
    EXPECT_THAT(std::vector(read.given.end() - 7, read.given.end()),
                ElementsAre("65536", "gap 65537-65538", "65539", "gap 65540-65540",
                            "gap 65541-65541", "65542", "gap 65543-65544"))
        << "a picture is too large for a line, two are for the queue";
    EXPECT_EQ(log.lines(vo::LogLevel::warning).size(), 3U) << "a full queue is told once";
}

/// On real threads: more than waits at once.
TEST_F(RecordWriterTest, WhoMayWaitLosesNothing)
{
    constexpr std::uint64_t kEvents = RecordQueue::kMaxEvents / 4 * 5;
    const Deadline deadline;
    RecordWriter::Options waiting = options("waiting.zst");
    waiting.waits = true;
    RecordWriter writer(vo::makeRealClock(), waiting);
    while (number < kEvents)
        writer.take(event());
    writer.close();
    EXPECT_TRUE(writer.isComplete());
    const ReadRecord read(waiting.path);
    EXPECT_THAT(read.told(), IsEmpty());
    ASSERT_EQ(read.given.size(), kEvents);
    for (std::uint64_t i = 0; i < kEvents; ++i)
        ASSERT_EQ(read.given[i], std::to_string(i + 1));
}

TEST_F(RecordWriterTest, ARingKeepsToItsLimitsAndEachFileCanBeReadAlone)
{
    for (const char* name : {"ring", "ring.zst"}) {
        number = 0;
        RecordWriter::Options ring = options(name);
        ring.limits.bytes = RecordRing::kMinBytes;
        ring.checkpoint = [this] { return "{\"last\":" + std::to_string(number) + "}"; };
        const auto bytesOnDisk = [&] {
            std::uint64_t bytes = 0;
            for (const auto& file : fs::directory_iterator(folder.path()))
                bytes += file.path().filename().string().find(name) == 0 ? file.file_size() : 0;
            return bytes;
        };
        for (int run = 0; run < 2; ++run) {
            RecordWriter writer(clock, ring);
            Event first = event();
            first.what = RunBegan();
            writer.take(first);
            for (int i = 0; i < 1500; ++i) {
                writer.take(event(randomText(3000)));
                clock->advance(RecordWriter::kDelay);
                ASSERT_LE(bytesOnDisk(), RecordRing::kMinBytes);
            }
            fs::remove(ring.path + ".2");  // as a kill between two renames would leave it
        }
        EXPECT_GT(bytesOnDisk(), RecordRing::kMinBytes / 2);
        std::string last = std::to_string(number);
        for (const std::string& path : {ring.path, ring.path + ".1"}) {
            const ReadRecord read(path);
            EXPECT_THAT(read.told(), IsEmpty()) << path;
            EXPECT_EQ(read.given.back(), last) << path;
            EXPECT_THAT(read.given[0] + ", " + read.given[1], "again 1502, state " + read.given[2]);
            last = std::to_string(std::stoull(read.given[2]) - 1);
        }
    }
}

TEST_F(RecordWriterTest, CheckpointsComeAfterSoManyEventsOrSoMuchTime)
{
    int asked = 0;
    RecordWriter::Options often = options("often");
    often.checkpoint = [&] { return ++asked == 3 ? "no JSON" : std::to_string(asked); };
    often.checkpointEvents = 3;
    often.checkpointTime = std::chrono::seconds(10);
    RecordWriter writer(clock, often);
    for (const int second : {0, 9, 9, 9, 18, 19, 29, 30, 40, 41, 41, 41}) {
        Event next = event();
        next.uptime = std::chrono::seconds(second);
        writer.take(next);
    }
    writer.close();
    EXPECT_TRUE(writer.isComplete());
    EXPECT_THAT(ReadRecord(often.path).given,
                ElementsAre("1", "2", "3", "state 4", "4", "5", "state 6", "6", "7", "8", "state 9",
                            "9", "10", "11", "state 12", "12"))
        << "the third, before 7, could not be written";
    EXPECT_THAT(log.lines(vo::LogLevel::error), ElementsAre(HasSubstr("no JSON")));
}

TEST_F(RecordWriterTest, WhatIsOlderThanTheAgeGoes)
{
    RecordWriter::Options ring = options("ring");
    ring.limits.age = std::chrono::hours(8);
    RecordWriter writer(clock, ring);
    for (int hour = 0; hour < 30; ++hour) {
        writer.take(event());
        clock->advance(std::chrono::hours(1));
    }
    writer.close();
    std::vector<std::string> firsts;
    for (std::string path = ring.path; fs::exists(path);
         path = ring.path + "." + std::to_string(firsts.size()))
        firsts.push_back(ReadRecord(path).given.front());
    EXPECT_THAT(firsts, ElementsAre("29", "27", "25", "23", "21"));
}

TEST_F(RecordWriterTest, ADiskThatFailsEndsTheRecordingOnceWithWhatIsWhole)
{
    folder.write("notes.txt", "not\nmine\n");
    const std::pair<std::string, std::string> rows[] = {
        {"/dev/full", "No space left"},
        {folder.path(), "Is a directory"},
        {folder.path() + "/none/x", "No such file"},
        {folder.path() + "/notes.txt", "is no recording, so it is not overwritten"}};
    for (const auto& [path, problem] : rows) {
        log.clear();
        RecordWriter writer(clock, {path, ""});
        for (int i = 0; i < 3; ++i) {
            writer.take(event());
            clock->advance(RecordWriter::kDelay);
        }
        writer.close();
        EXPECT_FALSE(writer.isComplete());
        EXPECT_THAT(log.lines(vo::LogLevel::error),
                    ElementsAre(testing::AllOf(HasSubstr("recording ends"), HasSubstr(problem))));
    }
    EXPECT_EQ(contentOf(folder.path() + "/notes.txt"), "not\nmine\n");

    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    for (const char* name : {"plain", "packed.zst"}) {
        number = 0;
        RecordWriter writer(clock, options(name));
        const rlimit limit{5000, before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
        for (int i = 0; i < 5; ++i) {
            writer.take(event(randomText(1500)));
            clock->advance(RecordWriter::kDelay);
        }
        writer.close();
        setrlimit(RLIMIT_FSIZE, &before);
        const ReadRecord read(options(name).path);
        EXPECT_GE(read.given.size(), 2U);
        EXPECT_THAT(read.told(), ElementsAre(HasSubstr("not closed"))) << "no line is torn";
    }
}

}  // namespace
}  // namespace KR
