#include <atomic>

#include "platform/kr/KRError.h"
#include "platform/kr/KRMemory.h"
#include "platform/kr/KRMemoryProxy.h"
#include "platform/kr/KRProxy.h"
#include "platform/vo/AnyObject.h"
#include "tests/support/Allocations.h"
#include "tests/support/Testing.h"
#include "tests/support/VirtualPlatform.h"

namespace KR {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

using Changes = std::vector<std::pair<std::uint32_t, KRValue>>;

struct MemoryTest : ::testing::Test {
    VirtualPlatform platform;
    KRMemory& memory = platform.memory();
    std::atomic<int> wakes{0};
    std::shared_ptr<MemoryFeed> feed = std::make_shared<MemoryFeed>([this] { ++wakes; });

    Changes take(MemoryFeed& from)
    {
        std::vector<MemoryChange> changes;
        memory.take(from, changes);
        Changes result;
        for (const MemoryChange& change : changes)
            result.emplace_back(change.tag, change.value);
        return result;
    }
    void raise(std::initializer_list<std::pair<const char*, KRValue>> events)
    {
        for (const auto& [key, value] : events)
            memory.raiseEvent(key, value);
    }
};

TEST_F(MemoryTest, MissingKeyIsAnErrorAndEmptyKeyIsRefused)
{
    memory.declareEvent("K", "Declarer");
    memory.watch(std::make_shared<MemoryFeed>([] {}), {{"K", 1}});
    EXPECT_EQ(errorOf<KRError>([&] { memory.getData("K"); }),
              "KRMemory::getData: no data for key 'K'");
    EXPECT_FALSE(memory.hasData("K"));
    EXPECT_THAT(memory.getDataList(""), IsEmpty());
    memory.raiseEvent("K", KRValue());
    EXPECT_FALSE(memory.getData("K").isValid());
    EXPECT_TRUE(memory.hasData("K"));

    EXPECT_THROW(memory.raiseEvent("", 1), KRError);
    EXPECT_THROW(memory.declareEvent("", "D"), KRError);
    EXPECT_THROW(memory.watch(feed, {{"K", 1}, {"", 2}}), KRError);
    memory.raiseEvent("K", 1);
    EXPECT_THAT(take(*feed), IsEmpty()) << "nothing is watched by a refused call";
}

TEST_F(MemoryTest, HistoryIsOldestFirstInWholeSecondsOfLife)
{
    memory.raiseEvent("K", "a");
    platform.advance(milliseconds(1999));
    platform.clock->jumpWallClock(-seconds(3600));
    memory.raiseEvent("K", "b");
    platform.advance(milliseconds(1));
    memory.raiseEvent("K", KRValue());
    EXPECT_EQ(memory.getEventHistory("K").toDisplayString(), R"([["a", 0], ["b", 1], [none, 2]])");
}

TEST_F(MemoryTest, HistoryKeepsItsBoundAndTheLatestValueStaysRight)
{
    KRValue::Array expected;
    // The other key has what is noted down later wait for different whiles.
    for (int i = 1; i <= 4 * int(KRMemory::kMaxHistory) + 3; ++i) {
        memory.raiseEvent("K", i);
        if (i % 5 == 0)
            memory.raiseEvent("L", -i);
        ASSERT_EQ(memory.getData("K"), KRValue(i));
        expected.emplace_back(KRValue::Array{i, 0});
        if (expected.size() > KRMemory::kMaxHistory)
            expected.erase(expected.begin());
        ASSERT_EQ(memory.getEventHistory("K"), KRValue(expected));
    }
}

TEST_F(MemoryTest, WatchGivesWhatIsThereAndThenEveryChangeInOrderAcrossKeys)
{
    memory.raiseEvent("A", 5);
    platform.advance(seconds(1));
    const auto before = memory.watch(feed, {{"A", 7}, {"B", 8}, {"A", 9}, {"A", 7}});
    ASSERT_EQ(before.size(), 4u);
    EXPECT_EQ(before[0].value, KRValue(5));
    EXPECT_EQ(before[0].time, platform.clock->now() - seconds(1));
    EXPECT_FALSE(before[1].value.isValid());
    EXPECT_EQ(before[1].time, vo::TimePoint());

    raise({{"A", 0}, {"B", "x"}, {"A", 0}});
    EXPECT_EQ(wakes, 1) << "a burst wakes once";
    EXPECT_EQ(take(*feed), (Changes{{7, 0}, {9, 0}, {8, "x"}, {7, 0}, {9, 0}}));
    memory.raiseEvent("B", 1);
    EXPECT_EQ(wakes, 2) << "an emptied queue wakes again";

    memory.unwatch(feed, "A", 7);
    memory.raiseEvent("A", 1);
    EXPECT_EQ(take(*feed), (Changes{{8, 1}, {9, 1}})) << "what was queued stays";
    const auto second = std::make_shared<MemoryFeed>([] {});
    memory.watch(second, {{"A", 9}, {"B", 8}});
    memory.unwatch(second, "A", 7);
    memory.unwatchAll(feed);
    memory.unwatchAll(feed);
    raise({{"A", 2}, {"B", 2}});
    EXPECT_THAT(take(*feed), IsEmpty());
    EXPECT_EQ(take(*second), (Changes{{9, 2}, {8, 2}})) << "each feed has its own";
    std::vector<MemoryChange> changes(3);
    EXPECT_FALSE(memory.take(*second, changes));
    EXPECT_THAT(changes, IsEmpty()) << "of an earlier time";
}

TEST_F(MemoryTest, FeedLivesForAsLongAsItsWakeRuns)
{
    std::shared_ptr<MemoryFeed> owner = std::make_shared<MemoryFeed>([&] {
        const std::weak_ptr<MemoryFeed> weak = owner;
        owner.reset();
        EXPECT_FALSE(weak.expired());
        EXPECT_TRUE(memory.hasData("K")) << "no lock is held over a wake";
    });
    memory.watch(owner, {{"K", 1}});
    memory.watch(feed, {{"K", 2}});
    memory.raiseEvent("K", 1);
    EXPECT_FALSE(owner) << "it was woken";
    EXPECT_EQ(take(*feed), (Changes{{2, 1}})) << "the others are not disturbed";
    memory.raiseEvent("K", 2);
    EXPECT_EQ(take(*feed), (Changes{{2, 2}})) << "nor by a feed that is gone";
}

TEST_F(MemoryTest, SteadyRaiseWithoutSubscriberDoesNotAllocate)
{
    const std::string key = "Launchpad/SomeKeyLongerThanAnyInlineString";
    const KRValue text("a text that is longer than any inline string");
    const auto raiseMany = [&] {
        for (std::size_t i = 0; i < 10 * KRMemory::kMaxHistory; ++i)
            memory.raiseEvent(key, text);
    };
    raiseMany();
    const std::size_t before = allocationsOfThisThread();
    raiseMany();
    EXPECT_EQ(allocationsOfThisThread(), before);
}

TEST_F(MemoryTest, ServiceOffersTheOperationsByNameForAsLongAsTheBrokerLives)
{
    EXPECT_THROW(KRBroker::create(platform.application), KRError) << "there is one already";
    const auto proxy = platform.broker->getProxy("KRMemory");
    proxy->call("declareEvent", "K", "D");
    KRMemoryProxy(platform.broker).raiseEvent("K", 1);
    EXPECT_EQ(proxy->call<KRValue>("getData", "K"), KRValue(1));
    EXPECT_EQ(proxy->call<KRValue>("getListData", std::vector<std::string>{"K", "L"}),
              KRValue(KRValue::Array{1, KRValue()}));
    EXPECT_EQ(proxy->call<KRValue>("getEventHistory", "K").toDisplayString(), "[[1, 0]]");
    proxy->call("subscribeToMicroEvent", "L", "KRMemory", "D", "declareEvent");
    proxy->call("unsubscribeToMicroEvent", "L", "KRMemory");
    EXPECT_THROW(proxy->call("unsubscribeToMicroEvent", "L", "KRMemory"), KRError);
    platform.broker.reset();
    EXPECT_FALSE(platform.application.session().findService("KRMemory"));
    EXPECT_THROW(proxy->call("raiseEvent", "K", KRValue(1)), KRError);
}

TEST_F(MemoryTest, SubscriberSignalsEveryNewValueInOrder)
{
    const vo::AnyObject service = platform.application.session().service("KRMemory");
    std::vector<KRValue> received;
    vo::AnyObject object = service.call<vo::AnyObject>("subscriber", "K");
    const vo::Connection connection =
        object.connect("signal", [&](const KRValue& value) { received.push_back(value); });
    EXPECT_EQ(service.call<vo::AnyObject>("subscriber", "K").object(), object.object());
    const vo::Connection other =
        service.call<vo::AnyObject>("subscriber", "L").connect("signal", [&](const KRValue& value) {
            received.push_back(value.toInt() + 10);
        });

    raise({{"K", 0}, {"L", 5}, {"K", 1}});
    EXPECT_THAT(received, IsEmpty()) << "never on the raiser's thread inside the raise";
    platform.runPending();
    object = vo::AnyObject();
    memory.raiseEvent("K", 2);
    platform.runPending();
    EXPECT_THAT(received, ElementsAre(KRValue(0), KRValue(15), KRValue(1), KRValue(2)))
        << "a connection outlives its handle";
}

}  // namespace
}  // namespace KR
