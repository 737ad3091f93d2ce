// As many changes as one thread can raise, through to where they have their effect.

#include <future>
#include <stdexcept>

#include "bench/LiveLaunchpad.h"
#include "bench/Pairs.h"
#include "bench/Rows.h"
#include "bench/Sleepers.h"

namespace bench {

namespace {

constexpr int kTurns = 7;
constexpr unsigned kRaisersCore = 0;
constexpr unsigned kCheckersCore = 1;

/// The pairs while the robot is asleep: each change flips a comparison, and no rule. Now and then a
/// mark is raised, whose rule fires; by what memory holds then, as the checker sees it, every
/// change before the mark was handled, and none after it.
class QuietBurst {
public:
    QuietBurst() : application_((pinToCore(kCheckersCore), vo::makeRealClock()))
    {
        checker_.connect(broker_);
        for (std::size_t i = 0; i < pairs_.ruleCount; ++i)
            checker_.addCondition(pairs_.condition(i), KR::ConditionChecker::ReportBecomesTrue);
        checker_.addCondition("'Mark'", KR::ConditionChecker::ReportBecomesTrue);
        checker_.addCondition("'Count'<0", KR::ConditionChecker::ReportBecomesTrue);
        checker_.setCallback([this](const KR::ConditionChecker::Hits&) { onMark(); });
        memory_.raiseEvent(Pairs::kAsleep, true);
        memory_.raiseEvent("Mark", 0);
        checker_.run(0, false);
        pinToCore(kRaisersCore);
    }
    ~QuietBurst() { checker_.exit(); }

    /// Changes a second, in millions.
    double measure()
    {
        std::promise<void> done;
        done_ = &done;
        marks_ = 0;
        const double seconds = secondsOf([&] {
            for (int mark = 1; mark <= kMarks; ++mark)
                raiseUpToMark(mark * kChangesPerMark);
            done.get_future().wait();
        });
        if (wrong_ != 0)
            throw std::logic_error("a burst lost or reordered changes");
        return kMarks * kChangesPerMark / seconds / 1e6;
    }

private:
    static constexpr int kMarks = 8;
    static constexpr int kChangesPerMark = 100'000;

    void raiseUpToMark(int count)
    {
        for (int i = 3; i < kChangesPerMark; ++i) {
            const PairChanges::Change change = changes_.next();
            memory_.raiseEvent(pairs_.keys[change.key], change.low ? low_ : high_);
        }
        memory_.raiseEvent("Count", count);
        memory_.raiseEvent("Mark", 1);
        memory_.raiseEvent("Mark", 0);
    }
    /// On the checker's thread.
    void onMark()
    {
        ++marks_;
        if (checker_.getPersistentValues().at("Count").second !=
            KR::KRValue(marks_ * kChangesPerMark))
            ++wrong_;
        if (marks_ == kMarks)
            done_->set_value();
    }

    const Pairs pairs_{10'000};
    PairChanges changes_{pairs_, PairChanges::Choice::uniform};
    const KR::KRValue low_{"Low"};
    const KR::KRValue high_{"High"};
    std::promise<void>* done_ = nullptr;
    int marks_ = 0;
    int wrong_ = 0;
    vo::Application application_;
    boost::shared_ptr<KR::KRBroker> broker_ = KR::KRBroker::create(application_);
    KR::KRMemory& memory_ = broker_->memory();
    KR::ConditionChecker checker_;
};

/// Each change of a trigger fires four actions. Thousands of dispatches a second.
class FiringBurst {
public:
    explicit FiringBurst(std::size_t keys) : launchpad_(kCheckersCore, kRaisersCore, keys)
    {
        pinToCore(kRaisersCore);
        launchpad_.onDispatch = [this](const auto& actions, const auto& values) {
            note(actions, values);
        };
    }

    double measure()
    {
        std::promise<void> done;
        done_ = &done;
        received_ = 0;
        const double seconds = secondsOf([&] {
            for (int i = 0; i < kChanges; ++i)
                launchpad_.memory().raiseEvent(LiveLaunchpad::trigger(triggerOf(i)),
                                               isLow(i) ? low_ : high_);
            done.get_future().wait();
        });
        if (wrong_ != 0)
            throw std::logic_error("a burst lost or reordered dispatches");
        return kChanges / seconds / 1e3;
    }

private:
    static constexpr int kChanges = 16'000;

    static std::size_t triggerOf(int i) { return static_cast<std::size_t>(i) % 8; }
    static bool isLow(int i) { return i / 8 % 2 == 0; }

    /// On the event loop: change number `received_` must have brought just these.
    void note(const std::list<KR::AutonomousAction>& actions, const KR::PersistentValues& values)
    {
        const std::string trigger = std::to_string(triggerOf(received_));
        const std::string value = isLow(received_) ? "Low" : "High";
        std::size_t number = 0;
        for (const KR::AutonomousAction& action : actions)
            if (action.description != trigger + ' ' + value + ' ' + std::to_string(number++) ||
                action.items.size() != 3)
                ++wrong_;
        if (number != LiveLaunchpad::kActionsPerChange ||
            values.at("Sense/Trigger" + trigger).second != KR::KRValue(value))
            ++wrong_;
        if (++received_ == kChanges)
            done_->set_value();
    }

    const KR::KRValue low_{"Low"};
    const KR::KRValue high_{"High"};
    std::promise<void>* done_ = nullptr;
    int received_ = 0;
    int wrong_ = 0;
    LiveLaunchpad launchpad_;
};

void quiet(Table& table)
{
    const std::string row = "burst that fires nothing, N = 10000";
    if (!table.wants(row))
        return;
    QuietBurst burst;
    for (int i = 0; i < 4; ++i)
        burst.measure();
    const Spread result = repeat(kTurns, [&] { return burst.measure(); });
    table.add(row, text(result.median, "million/s"), "", result, atLeast(2.5, "million/s"),
              "each batch that the checker has emptied costs the raiser a wake-up");
}

void firing(Table& table)
{
    const std::string row = "burst that fires 4 actions a change, 64 keys";
    if (table.wants(row)) {
        FiringBurst burst(LiveLaunchpad::kKeys);
        burst.measure();
        const Spread result = repeat(kTurns, [&] { return burst.measure(); });
        table.add(row, text(result.median, "thousand/s"), "", result, atLeast(60, "thousand/s"));
    }
    const std::string wideRow = "the same, 2000 keys";
    if (table.wants(wideRow)) {
        FiringBurst burst(2000);
        burst.measure();
        const Spread result = repeat(3, [&] { return burst.measure(); });
        table.addInformation(wideRow, text(result.median, "thousand/s"));
    }
}

}  // namespace

void measureBursts(Table& table)
{
    quiet(table);
    firing(table);
}

}  // namespace bench
