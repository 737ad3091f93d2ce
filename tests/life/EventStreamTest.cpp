#include <algorithm>
#include <thread>

#include "life/EventStream.h"
#include "platform/kr/KRMemoryProxy.h"
#include "platform/kr/KeyCatalogue.h"
#include "tests/support/Deadline.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

class EventStreamTest : public testing::Test {
protected:
    EventStreamTest()
    {
        connection = stream.happened.connect([this](const Event& event) {
            EXPECT_EQ(event.number, first + told.size() + 1);
            if (const auto* const write = std::get_if<KeyWritten>(&event.what))
                told.push_back(write->key + " " + write->value.toDisplayString() +
                               (write->isChange ? "" : " again") +
                               (write->isEarlier ? " earlier" : ""));
            else
                told.push_back(std::get<RemarkMade>(event.what).text);
            react(told.back());
        });
    }
    void say(const std::string& text) { stream.publish(RemarkMade{text}); }

    const Deadline deadline;
    VirtualPlatform platform;
    EventStream stream{platform.clock};
    vo::Connection connection;
    std::vector<std::string> told;  ///< by one thread at a time
    std::size_t first = 0;          ///< events before those
    std::function<void(const std::string&)> react = [](const std::string&) {};
};

TEST_F(EventStreamTest, MemorysChangesComeBeforeWhatIsPublishedAfterThem)
{
    KRMemory& memory = platform.memory();
    memory.raiseEvent("a", 0);
    memory.raiseEvent("a", 1);
    stream.follow(platform.broker);
    for (const int value : {1, 2, 2, 3})
        memory.raiseEvent("a", value);
    memory.raiseEvent("b", 0);
    say("x");
    memory.raiseEvent("a", 4);
    platform.runPending();
    EXPECT_THAT(told, ElementsAre("a 1 earlier", "a 1 again", "a 2", "a 2 again", "a 3", "b 0", "x",
                                  "a 4"));
    told.clear();
    first = 8;
    memory.raiseEvent("a", 5);
    stream.follow(platform.broker);
    memory.raiseEvent("b", 0);
    stream.unfollow();
    memory.raiseEvent("b", 2);
    platform.runPending();
    EXPECT_THAT(told, ElementsAre("a 5", "a 5 earlier", "b 0 earlier", "b 0 again"));
    stream.note(RemarkMade{"y"});
    EXPECT_EQ(told.size(), 4U) << "for who holds locks";
    platform.runPending();
    stream.note(RemarkMade{"z"});
    say("last");
    EXPECT_THAT(std::vector<std::string>(told.begin() + 4, told.end()),
                ElementsAre("y", "z", "last"));
}

TEST_F(EventStreamTest, WriteNamesWhoSaidSoOrElseTheOnlyOneWhoPublishesTheKey)
{
    KRMemory& memory = platform.memory();
    for (const auto& [key, publisher] : {std::pair("one", "p"), {"two", "p"}, {"two", "q"}})
        platform.broker->keys().addPublished(KeyDescription::integer(key, ""), publisher);
    stream.follow(platform.broker);
    std::vector<std::string> writers;
    const auto write = [&](const auto& raise) {
        raise("one");
        raise("two");
        stream.flush();
    };
    const vo::Connection second = stream.happened.connect(
        [&](const Event& event) { writers.push_back(std::get<KeyWritten>(event.what).writer); });
    const MemoryWriter other = memory.writer("other");
    const KRMemoryProxy mine(platform.broker, "mine");
    write([&](const char* key) { memory.raiseEvent(key, 1); });
    write([&](const char* key) { memory.raiseEvent(key, 2, memory.writer("other")); });
    write([&](const char* key) { mine.raiseEvent(key, 3); });
    write([&](const char* key) { memory.raiseEvent(key, 4, other); });
    EXPECT_THAT(writers, ElementsAre("p", "", "other", "other", "mine", "mine", "other", "other"));
}

TEST_F(EventStreamTest, ReceiverPublishesBehindWhatItIsToldAndIsNotWaitedFor)
{
    react = [this](const std::string& text) {
        if (text.size() > 2)
            return;
        say(text + "1");
        say(text + "2");
        stream.flush();
    };
    say("a");
    EXPECT_THAT(told, ElementsAre("a", "a1", "a2", "a11", "a12", "a21", "a22"));
}

TEST_F(EventStreamTest, EveryThreadsEventsAreToldInItsOrderWhenTheStreamIsFlushed)
{
    constexpr int kEach = 500;
    const auto publish = [this](const char* name) {
        for (int i = 0; i < kEach; ++i)
            say(name + std::to_string(i));
        stream.flush();
    };
    std::thread other(publish, "b");
    publish("a");
    other.join();
    EXPECT_EQ(told.size(), 2U * kEach);
    for (const char name : {'a', 'b'}) {
        int next = 0;
        for (const std::string& text : told) {
            if (text[0] == name) {
                EXPECT_EQ(text.substr(1), std::to_string(next++));
            }
        }
    }
}

}  // namespace
}  // namespace KR
