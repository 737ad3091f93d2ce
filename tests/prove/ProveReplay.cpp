// Lives under pressure, lived again. What is recorded of each life must come out again, event by
// event; and where one decision is taken from the recording, or the engine that was recorded loses
// hits, that must be found.

#include <iostream>
#include <random>

#include "platform/vo/Log.h"
#include "record/EventCodec.h"
#include "record/Replay.h"
#include "tests/prove/PressedLife.h"

namespace KR {
namespace {

using std::chrono::milliseconds;

/// In which a thousand hit lists come.
constexpr milliseconds kLongLife{10000};

std::vector<Event> live(milliseconds duration, unsigned seed, unsigned lostOneIn = 0)
{
    std::vector<Event> kept;
    vo::Connection connection;
    liveUnderPressure(
        duration, seed,
        [&](EventStream& events) {
            connection =
                events.happened.connect([&](const Event& event) { kept.push_back(event); });
        },
        lostOneIn);
    return kept;
}

ReplayResult again(const std::vector<Event>& events)
{
    auto next = events.begin();
    return Replay(
               [&]() -> std::optional<Event> {
                   return next == events.end() ? std::nullopt : std::optional(*next++);
               },
               [](const Event&) {})
        .run();
}

/// Whether a recording without one of its decisions is found to be another one.
bool findsMissing(const std::vector<Event>& events, std::mt19937& random)
{
    std::vector<std::size_t> hits;
    for (std::size_t i = 0; i < events.size(); ++i) {
        if (std::holds_alternative<RuleProposed>(events[i].what))
            hits.push_back(i);
    }
    std::vector<Event> without = events;
    without.erase(without.begin() + static_cast<std::ptrdiff_t>(hits[random() % hits.size()]));
    return again(without).difference.has_value();
}

void print(const ReplayDifference& difference)
{
    std::cout << difference.text << "\n";
    for (const auto& event : {difference.recorded, difference.replayed})
        std::cout << "  " << (event ? encodeEvent(*event) : std::string("nothing")) << "\n";
}

/// `runs` lives, of so many milliseconds each.
bool proveReplay(milliseconds duration, int runs, unsigned seed)
{
    vo::setLogLevel(vo::LogLevel::silent);
    std::mt19937 random(seed);
    int identical = 0;
    int found = 0;
    int broken = 0;
    std::size_t all = 0;
    std::uint64_t decisions = 0;
    for (int run = 0; run < runs; ++run) {
        const std::vector<Event> events = live(duration, seed + 100 * unsigned(run));
        const ReplayResult result = again(events);
        all += events.size();
        decisions += result.decisions;
        if (result.difference)
            print(*result.difference);
        else
            ++identical;
        found += findsMissing(events, random) ? 1 : 0;
        const unsigned oneIn = duration < kLongLife ? 100 : 1000;
        broken += again(live(duration, seed + unsigned(run), oneIn)).difference ? 1 : 0;
    }
    std::cout << runs << " lives of " << duration.count() << " ms, " << all << " events, "
              << decisions << " decisions: " << identical
              << " identical; a missing decision was found in " << found
              << ", an engine that loses hits in " << broken << "\n";
    return identical == runs && found == runs && broken == runs && decisions > 0;
}

}  // namespace
}  // namespace KR

int main(int argc, char** argv)
{
    const auto argument = [&](int i, int other) { return argc > i ? std::atoi(argv[i]) : other; };
    return KR::proveReplay(std::chrono::milliseconds(argument(1, 1000)), argument(2, 1),
                           static_cast<unsigned>(argument(3, 1)))
               ? 0
               : 1;
}
