// Conditions that speak of time: holds that start, end and are fulfilled.

#include <stdexcept>
#include <thread>

#include "bench/PairEngines.h"
#include "bench/Rows.h"

namespace bench {

namespace {

constexpr int kTurns = 9;
constexpr std::size_t kChanges = 40'000;

/// The pairs' rules, as they are or each of them held. Every second change starts the holds of a
/// key, and the next one of that key ends them.
class HeldPairs {
public:
    HeldPairs(const Pairs& pairs, bool isHeld)
        : changes_(pairs, PairChanges::Choice::uniform), engine_(none_), pairs_(pairs)
    {
        for (std::size_t i = 0; i < pairs.ruleCount; ++i) {
            const std::string condition = pairs.condition(i);
            engine_.checker.addCondition(isHeld ? "(" + condition + ") for 10 h" : condition,
                                         KR::ConditionChecker::ReportNever);
        }
        engine_.clock->run();
        measure();
        if (isHeld != engine_.clock->isWaiting())
            throw std::logic_error("holds wait to be fulfilled, and nothing else does");
    }
    double measure()
    {
        return cpuSecondsOf([this] {
                   for (std::size_t i = 0; i < kChanges; ++i) {
                       const PairChanges::Change change = changes_.next();
                       engine_.raise(pairs_.keys[change.key], change.low ? kLow : kHigh);
                   }
               }) *
               1e9 / kChanges;
    }

private:
    const KR::KRValue kLow{"Low"};
    const KR::KRValue kHigh{"High"};
    const Pairs none_{0};
    PairChanges changes_;
    OurPairEngine engine_;
    const Pairs& pairs_;
};

// One application at a time, so the two are made in turn.
void startAndEnd(Table& table)
{
    const std::string row = "a hold that starts or ends, against without, N = 10000";
    if (!table.wants(row))
        return;
    const Pairs pairs(10'000);
    const auto measure = [&pairs](bool isHeld) {
        HeldPairs rules(pairs, isHeld);
        return repeat(5, [&] { return rules.measure(); }).median;
    };
    const Comparison result = compare(
        kTurns, [&] { return measure(true); }, [&] { return measure(false); });
    table.add(row, text(result.ours.median, "ns"), text(result.peer.median, "ns without"),
              result.ratio, atMost(1.5, "x"),
              "the uptime of each write, and the instants in their order");
}

constexpr std::size_t kHolds = 100'000;
/// Long enough for all to have started before the first is fulfilled.
constexpr auto kHeldFor = std::chrono::seconds(1);

struct TogetherResult {
    double bytes;    ///< of a running hold
    double seconds;  ///< for all to be fulfilled
};

/// Holds that one write starts, and that are fulfilled at one instant.
TogetherResult fulfilTogether()
{
    const Pairs none(0);
    OurPairEngine engine(none);
    std::size_t hits = 0;
    engine.checker.setCallback(
        [&hits](const KR::ConditionChecker::Hits& list) { hits += list.size(); });
    for (std::size_t i = 0; i < kHolds; ++i)
        engine.checker.addCondition("('K' != " + std::to_string(i) + " && 'K') for 1 s",
                                    KR::ConditionChecker::ReportBecomesTrue);
    engine.clock->run();
    engine.raise("K", KR::KRValue("none"));
    engine.raise("K", KR::KRValue());
    const double before = heapBytes();
    engine.raise("K", KR::KRValue("none"));
    const double after = heapBytes();
    std::this_thread::sleep_for(kHeldFor);
    const double seconds = cpuSecondsOf([&engine] { engine.clock->runDue(); });
    if (hits != kHolds)
        throw std::logic_error("not every hold was fulfilled");
    return {(after - before) / kHolds, seconds};
}

void together(Table& table)
{
    const std::string row = "memory of a running hold, N = 100000";
    const std::string timeRow = "100000 holds that are fulfilled at one instant";
    if (!table.wants(row) && !table.wants(timeRow))
        return;
    std::vector<double> seconds;
    const Spread bytes = repeat(3, [&seconds] {
        const TogetherResult result = fulfilTogether();
        seconds.push_back(result.seconds);
        return result.bytes;
    });
    table.add(row, text(bytes.median, "bytes"), "", bytes, atMost(100, "bytes"));
    table.addInformation(timeRow, text(spreadOf(seconds).median, "s"));
}

}  // namespace

void measureTime(Table& table)
{
    pinToCore(1);
    startAndEnd(table);
    together(table);
}

}  // namespace bench
