#include "life/Life.h"
#include "platform/vo/Application.h"
#include "record/Recorder.h"
#include "tests/record/RecordTest.h"

namespace KR {
namespace {

class RecorderTest : public RecordTest {
protected:
    std::string path(const std::string& file) const { return folder.path() + "/" + file; }
};

TEST_F(RecorderTest, ALifeIsRecordedFromItsBeginningToItsEnd)
{
    const std::string config = folder.write("my.cfg", R"({
ConfigurationDescription: d, ConfigurationVersion: 2, AutonomousActions: [
{Description: a, Condition: "'A'", ExecuteAnyTimeConditionEdgeTrue: true, Action: StopFocus},
{Description: b, Condition: "'B'", ExecuteAnyTimeConditionEdgeTrue: true, Action: StopAll}]})");
    vo::Application application(clock);
    EventStream events(clock);
    Recorder recorder(events, clock, {path("life.zst"), config, {"Arms"}});
    Recorder second(events, clock, {path("second")});
    Life life(KRBroker::create(application), events, {config});
    life.start();
    life.stop();
    recorder.close();
    second.close();
    recorder.close();
    EXPECT_TRUE(recorder.isComplete());

    const ReadRecord read(path("life.zst"));
    EXPECT_THAT(read.told(), IsEmpty());
    EXPECT_THAT(read.texts.front(), HasSubstr(R"("rules":["a","b"],"chains":["Arms"])"));
    EXPECT_THAT(read.texts.back(), HasSubstr(R"("event":"end")"));
    EXPECT_EQ(ReadRecord(path("second")).texts,
              std::vector(read.texts.begin() + 1, read.texts.end()));
}

TEST_F(RecorderTest, ClosedInsideOfAReceiverItKeepsWhatItWasTold)
{
    EventStream events(clock);
    std::optional<Recorder> recorder(std::in_place, events, clock, Recorder::Options{path("r")});
    const vo::Connection after = events.happened.connect([&](const Event& event) {
        if (event.number == 2)
            recorder.reset();
    });
    for (int i = 0; i < 3; ++i)
        events.publish(RemarkMade{"x"});
    EXPECT_THAT(ReadRecord(path("r")).given, ElementsAre("1", "2"));
}

TEST_F(RecorderTest, LimitsThatMakeNoSenseAreRefusedBeforeAFileIsMade)
{
    EventStream events(clock);
    for (const auto& [bytes, age] : {std::pair(Recorder::kMinBytes - 1, 0), {std::uint64_t{0}, -1}})
        EXPECT_THROW(Recorder(events, clock, {path("none"), {}, {}, {}, bytes, vo::Duration(age)}),
                     std::invalid_argument);
    EXPECT_FALSE(std::filesystem::exists(path("none")));
}

}  // namespace
}  // namespace KR
