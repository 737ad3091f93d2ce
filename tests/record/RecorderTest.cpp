#include "life/Life.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/Application.h"
#include "record/Recorder.h"
#include "record/Replay.h"
#include "tests/record/RecordTest.h"

namespace KR {
namespace {

constexpr const char* kTwoRules =
    R"({ConfigurationDescription: d, ConfigurationVersion: 2, AutonomousActions: [
{Description: a, Condition: "'A'", ExecuteAnyTimeConditionEdgeTrue: true, Action: FreezeChain, ActionParameters: {Chain: Arms}},
{Description: b, Condition: "'B'", ExecuteAnyTimeConditionEdgeTrue: true, Action: StopFocus}]})";

class RecorderTest : public RecordTest {
protected:
    std::string path(const std::string& file) const { return folder.path() + "/" + file; }

    /// What was recorded, without what was repeated.
    static std::vector<Event> eventsOf(const std::string& path)
    {
        std::vector<Event> events;
        RecordReader reader(path, [](const RecordProblem& each) { ADD_FAILURE() << each.text; });
        while (const auto entry = reader.next())
            events.push_back(std::get<RecordedEvent>(*entry).event);
        return events;
    }
};

TEST_F(RecorderTest, ALifeIsRecordedFromItsBeginningToItsEndAndCanBeReplayed)
{
    const std::string config = folder.write("my.cfg", kTwoRules);
    {
        vo::Application application(clock);
        const auto broker = KRBroker::create(application);
        EventStream events(clock);
        Recorder recorder(events, clock, {path("life.zst"), config, {"Arms"}});
        const Recorder second(events, clock, {path("second")});
        Life life(broker, events, {config, {}, {}, {"Arms"}});
        life.start();
        for (const char* key : {"A", "B"}) {
            broker->memory().raiseEvent(key, 1);
            clock->runPending();
        }
        life.stop();
        recorder.close();
        recorder.close();
        EXPECT_TRUE(recorder.isComplete());
    }
    const std::vector<Event> events = eventsOf(path("life.zst"));
    const auto& run = std::get<RunBegan>(events.front().what);
    EXPECT_THAT(run.rules, ElementsAre("a", "b"));
    EXPECT_EQ(run.configText, kTwoRules);
    EXPECT_TRUE(std::holds_alternative<RunEnded>(events.back().what));
    EXPECT_EQ(eventsOf(path("second")).size(), events.size() - 1) << "but for the beginning";
    auto next = events.begin();
    const ReplayResult result =
        Replay([&] { return next == events.end() ? std::nullopt : std::optional(*next++); },
               [](const Event&) {})
            .run();
    EXPECT_FALSE(result.difference) << result.difference->text;
    EXPECT_GE(result.decisions, 4U);
}

TEST_F(RecorderTest, ClosedInsideOfAReceiverItKeepsWhatItWasTold)
{
    EventStream events(clock);
    std::optional<Recorder> recorder(std::in_place, events, clock, Recorder::Options{path("r")});
    const vo::Connection after = events.happened.connect([&](const Event& event) {
        if (event.number == 2)
            recorder.reset();
    });
    for (int i = 0; i < 2; ++i)
        events.publish(RemarkMade{"x"});
    EXPECT_EQ(eventsOf(path("r")).size(), 2U);
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
