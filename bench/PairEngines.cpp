#include "bench/PairEngines.h"

#include "bench/Harness.h"

namespace bench {

OurPairEngine::OurPairEngine(const Pairs& pairs) : pairs_(pairs)
{
    checker.connect(broker);
    checker.setCallback([this](const KR::ConditionChecker::Hits& hits) { fired_ += hits.size(); });
    for (std::size_t i = 0; i < pairs.ruleCount; ++i)
        checker.addCondition(pairs.condition(i), KR::ConditionChecker::ReportBecomesTrue);
    memory->raiseEvent(Pairs::kAsleep, false);
    for (const std::string& key : pairs.keys)
        memory->raiseEvent(key, high_);
    checker.run(0, false);
    clock->run();
}

HandWrittenEngine::HandWrittenEngine(const Pairs& pairs) : pairs_(pairs)
{
    for (std::size_t i = 0; i < pairs.ruleCount; ++i)
        keys_[pairs.keyOf(i)].rules.push_back({static_cast<unsigned>(i + 1), false});
    for (auto& [name, key] : keys_)
        key.value = high_;
    asleep_ = &keys_[Pairs::kAsleep];
    asleep_->value = false;
}

void HandWrittenEngine::change(std::size_t key, bool low)
{
    raise(pairs_.keys[key], low ? low_ : high_);
    work();
}

void HandWrittenEngine::setAsleep(bool asleep)
{
    raise(Pairs::kAsleep, asleep);
    work();
}

void HandWrittenEngine::raise(const std::string& name, const Value& value)
{
    Key* key = nullptr;
    {
        const std::lock_guard lock(mutex_);
        key = &keys_.at(name);
    }
    {
        const std::lock_guard lock(queueMutex_);
        queue_.push_back({key, value});
    }
    queued_.notify_one();
}

void HandWrittenEngine::work()
{
    Change change;
    {
        std::unique_lock lock(queueMutex_);
        queued_.wait(lock, [this] { return !queue_.empty(); });
        change = std::move(queue_.front());
        queue_.pop_front();
    }
    hits_.clear();
    {
        const std::lock_guard lock(mutex_);
        change.key->value = std::move(change.value);
        if (change.key == asleep_) {
            for (auto& [name, key] : keys_)
                evaluate(key);
        } else {
            evaluate(*change.key);
        }
    }
    if (!hits_.empty())
        fired_ += hits_.size();
}

void HandWrittenEngine::evaluate(Key& key)
{
    for (Rule& rule : key.rules) {
        const auto* text = std::get_if<std::string>(&key.value);
        const bool truth = text && *text == "Low" && !std::get<bool>(asleep_->value);
        if (truth && !rule.truth)
            hits_.emplace_back(rule.id, true);
        rule.truth = truth;
    }
}

double nanosecondsPerChange(PairEngine& engine, PairChanges& changes, std::size_t count)
{
    const double seconds = cpuSecondsOf([&] {
        for (std::size_t i = 0; i < count; ++i) {
            const PairChanges::Change change = changes.next();
            engine.change(change.key, change.low);
        }
    });
    return seconds * 1e9 / static_cast<double>(count);
}

}  // namespace bench
