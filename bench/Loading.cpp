// Adding the pairs' conditions to a checker, and what they take of the heap.

#include <malloc.h>

#include "bench/PairEngines.h"
#include "bench/Rows.h"

namespace bench {

namespace {

constexpr int kTurns = 7;

/// Microseconds a condition: a text is parsed and registered with a checker that is connected. What
/// was freed before goes back to the system, so few conditions come to fresh memory, too, as they
/// do when a process starts.
double microsecondsPerCondition(const std::vector<std::string>& texts)
{
    const Pairs none(0);
    OurPairEngine ours(none);
    ::malloc_trim(0);
    const double seconds = cpuSecondsOf([&] {
        for (const std::string& condition : texts)
            ours.checker.addCondition(condition, KR::ConditionChecker::ReportBecomesTrue);
    });
    return seconds * 1e6 / static_cast<double>(texts.size());
}

std::vector<std::string> textsOf(std::size_t rules)
{
    const Pairs pairs(rules);
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < rules; ++i)
        texts.push_back(pairs.condition(i));
    return texts;
}

void loading(Table& table)
{
    const std::string row = "loading, per condition, N = 100000";
    const std::string growthRow = "loading, growth, N = 1000 to 100000";
    if (!table.wants(row) && !table.wants(growthRow))
        return;
    const auto few = textsOf(1'000);
    const auto many = textsOf(100'000);
    const auto measureFew = [&] {
        return repeat(9, [&] { return microsecondsPerCondition(few); }).median;
    };
    measureFew();
    const Comparison result = compare(
        kTurns, [&] { return microsecondsPerCondition(many); }, measureFew);
    table.add(row, text(result.ours.median, "us"), "", result.ours, atMost(2, "us"));
    table.add(
        growthRow, text(result.ours.median, "us"), text(result.peer.median, "us at 1000"),
        result.ratio, atMost(1.3, "x"),
        "as many instructions a condition; the memory that they touch is fresh, or in no cache");
}

/// What 10,000 conditions take of a checker, the allocator's own share included, when it has run
/// and every key has changed.
double bytesPerCondition()
{
    constexpr std::size_t kRules = 10'000;
    const Pairs none(0);
    const auto texts = textsOf(kRules);
    const Pairs pairs(kRules);
    OurPairEngine ours(none);
    ours.checker.stop();
    // The memory's share is there before: it is not the checker's.
    for (const std::string& key : pairs.keys)
        ours.raise(key, "High");
    const double before = heapBytes();
    for (const std::string& condition : texts)
        ours.checker.addCondition(condition, KR::ConditionChecker::ReportBecomesTrue);
    ours.checker.run(0, false);
    ours.clock->run();
    for (const std::string& key : pairs.keys)
        ours.raise(key, "Low");
    ours.checker.stop();
    return (heapBytes() - before) / kRules;
}

void memory(Table& table)
{
    const std::string row = "memory of the checker, per condition, N = 10000";
    if (!table.wants(row))
        return;
    bytesPerCondition();
    const Spread result = repeat(5, bytesPerCondition);
    table.add(row, text(result.median, "bytes"), "", result, atMost(300, "bytes"));
}

}  // namespace

void measureLoading(Table& table)
{
    pinToCore(1);
    loading(table);
    memory(table);
}

}  // namespace bench
