// A key that every rule reads, and one rule that reads many keys.

#include <stdexcept>

#include "bench/PairEngines.h"
#include "bench/Rows.h"
#include "platform/conditions/ConditionCompiler.h"
#include "platform/conditions/ConditionNetwork.h"

namespace bench {

namespace {

constexpr int kTurns = 9;

/// The pairs with every key "Low": each time that the robot falls asleep or wakes, every rule's
/// truth flips. Nanoseconds a rule.
double nanosecondsPerFlip(PairEngine& engine, std::size_t rules, int changes)
{
    const double seconds = cpuSecondsOf([&] {
        for (int i = 0; i < changes; ++i)
            engine.setAsleep(i % 2 == 0);
    });
    return seconds * 1e9 / static_cast<double>(changes) / static_cast<double>(rules);
}

void allFlip(Table& table)
{
    const std::string row = "all-rules key, per rule that flips, N = 10000";
    const std::string peersRow = "the same, against the rule engine";
    if (!table.wants(row) && !table.wants(peersRow))
        return;
    constexpr std::size_t kRules = 10'000;
    const Pairs pairs(kRules);
    OurPairEngine ours(pairs);
    const auto peer = makeRuleEngine(pairs);
    for (std::size_t key = 0; key < pairs.keyCount; ++key) {
        ours.change(key, true);
        if (peer)
            peer->change(key, true);
    }
    const auto measureOurs = [&] { return nanosecondsPerFlip(ours, kRules, 20); };
    measureOurs();
    const std::size_t before = ours.fired();
    measureOurs();
    if (ours.fired() - before != 10 * kRules)
        throw std::logic_error("not every rule fired at every wake-up");
    if (!peer) {
        const Spread result = repeat(kTurns, measureOurs);
        table.add(row, text(result.median, "ns"), "", result, atMost(33, "ns"));
        return table.addMissing(peersRow, "built without libclips");
    }
    const auto measurePeer = [&] { return nanosecondsPerFlip(*peer, kRules, 4); };
    measurePeer();
    const Comparison result = compare(kTurns, measurePeer, measureOurs);
    table.add(row, text(result.peer.median, "ns"), "", result.peer, atMost(33, "ns"));
    table.add(peersRow, text(result.peer.median, "ns"), text(result.ours.median, "ns rule engine"),
              result.ratio, atLeast(5, "x"));
}

/// Every rule has the guard `'Nimbra/State'!="disabled"` beside a key of its own, and the state
/// goes between "solitary" and "interactive". Nanoseconds a change.
double nanosecondsPerGuardChange(std::size_t rules)
{
    const Pairs none(0);
    OurPairEngine ours(none);
    ours.checker.stop();
    for (std::size_t i = 0; i < rules; ++i)
        ours.checker.addCondition(
            "'Nimbra/State'!=\"disabled\" && 'Sense/Own" + std::to_string(i) + "'==\"Low\"",
            KR::ConditionChecker::ReportBecomesTrue);
    const KR::KRValue states[] = {"solitary", "interactive"};
    ours.memory->raiseEvent("Nimbra/State", states[0]);
    for (std::size_t i = 0; i < rules; ++i)
        ours.memory->raiseEvent("Sense/Own" + std::to_string(i), "Low");
    ours.checker.run(0, false);
    ours.clock->run();
    constexpr int kChanges = 20'000;
    const auto measure = [&] {
        const double seconds = cpuSecondsOf([&] {
            for (int i = 0; i < kChanges; ++i)
                ours.raise("Nimbra/State", states[i % 2]);
        });
        return seconds * 1e9 / kChanges;
    };
    measure();
    return repeat(5, measure).median;
}

void noneFlips(Table& table)
{
    const std::string row = "all-rules key, none flips, N = 1000 to 100000";
    if (!table.wants(row))
        return;
    const Comparison result = compare(
        5, [] { return nanosecondsPerGuardChange(100'000); },
        [] { return nanosecondsPerGuardChange(1'000); });
    table.add(row, text(result.ours.median, "ns"), text(result.peer.median, "ns at 1000"),
              result.ratio, atMost(1.2, "x"));
}

/// Five terms, as the rules of a robot guard their triggers. Each write below leaves them all true.
constexpr const char* kFiveTerms =
    "'Nimbra/State'!=\"disabled\" && 'Pod/Docked'==false && !'Nimbra/Asleep' && "
    "'Battery/Charge'>=20 && 'Zone/Trigger'==\"Near\"";
struct Write {
    std::size_t slot;
    KR::KRValue value;
};
const std::vector<std::string> kFiveKeys = {"Nimbra/State", "Pod/Docked", "Nimbra/Asleep",
                                            "Battery/Charge", "Zone/Trigger"};
const std::vector<Write> kFiveWrites = {
    {0, "solitary"},    {1, false}, {2, false}, {3, 55}, {4, "Near"},
    {0, "interactive"}, {1, 0},     {2, 0},     {3, 54}, {4, "Near"},
};
constexpr int kRounds = 20'000;

/// A write of one of the keys and then the truth of the condition, by the checker's network.
double nanosecondsByNetwork()
{
    KR::ConditionNetwork network;
    KR::ConditionCompiler compiler(network);
    std::vector<KR::KeyTag> tags(kFiveKeys.size());
    for (const KR::KRMemory::Watch& watch : compiler.add(1, kFiveTerms))
        for (std::size_t i = 0; i < kFiveKeys.size(); ++i)
            if (kFiveKeys[i] == watch.key)
                tags[i] = watch.tag;
    for (const Write& write : kFiveWrites)
        network.set(tags[write.slot], write.value, {});
    std::size_t count = 0;
    const double seconds = cpuSecondsOf([&] {
        for (int i = 0; i < kRounds; ++i) {
            for (const Write& write : kFiveWrites) {
                keep(network.set(tags[write.slot], write.value, {}).size());
                count += network.isTrue(compiler.rootOf(1)) ? 1 : 0;
            }
        }
    });
    if (count != kRounds * kFiveWrites.size())
        throw std::logic_error("the condition of five terms was not always true");
    return seconds * 1e9 / static_cast<double>(count);
}

/// The same in native code: a write of a slot, and the five terms over the slots. Values are
/// compared as the condition's language does where their kinds differ.
double nanosecondsByNativeCode()
{
    std::vector<KR::KRValue> slots(kFiveKeys.size());
    for (const Write& write : kFiveWrites)
        slots[write.slot] = write.value;
    const auto isText = [](const KR::KRValue& value, const char* text) {
        return value.isString() && value.toText() == text;
    };
    const auto isTrue = [&] {
        return !isText(slots[0], "disabled") &&
               ((slots[1].isBool() || slots[1].isNumber()) && slots[1].toFloat() == 0) &&
               !slots[2].isTrue() && (slots[3].isNumber() && slots[3].toFloat() >= 20) &&
               isText(slots[4], "Near");
    };
    std::size_t count = 0;
    const double seconds = cpuSecondsOf([&] {
        for (int i = 0; i < kRounds; ++i) {
            for (const Write& write : kFiveWrites) {
                slots[write.slot] = write.value;
                keep(slots[write.slot]);
                count += isTrue() ? 1 : 0;
            }
        }
    });
    if (count != kRounds * kFiveWrites.size())
        throw std::logic_error("the native condition of five terms was not always true");
    return seconds * 1e9 / static_cast<double>(count);
}

void fiveTerms(Table& table)
{
    const std::string row = "a condition of five terms, all true";
    const std::string peersRow = "the same, against native code";
    if (!table.wants(row) && !table.wants(peersRow))
        return;
    nanosecondsByNetwork();
    const Comparison result = compare(kTurns, nanosecondsByNetwork, nanosecondsByNativeCode);
    table.add(row, text(result.ours.median, "ns"), "", result.ours, atMost(20, "ns"));
    table.add(peersRow, text(result.ours.median, "ns"), text(result.peer.median, "ns native"),
              result.ratio, atMost(2, "x"));
}

}  // namespace

void measureWideKeys(Table& table)
{
    pinToCore(1);
    allFlip(table);
    noneFlips(table);
    fiveTerms(table);
}

}  // namespace bench
