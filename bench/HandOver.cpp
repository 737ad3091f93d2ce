// From the raise of an event to the entry of the responder, one event at a time.

#include <future>

#include "bench/LiveLaunchpad.h"
#include "bench/Rows.h"
#include "bench/Sleepers.h"

namespace bench {

namespace {

constexpr int kTurns = 9;
constexpr int kEventsPerTurn = 200;
constexpr auto kPace = std::chrono::milliseconds(1);
// The raiser shares its core with the event loop: it sleeps while that one works.
constexpr unsigned kRaisersCore = 0;
constexpr unsigned kCheckersCore = 1;
constexpr unsigned kLoopsCore = 0;

/// Median microseconds from just before `send` to when the other end says that it was reached.
template <class Send>
double medianLatency(Send send)
{
    std::vector<double> latencies;
    auto next = Steady::now();
    for (int i = 0; i < kEventsPerTurn; ++i) {
        next += kPace;
        std::this_thread::sleep_until(next);
        std::promise<Steady::time_point> arrived;
        const auto start = Steady::now();
        send(i, arrived);
        latencies.push_back(
            std::chrono::duration<double, std::micro>(arrived.get_future().get() - start).count());
    }
    return spreadOf(latencies).median;
}

class RaiseToResponder {
public:
    RaiseToResponder() : launchpad_(kCheckersCore, kLoopsCore)
    {
        pinToCore(kRaisersCore);
        launchpad_.onDispatch = [this](const auto&, const auto&) {
            const auto now = Steady::now();
            arrived_.load()->set_value(now);
        };
    }
    double measure()
    {
        return medianLatency([this](int, std::promise<Steady::time_point>& arrived) {
            arrived_ = &arrived;
            low_ = !low_;
            launchpad_.memory().raiseEvent(trigger_, low_ ? kLow : kHigh);
        });
    }

private:
    const std::string trigger_ = LiveLaunchpad::trigger(0);
    const KR::KRValue kLow{"Low"};
    const KR::KRValue kHigh{"High"};
    bool low_ = false;
    std::atomic<std::promise<Steady::time_point>*> arrived_{nullptr};
    LiveLaunchpad launchpad_;
};

}  // namespace

void measureHandOver(Table& table)
{
    const std::string row = "raise to responder, p50, against 2 hand-offs";
    if (!table.wants(row))
        return;
    RaiseToResponder ours;
    Sleepers sleepers({kCheckersCore, kLoopsCore});
    pinToCore(kRaisersCore);
    const auto measureBare = [&] {
        return medianLatency([&](int, std::promise<Steady::time_point>& arrived) {
            sleepers.send([&arrived] { arrived.set_value(Steady::now()); });
        });
    };
    ours.measure();
    measureBare();
    const Comparison result = compare(
        kTurns, [&] { return ours.measure(); }, measureBare);
    table.add(row, text(result.ours.median, "us"), text(result.peer.median, "us bare"),
              result.ratio, atMost(1.15, "x"),
              "as many sleeps as the bare one; the rest is code that runs once a millisecond, on "
              "processors that were halted");
}

}  // namespace bench
