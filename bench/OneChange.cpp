// One change of one key, raised, evaluated and reported on one thread.

#include <optional>

#include "bench/PairEngines.h"
#include "bench/Rows.h"

namespace bench {

namespace {

constexpr int kTurns = 9;
/// Ours and its peers take some 10 to 100 ms for as many.
constexpr std::size_t kChanges = 40'000;
/// Enough for every key of the larger workloads to have a whole history, as on a robot that has
/// been running for a while.
const char* const kMemoryBound =
    "what a change touches of thousands of keys is in no cache and has to be waited for";
constexpr std::size_t kHistory = KR::KRMemory::kMaxHistory;

/// Changes every key until no buffer grows any more.
void warmUp(OurPairEngine& engine, const Pairs& pairs)
{
    for (std::size_t round = 0; round < kHistory + 2; ++round)
        for (std::size_t key = 0; key < pairs.keyCount; ++key)
            engine.change(key, round % 2 == 0);
}

/// An engine with rules, warm, and where it stands in its changes.
template <class Engine>
struct Measured {
    Measured(std::size_t rules, PairChanges::Choice choice)
        : pairs(rules), changes(pairs, choice), engine(pairs)
    {
        if constexpr (std::is_same_v<Engine, OurPairEngine>)
            warmUp(engine, pairs);
        measure();
    }
    double measure() { return nanosecondsPerChange(engine, changes, kChanges); }

    Pairs pairs;
    PairChanges changes;
    Engine engine;
};

void againstRuleEngine(Table& table, std::size_t rules, double times)
{
    const std::string row = "one change, against the rule engine, N = " + std::to_string(rules);
    if (!table.wants(row))
        return;
    Measured<OurPairEngine> ours(rules, PairChanges::Choice::uniform);
    const Pairs pairs(rules);
    const auto peer = makeRuleEngine(pairs);
    if (!peer)
        return table.addMissing(row, "built without libclips");
    PairChanges changes(pairs, PairChanges::Choice::uniform);
    nanosecondsPerChange(*peer, changes, kChanges);
    const std::size_t oursBefore = ours.engine.fired();
    const std::size_t peersBefore = peer->fired();
    const Comparison result = compare(
        kTurns, [&] { return nanosecondsPerChange(*peer, changes, kChanges); },
        [&] { return ours.measure(); });
    if (ours.engine.fired() - oursBefore != peer->fired() - peersBefore)
        throw std::logic_error("the rule engine and ours did not fire the same rules");
    table.add(row, text(result.peer.median, "ns"), text(result.ours.median, "ns rule engine"),
              result.ratio, atLeast(times, "x"), kMemoryBound);
}

void againstHandWritten(Table& table)
{
    const std::string row = "one change, against hand-written, N = 10000";
    if (!table.wants(row))
        return;
    Measured<OurPairEngine> ours(10'000, PairChanges::Choice::uniform);
    Measured<HandWrittenEngine> peer(10'000, PairChanges::Choice::uniform);
    const Comparison result = compare(
        kTurns, [&] { return ours.measure(); }, [&] { return peer.measure(); });
    table.add(row, text(result.ours.median, "ns"), text(result.peer.median, "ns hand-written"),
              result.ratio, atMost(2.0, "x"),
              "stamps, history, readers beside writers and lists of hits, which it has not; and "
              "waiting for memory");
}

// One application at a time: the platform has one, so the two sizes are measured in turn by making
// them in turn.
void growth(Table& table, PairChanges::Choice choice, std::size_t from, std::size_t to,
            double limit)
{
    const std::string row = std::string("growth, ") +
                            (choice == PairChanges::Choice::hot ? "4 hot" : "uniform") +
                            " keys, N = " + std::to_string(from) + " to " + std::to_string(to);
    if (!table.wants(row))
        return;
    const auto measure = [choice](std::size_t rules) {
        Measured<OurPairEngine> ours(rules, choice);
        return repeat(5, [&] { return ours.measure(); }).median;
    };
    const Comparison result = compare(
        5, [&] { return measure(to); }, [&] { return measure(from); });
    table.add(row, text(result.ours.median, "ns"),
              text(result.peer.median, "ns at ") + std::to_string(from), result.ratio,
              atMost(limit, "x"), kMemoryBound);
}

}  // namespace

void measureOneChange(Table& table)
{
    pinToCore(1);
    againstRuleEngine(table, 1'000, 6);
    againstRuleEngine(table, 10'000, 8);
    againstRuleEngine(table, 100'000, 14);
    againstHandWritten(table);
    growth(table, PairChanges::Choice::hot, 100, 100'000, 1.10);
    growth(table, PairChanges::Choice::uniform, 100, 10'000, 1.3);
}

}  // namespace bench
