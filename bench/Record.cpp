// What it costs to record a life, and to live it again.

#include <future>
#include <iterator>

#include "bench/LiveLaunchpad.h"
#include "bench/Rows.h"
#include "host/Host.h"
#include "host/Player.h"
#include "host/StopRequest.h"
#include "record/RecordLine.h"
#include "record/RecordReader.h"
#include "record/RecordWriter.h"
#include "record/Replay.h"
#include "robot/RobotBody.h"
#include "robot/Scenario.h"

namespace bench {

namespace {

constexpr int kTurns = 9;
constexpr unsigned kRaisersCore = 0;
constexpr unsigned kCheckersCore = 1;
constexpr unsigned kLoopsCore = 0;

/// A launchpad whose life is recorded, or not.
class Recorded {
public:
    Recorded() : launchpad_(kCheckersCore, kLoopsCore, LiveLaunchpad::kKeys, observer())
    {
        pinToCore(kRaisersCore);
    }

    LiveLaunchpad& launchpad() { return launchpad_; }

    void record(bool on)
    {
        isOn_ = on;
        if (!on) {
            events_.unfollow();
            writer_.reset();
            return;
        }
        KR::RecordWriter::Options options;
        options.path = folder_.path() + "/life.jsonl";
        writer_ = std::make_unique<KR::RecordWriter>(clock_, options);
        writer_->follow(events_);
        events_.follow(launchpad_.broker());
    }

private:
    KR::LaunchpadObserver observer()
    {
        KR::LaunchpadObserver observer;
        observer.hits = [this](const KR::LaunchpadHits& list) {
            if (!isOn_)
                return;
            KR::HitsFound event{++hits_, list.after, {}};
            for (const KR::LaunchpadHits::Hit& hit : list.hits)
                event.hits.push_back({hit.condition, hit.rule});
            events_.leave(std::move(event));
        };
        return observer;
    }

    TemporaryFolder folder_;
    std::atomic<bool> isOn_{false};
    std::uint64_t hits_ = 0;
    const std::shared_ptr<vo::Clock> clock_ = vo::makeRealClock();
    KR::EventStream events_{clock_};
    std::unique_ptr<KR::RecordWriter> writer_;
    LiveLaunchpad launchpad_;
};

void raiseToResponder(Table& table)
{
    const std::string row = "raise to responder, p50, recorded against not";
    if (!table.wants(row))
        return;
    constexpr int kEvents = 200;
    constexpr auto kPace = std::chrono::milliseconds(1);
    Recorded life;
    std::atomic<std::promise<std::chrono::steady_clock::time_point>*> arrived{nullptr};
    life.launchpad().onDispatch = [&](const auto&, const auto&) {
        arrived.load()->set_value(std::chrono::steady_clock::now());
    };
    bool low = false;
    const auto measure = [&](bool recorded) {
        life.record(recorded);
        std::vector<double> latencies;
        auto next = std::chrono::steady_clock::now();
        for (int i = 0; i < kEvents; ++i) {
            next += kPace;
            std::this_thread::sleep_until(next);
            std::promise<std::chrono::steady_clock::time_point> promise;
            arrived = &promise;
            low = !low;
            const auto start = std::chrono::steady_clock::now();
            life.launchpad().memory().raiseEvent(LiveLaunchpad::trigger(0), low ? "Low" : "High");
            latencies.push_back(
                std::chrono::duration<double, std::micro>(promise.get_future().get() - start)
                    .count());
        }
        life.record(false);
        return spreadOf(latencies).median;
    };
    measure(true);
    measure(false);
    const Comparison result = compare(
        kTurns, [&] { return measure(true); }, [&] { return measure(false); });
    table.add(row, text(result.ours.median, "us"), text(result.peer.median, "us not"), result.ratio,
              atMost(1.10, "x"));
}

void raiseAlone(Table& table)
{
    const std::string row = "a raise that nobody reads, dearer when it is recorded";
    if (!table.wants(row))
        return;
    constexpr int kEvents = 2000;
    Recorded life;
    const std::string key = "Sense/Alone";
    const auto measure = [&](bool recorded) {
        life.record(recorded);
        std::vector<double> costs;
        for (int round = 0; round < 20; ++round) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            costs.push_back(secondsOf([&] {
                                for (int i = 0; i < kEvents; ++i)
                                    life.launchpad().memory().raiseEvent(key, i);
                            }) *
                            1e9 / kEvents);
        }
        life.record(false);
        return spreadOf(costs).median;
    };
    measure(true);
    measure(false);
    std::vector<double> dearer;
    Spread with;
    for (int turn = 0; turn < kTurns; ++turn) {
        const double recorded = measure(true);
        dearer.push_back(recorded - measure(false));
        with.median = recorded;
    }
    const Spread result = spreadOf(dearer);
    table.add(row, text(result.median, "ns"), text(with.median, "ns in all"), result,
              atMost(150, "ns"));
}

std::vector<KR::Event> changes(int count)
{
    std::vector<KR::Event> events;
    for (int i = 0; i < count; ++i) {
        KR::KeyWritten write;
        write.key = "Sense/Key" + std::to_string(i % 64);
        write.value = i;
        write.writer = "bench";
        write.number = static_cast<std::uint64_t>(i) + 1;
        events.push_back({write.number, vo::TimePoint(std::chrono::microseconds(i)), write,
                          std::chrono::microseconds(i)});
    }
    return events;
}

void recordedChanges(Table& table)
{
    const std::string row = "recorded changes a second, against one thread that writes the lines";
    if (!table.wants(row))
        return;
    constexpr int kChanges = 100'000;
    const TemporaryFolder folder;
    const std::vector<KR::Event> events = changes(kChanges);
    const auto clock = vo::makeRealClock();
    pinToCore(kRaisersCore);
    const auto ours = [&] {
        KR::RecordWriter::Options options;
        options.path = folder.path() + "/ours.jsonl";
        options.waits = true;
        return kChanges / secondsOf([&] {
                   KR::RecordWriter writer(clock, options);
                   for (const KR::Event& event : events)
                       writer.take(event);
                   writer.close();
                   if (!writer.isComplete())
                       throw std::logic_error("something was left out");
               });
    };
    const auto bare = [&] {
        std::ofstream file(folder.path() + "/bare.jsonl", std::ios::binary);
        return kChanges / secondsOf([&] {
                   KR::RecordLine line;
                   for (const KR::Event& event : events) {
                       ++line.number;
                       line.entry = KR::RecordedEvent{event};
                       const std::string text = KR::encodeRecordLine(line);
                       line.checksum = KR::recordChecksum(text);
                       file << text << '\n';
                   }
                   file.flush();
               });
    };
    const Comparison result = compare(5, ours, bare);
    table.add(row, text(result.ours.median / 1000, "thousand/s"),
              text(result.peer.median / 1000, "thousand/s"), result.ratio, atLeast(0.5, "x"));
}

/// Plays the demo day to a host, with somebody who takes the events.
double playDay(const KR::Scenario& scenario, const std::function<void(const KR::Event&)>& take)
{
    const std::string config = NIMBRA_DATA_FOLDER "/autonomy.cfg";
    std::ifstream file(config);
    const std::string rules{std::istreambuf_iterator<char>(file), {}};
    const auto& chains = KR::robotChains();
    return secondsOf([&] {
        const auto clock = std::make_shared<vo::VirtualClock>(scenario.start);
        KR::StopRequest stop;
        KR::EventStream events(clock);
        const vo::Connection connection = events.happened.connect(take);
        events.publish(KR::RunBegan{
            scenario.title, config, rules, {}, scenario.keys(), {chains.begin(), chains.end()}});
        KR::Host::Options options{config, {}};
        options.plugins = {"HumanTracked", "PerceptionHeavy"};
        KR::Host host(clock, events, options);
        clock->runPending();
        host.start();
        KR::Player(host, *clock, events, stop, {})
            .play(scenario, scenario.start + std::chrono::hours(24));
        host.stop();
        events.publish(KR::RunEnded{});
    });
}

void replayedDay(Table& table)
{
    const std::string row = "a recorded day lived again, against the same scenario's run";
    if (!table.wants(row))
        return;
    pinToCore(kCheckersCore);
    const TemporaryFolder folder;
    const KR::Scenario scenario = KR::loadScenario(NIMBRA_DATA_FOLDER "/demo-day.scenario.yaml");
    KR::RecordWriter::Options options;
    options.path = folder.path() + "/day.jsonl";
    options.waits = true;
    {
        KR::RecordWriter writer(vo::makeRealClock(), options);
        playDay(scenario, [&](const KR::Event& event) { writer.take(event); });
    }
    const auto replay = [&] {
        return secondsOf([&] {
            KR::RecordReader reader(options.path, [](const KR::RecordProblem&) {});
            const auto next = [&]() -> std::optional<KR::Event> {
                while (auto entry = reader.next()) {
                    if (auto* const recorded = std::get_if<KR::RecordedEvent>(&*entry))
                        return std::move(recorded->event);
                }
                return {};
            };
            const auto result = KR::Replay(next, [](const KR::Event&) {}).run();
            if (result.difference || result.decisions == 0)
                throw std::logic_error("the day is another one");
        });
    };
    const auto run = [&] { return playDay(scenario, [](const KR::Event&) {}); };
    run();
    const Comparison result = compare(5, replay, run);
    table.add(row, text(result.ours.median, "s"), text(result.peer.median, "s run"), result.ratio,
              atMost(1.5, "x"));
}

}  // namespace

void measureRecord(Table& table)
{
    raiseToResponder(table);
    raiseAlone(table);
    recordedChanges(table);
    replayedDay(table);
}

}  // namespace bench
