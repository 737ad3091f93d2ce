#pragma once

#include <cstddef>
#include <functional>
#include <regex>
#include <string>
#include <vector>

/// @file
/// What the workloads share: repeated measurements, taken in turn with those of the peer so that
/// the machine's noise hits both, and the table that comes out.

namespace bench {

/// Of several measurements of one thing.
struct Spread {
    double median = 0;
    double min = 0;
    double max = 0;
};
Spread spreadOf(std::vector<double> values);

/// One measurement. Its unit is the row's.
using Measure = std::function<double()>;

/// Two things measured in turn, and the ratio of each pair.
struct Comparison {
    Spread ours;
    Spread peer;
    Spread ratio;
};
/// `first / second` of each turn is the ratio.
Comparison compare(int turns, const Measure& first, const Measure& second);
Spread repeat(int times, const Measure& measure);

/// One requirement on a number.
struct Limit {
    enum class Kind { atMost, atLeast } kind;
    double value;
    const char* unit;  ///< "" for a ratio

    bool isReached(double number) const
    {
        return kind == Kind::atMost ? number <= value : number >= value;
    }
};
inline Limit atMost(double value, const char* unit = "")
{
    return {Limit::Kind::atMost, value, unit};
}
inline Limit atLeast(double value, const char* unit = "")
{
    return {Limit::Kind::atLeast, value, unit};
}

/// The table, printed row by row as it is measured.
class Table {
public:
    /// Only rows whose name the expression finds are measured.
    explicit Table(const std::string& only) : only_(only) {}

    bool wants(const std::string& row) const { return std::regex_search(row, only_); }
    void printHead() const;
    /// A row whose median is held against a limit. `measured` and `peer` say what was compared,
    /// `bound` what keeps it from being better, for when it is not reached.
    void add(const std::string& row, const std::string& measured, const std::string& peer,
             const Spread& judged, const Limit& limit, const std::string& bound = "");
    /// A row that is shown and not judged.
    void addInformation(const std::string& row, const std::string& measured,
                        const std::string& peer = "");
    /// A row that cannot be measured here.
    void addMissing(const std::string& row, const std::string& why);

    /// The rows that are not reached or could not be measured, each with what bounds it.
    const std::vector<std::string>& missed() const { return missed_; }
    std::size_t judged() const { return judged_; }
    /// Rows that were measured, judged or not.
    std::size_t rows() const { return rows_; }

private:
    void print(const std::string& row, const std::string& measured, const std::string& peer,
               const std::string& result, const std::string& required, const std::string& reached,
               const std::string& spread) const;

    const std::regex only_;
    std::size_t judged_ = 0;
    std::size_t rows_ = 0;
    std::vector<std::string> missed_;
};

/// "12.3 ns"; picks the digits.
std::string text(double value, const std::string& unit);

/// Bytes that this process has of the heap, the allocator's own share included.
double heapBytes();

/// Keeps the calling thread, and the threads that it creates from now on, on one core.
void pinToCore(unsigned core);
/// The cores that this process may use.
unsigned coreCount();

/// Seconds that `work` takes.
double secondsOf(const std::function<void()>& work);

/// Seconds of the core that `work` takes from this thread: what is measured on one thread is not to
/// depend on who else wants the core meanwhile.
double cpuSecondsOf(const std::function<void()>& work);

/// Keeps the optimiser from dropping the computation of a value.
template <class T>
inline void keep(const T& value)
{
    asm volatile("" : : "r,m"(value) : "memory");
}

}  // namespace bench
