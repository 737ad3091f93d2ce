#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "bench/OneThreadClock.h"
#include "bench/Pairs.h"
#include "platform/conditions/ConditionChecker.h"
#include "platform/kr/KRBroker.h"
#include "platform/kr/KRMemory.h"
#include "platform/vo/Application.h"

namespace bench {

/// Something that follows the pairs' rules on one thread: a change is raised, and what it fires is
/// reported before the call returns.
class PairEngine {
public:
    virtual ~PairEngine() = default;
    virtual void change(std::size_t key, bool low) = 0;
    virtual void setAsleep(bool asleep) = 0;
    /// Rules reported so far.
    std::size_t fired() const { return fired_; }

protected:
    std::size_t fired_ = 0;
};

/// Ours: shared memory and the checker, whose tasks run on the thread that raises, without a
/// hand-off.
class OurPairEngine : public PairEngine {
public:
    explicit OurPairEngine(const Pairs& pairs);
    ~OurPairEngine() override { checker.exit(); }
    void change(std::size_t key, bool low) override { raise(pairs_.keys[key], low ? low_ : high_); }
    void setAsleep(bool asleep) override { raise(Pairs::kAsleep, KR::KRValue(asleep)); }
    void raise(const std::string& key, const KR::KRValue& value)
    {
        memory->raiseEvent(key, value);
        clock->run();
    }

    std::shared_ptr<OneThreadClock> clock = std::make_shared<OneThreadClock>();
    vo::Application application{clock};
    boost::shared_ptr<KR::KRBroker> broker = KR::KRBroker::create(application);
    KR::KRMemory* memory = &broker->memory();
    KR::ConditionChecker checker;

private:
    const Pairs& pairs_;
    const KR::KRValue low_{"Low"};
    const KR::KRValue high_{"High"};
};

/// What one would write by hand for just these rules, without anything of ours: a mutex, an index
/// from keys to the rules that read them, conditions in native code over variants, and a queue with
/// a condition variable between the raiser and the evaluation. No language, no history, no stamps,
/// no snapshot of values.
class HandWrittenEngine : public PairEngine {
public:
    explicit HandWrittenEngine(const Pairs& pairs);
    void change(std::size_t key, bool low) override;
    void setAsleep(bool asleep) override;

private:
    using Value = std::variant<bool, std::int64_t, double, std::string>;
    struct Rule {
        unsigned id;
        bool truth;
    };
    struct Key {
        Value value;
        std::vector<Rule> rules;
    };
    struct Change {
        Key* key;
        Value value;
    };
    void raise(const std::string& name, const Value& value);
    void work();
    void evaluate(Key& key);

    const Pairs& pairs_;
    const Value low_{std::string("Low")};
    const Value high_{std::string("High")};
    std::mutex mutex_;
    std::unordered_map<std::string, Key> keys_;
    Key* asleep_;
    std::mutex queueMutex_;
    std::condition_variable queued_;
    std::deque<Change> queue_;
    std::vector<std::pair<unsigned, bool>> hits_;
};

/// The rule engine of libclips; null where this build has none.
std::unique_ptr<PairEngine> makeRuleEngine(const Pairs& pairs);

/// Nanoseconds a change.
double nanosecondsPerChange(PairEngine& engine, PairChanges& changes, std::size_t count);

}  // namespace bench
