#include "bench/Harness.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <malloc.h>
#include <sched.h>
#include <system_error>
#include <time.h>

namespace bench {

Spread spreadOf(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    const double median =
        values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
    return {median, values.front(), values.back()};
}

Comparison compare(int turns, const Measure& first, const Measure& second)
{
    std::vector<double> ours, peers, ratios;
    for (int i = 0; i < turns; ++i) {
        // Each goes first as often as the other.
        const bool swapped = i % 2 == 1;
        const double a = swapped ? second() : first();
        const double b = swapped ? first() : second();
        ours.push_back(swapped ? b : a);
        peers.push_back(swapped ? a : b);
        ratios.push_back(ours.back() / peers.back());
    }
    return {spreadOf(ours), spreadOf(peers), spreadOf(ratios)};
}

Spread repeat(int times, const Measure& measure)
{
    std::vector<double> values;
    for (int i = 0; i < times; ++i)
        values.push_back(measure());
    return spreadOf(values);
}

std::string text(double value, const std::string& unit)
{
    const double size = std::abs(value);
    char buffer[64];
    const int digits = size >= 1000 ? 0 : size >= 100 ? 1 : size >= 10 ? 1 : 2;
    std::snprintf(buffer, sizeof buffer, "%.*f%s%s", digits, value, unit.empty() ? "" : " ",
                  unit.c_str());
    return buffer;
}

void Table::printHead() const
{
    print("what", "measured", "peer", "result", "required", "reached", "spread");
}

void Table::add(const std::string& row, const std::string& measured, const std::string& peer,
                const Spread& judged, const Limit& limit, const std::string& bound)
{
    ++rows_;
    ++judged_;
    const bool reached = limit.isReached(judged.median);
    if (!reached)
        missed_.push_back(bound.empty() ? row : row + ": " + bound);
    const std::string required = (limit.kind == Limit::Kind::atMost ? "<= " : ">= ");
    print(row, measured, peer, text(judged.median, limit.unit),
          required + text(limit.value, limit.unit), reached ? "yes" : "NO",
          text(judged.min, "") + " - " + text(judged.max, ""));
}

void Table::addInformation(const std::string& row, const std::string& measured,
                           const std::string& peer)
{
    ++rows_;
    print(row, measured, peer, "", "", "", "");
}

void Table::addMissing(const std::string& row, const std::string& why)
{
    ++rows_;
    ++judged_;
    missed_.push_back(row + ": " + why);
    print(row, "not measured: " + why, "", "", "", "NO", "");
}

void Table::print(const std::string& row, const std::string& measured, const std::string& peer,
                  const std::string& result, const std::string& required,
                  const std::string& reached, const std::string& spread) const
{
    std::printf("| %-46s | %-14s | %-24s | %-12s | %-14s | %-7s | %-17s |\n", row.c_str(),
                measured.c_str(), peer.c_str(), result.c_str(), required.c_str(), reached.c_str(),
                spread.c_str());
    std::fflush(stdout);
}

double heapBytes()
{
    const struct mallinfo2 info = ::mallinfo2();
    return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

void pinToCore(unsigned core)
{
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(core % coreCount(), &set);
    if (::sched_setaffinity(0, sizeof set, &set) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot pin a thread");
}

unsigned coreCount()
{
    static const unsigned count = [] {
        cpu_set_t set;
        CPU_ZERO(&set);
        if (::sched_getaffinity(0, sizeof set, &set) != 0)
            throw std::system_error(errno, std::generic_category(), "cannot count the cores");
        return static_cast<unsigned>(CPU_COUNT(&set));
    }();
    return count;
}

double secondsOf(const std::function<void()>& work)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double cpuSecondsOf(const std::function<void()>& work)
{
    const auto now = [] {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    const double start = now();
    work();
    return now() - start;
}

}  // namespace bench
