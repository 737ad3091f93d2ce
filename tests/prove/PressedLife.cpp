#include "tests/prove/PressedLife.h"

#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "launchpad/NimbraLaunchpad.h"
#include "life/Life.h"
#include "life/LifeService.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/Application.h"
#include "platform/vo/Executor.h"
#include "platform/vo/ServiceObject.h"
#include "platform/vo/Session.h"
#include "tests/support/TemporaryFolder.h"

namespace KR {

/// Breaks an engine.
class NimbraLaunchpadTestAccess {
public:
    static void loseHits(NimbraLaunchpad& launchpad, unsigned oneIn)
    {
        launchpad.conditionChecker_.setCallback(
            [&launchpad, oneIn, count = 0U](ConditionChecker::Hits hits) mutable {
                if (++count % oneIn != 0)
                    launchpad._conditionHit(std::move(hits));
            });
    }
};

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr const char* kRules =
    R"({ConfigurationDescription: d, ConfigurationVersion: 2, AutonomousActions: [
{Description: edge, Condition: "'K0' == 1", ExecuteAnyTimeConditionEdgeTrue: true, Action: ApiCall, ActionParameters: {Module: Slow, Method: later, Args: [1]}},
{Description: two, Condition: "'K0' == 2 && 'K1' < 2", ExecuteAnyTimeConditionEdgeTrue: true, ExecuteAfterIfSimultaneouslyTrue: [edge], ExecuteAfterActiveRules: [edge, focus], Action: ApiCall, ActionParameters: {Module: Slow, Method: blocked, Args: [2]}},
{Description: focus, Condition: "'K2' == 1", ExecuteAnyTimeConditionEdgeTrue: true, Action: SwitchFocus, ActionParameters: {Activity: "action:a"}},
{Description: other, Condition: "'K3' == 1 && !'Nimbra/Asleep'", ExecuteAnyTimeConditionEdgeTrue: true, SkipIfRulesActive: [two], Action: SwitchFocus, ActionParameters: {Activity: "action:b", Deadline: 1}},
{Description: before, Condition: "'K4' > 0", ExecuteBeforeActivityIfConditionTrue: true, Action: ApiCall, ActionParameters: {Module: Slow, Method: later, Args: [3]}},
{Description: hold, Condition: "('K4' > 1) for 5 ms", ExecuteAnyTimeConditionEdgeTrue: true, Action: FreezeChain, ActionParameters: {Chain: Arms, Duration: 1}},
{Description: count, Condition: "count('K5' == 1, 20 ms) >= 3", ExecuteAnyTimeConditionEdgeTrue: true, Action: UnfreezeChain, ActionParameters: {Chain: Arms}},
{Description: focused, Condition: "'Nimbra/FocusedActivity' == \"action:a\"", ExecuteAnyTimeConditionEdgeTrue: true, ExecuteAfterActiveRules: [focus], Action: StopFocus},
{Description: state, Condition: "'K1' == 3 && age('K1') < 3 ms", ExecuteAnyTimeConditionEdgeTrue: true, Action: SetState, ActionParameters: {State: interactive}},
{Description: back, Condition: "'Nimbra/State' == \"interactive\" && 'K5' within 2 ms of 'K4'", ExecuteAnyTimeConditionEdgeTrue: true, Action: SetState, ActionParameters: {State: solitary}},
{Description: all, Condition: "'K0' == 3 && 'K1' == 3 && 'K2' == 3", ExecuteAnyTimeConditionEdgeTrue: true, Action: StopAll},
{Description: always, Condition: "'K3' >= 1", ExecuteAnyTimeConditionTrue: true, Action: BlockAutonomousFocus},
{Description: never, Condition: "'K3' == 0", ExecuteAnyTimeConditionEdgeTrue: true, Action: UnblockAutonomousFocus}]})";

/// Does something again and again, after pauses of a random length.
class Pacer {
public:
    Pacer(const std::shared_ptr<vo::Clock>& clock, unsigned seed, microseconds longest,
          std::function<void(std::mt19937&)> act)
        : random_(seed),
          longest_(longest),
          act_(std::move(act)),
          executor_(clock->makeExecutor("pacer", vo::Clock::Threading::own))
    {
        next();
    }
    ~Pacer() { executor_->close(); }

private:
    void next()
    {
        executor_->post(
            [this] {
                act_(random_);
                next();
            },
            microseconds(random_() % static_cast<unsigned>(longest_.count())));
    }

    std::mt19937 random_;
    const microseconds longest_;
    const std::function<void(std::mt19937&)> act_;
    const std::shared_ptr<vo::Executor> executor_;
};

/// What answers after a random time, on a thread of its own.
class Later {
public:
    Later(const std::shared_ptr<vo::Clock>& clock, unsigned seed)
        : random_(seed), executor_(clock->makeExecutor("later", vo::Clock::Threading::own))
    {
    }
    /// Nobody waits any more for what has not been answered.
    void close()
    {
        executor_->close();
        const vo::Lock lock(mutex_);
        isOver_ = true;
        for (const vo::Promise<int>& promise : promises_)
            promise.setError(std::make_exception_ptr(std::runtime_error("over")));
    }

    vo::Future<int> answer(int value)
    {
        const vo::Promise<int> promise;
        unsigned number = 0;
        {
            const vo::Lock lock(mutex_);
            number = random_();
            promises_.push_back(promise);
            if (isOver_)
                promise.setError(std::make_exception_ptr(std::runtime_error("over")));
        }
        executor_->post(
            [promise, value, number] {
                if (number % 7 == 0)
                    promise.setError(std::make_exception_ptr(std::runtime_error("no")));
                else
                    promise.setValue(value);
            },
            milliseconds(number % 20));
        return promise.future();
    }
    void run(std::function<void()> task)
    {
        unsigned number = 0;
        {
            const vo::Lock lock(mutex_);
            number = random_();
        }
        executor_->post(std::move(task), milliseconds(number % 40));
    }

private:
    vo::Mutex mutex_;
    std::mt19937 random_ VO_GUARDED_BY(mutex_);
    std::vector<vo::Promise<int>> promises_ VO_GUARDED_BY(mutex_);
    bool isOver_ VO_GUARDED_BY(mutex_) = false;
    const std::shared_ptr<vo::Executor> executor_;
};

void askSomething(LifeService& life, std::mt19937& random)
{
    switch (random() % 7) {
        case 0:
            life.setAsleep(random() % 2 == 0);
            break;
        case 1:
            life.stopFocus("enough");
            break;
        case 2:
            life.switchFocus({"action:c"});
            break;
        case 3:
            life.freezeChain("Arms", random() % 2 == 0 ? std::optional(1) : std::nullopt);
            break;
        case 4:
            life.freezeChain("Tail");
            break;
        case 5:
            life.setState("safeguard", true).wait();
            life.setState("solitary", true);
            break;
        default:
            life.unblockAutonomousFocus();
    }
}

}  // namespace

void liveUnderPressure(milliseconds duration, unsigned seed,
                       const std::function<void(EventStream&)>& begin, unsigned lostOneIn)
{
    const TemporaryFolder folder;
    const std::string config = folder.path() + "/rules.cfg";
    std::ofstream(config) << kRules;
    const auto clock = vo::makeRealClock();
    vo::Application application(clock);
    const auto broker = KRBroker::create(application);
    Later later(clock, seed);
    const auto slow = std::make_shared<vo::ServiceObject>("Slow");
    slow->method("later", [&](int value) { return later.answer(value); });
    slow->method("blocked", [&](int value) { return later.answer(value).value(); });
    application.session().registerService(slow);
    vo::Signal<std::string> ended;
    const auto action = std::make_shared<vo::ServiceObject>("action");
    action
        ->method("start",
                 [&](const std::string& module) {
                     later.run([&, module] { ended(module); });
                     return later.answer(0).map([](int) {});
                 })
        .method("stop", [&](const std::string&) { return later.answer(0).map([](int) {}); })
        .signal("onEnded", ended);
    application.session().registerService(action);

    EventStream events(clock);
    begin(events);
    events.publish(RunBegan{"", config, kRules, {}, {}, {"Arms"}});
    {
        Life::Options options;
        options.config = config;
        options.chains = {"Arms"};
        Life life(broker, events, options);
        if (lostOneIn != 0)
            NimbraLaunchpadTestAccess::loseHits(life.launchpad(), lostOneIn);
        life.start();
        std::vector<std::unique_ptr<Pacer>> pacers;
        for (unsigned thread = 0; thread < 3; ++thread)
            pacers.push_back(std::make_unique<Pacer>(
                clock, seed + thread + 1, milliseconds(2), [&](std::mt19937& random) {
                    for (unsigned i = random() % 4; i > 0; --i)
                        broker->memory().raiseEvent("K" + std::to_string(random() % 6),
                                                    static_cast<int>(random() % 4));
                }));
        pacers.push_back(std::make_unique<Pacer>(
            clock, seed, milliseconds(20),
            [&](std::mt19937& random) { askSomething(life.service(), random); }));
        vo::Promise<void> over;
        const auto timer = clock->makeExecutor("end", vo::Clock::Threading::shared);
        timer->post([over] { over.setValue(); }, duration);
        over.future().wait();
        timer->close();
        pacers.clear();
        life.stop();
        later.close();
        slow->close();
        action->close();
    }
    events.publish(RunEnded{});
    events.flush();
}

}  // namespace KR
