// The peer that is made for rules. A fact a key, `(key (name k17) (value Low))`.

#include <algorithm>
#include <stdexcept>

#include "bench/PairEngines.h"

extern "C" {
#include <clips/clips.h>
}

namespace bench {

namespace {

std::size_t firedRules = 0;

int noteFired(void*)
{
    ++firedRules;
    return 0;
}

class RuleEngine : public PairEngine {
public:
    explicit RuleEngine(const Pairs& pairs)
    {
        EnvDefineFunction2(env_, "note-fired", 'i', noteFired, "noteFired", "00");
        build("(deftemplate key (slot name) (slot value))");
        build("(deftemplate asleep (slot value))");
        for (std::size_t first = 0; first < pairs.ruleCount; first += kRulesPerConstruct)
            build(rules(pairs, first, std::min(first + kRulesPerConstruct, pairs.ruleCount)));
        low_ = symbol("Low");
        high_ = symbol("High");
        yes_ = symbol("yes");
        no_ = symbol("no");
        asleepTemplate_ = EnvFindDeftemplate(env_, "asleep");
        keyTemplate_ = EnvFindDeftemplate(env_, "key");
        asleep_ = {nullptr, nullptr};
        assertFact(asleep_, no_);
        for (std::size_t i = 0; i < pairs.keyCount; ++i) {
            keys_.push_back({symbol(("k" + std::to_string(i)).c_str()), nullptr});
            assertFact(keys_.back(), high_);
        }
    }
    ~RuleEngine() override { DestroyEnvironment(env_); }
    RuleEngine(const RuleEngine&) = delete;
    RuleEngine& operator=(const RuleEngine&) = delete;

    void change(std::size_t key, bool low) override { write(keys_[key], low ? low_ : high_); }
    void setAsleep(bool asleep) override { write(asleep_, asleep ? yes_ : no_); }

private:
    /// Null is the name of "asleep", which is a relation of its own.
    struct Fact {
        void* name;
        void* fact;
    };

    /// The engine looks for each construct's name among all, so thousands of rules are told to it
    /// as alternatives of fewer constructs; each becomes a rule of its own in the network.
    static constexpr std::size_t kRulesPerConstruct = 50;

    static std::string rules(const Pairs& pairs, std::size_t first, std::size_t end)
    {
        std::string text = "(defrule rules" + std::to_string(first) + " (or";
        for (std::size_t i = first; i < end; ++i)
            text += " (and (key (name k" + std::to_string(i % pairs.keyCount) +
                    ") (value Low)) (asleep (value no)))";
        return text + ") => (note-fired))";
    }
    void build(const std::string& construct)
    {
        if (!EnvBuild(env_, construct.c_str()))
            throw std::runtime_error("the rule engine refuses " + construct);
    }
    void* symbol(const char* name)
    {
        void* const added = EnvAddSymbol(env_, name);
        IncrementSymbolCount(added);  // kept, also while no fact has it
        return added;
    }
    void put(fact* to, const char* slot, void* what)
    {
        DATA_OBJECT value;
        SetType(value, SYMBOL);
        SetValue(value, what);
        EnvPutFactSlot(env_, to, slot, &value);
    }
    void assertFact(Fact& to, void* value)
    {
        fact* const made = EnvCreateFact(env_, to.name ? keyTemplate_ : asleepTemplate_);
        if (to.name)
            put(made, "name", to.name);
        put(made, "value", value);
        to.fact = EnvAssert(env_, made);
    }
    void write(Fact& to, void* value)
    {
        EnvRetract(env_, to.fact);
        assertFact(to, value);
        const std::size_t before = firedRules;
        EnvRun(env_, -1);
        fired_ += firedRules - before;
    }

    void* const env_ = CreateEnvironment();
    std::vector<Fact> keys_;
    Fact asleep_{};
    void* keyTemplate_;
    void* asleepTemplate_;
    void* low_;
    void* high_;
    void* yes_;
    void* no_;
};

}  // namespace

std::unique_ptr<PairEngine> makeRuleEngine(const Pairs& pairs)
{
    return std::make_unique<RuleEngine>(pairs);
}

}  // namespace bench
