#include "explain/Remedies.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "explain/CandidateValues.h"
#include "explain/RemedyMoves.h"

namespace KR {

namespace {

using Step = Remedy::Step;
using Steps = std::vector<Step>;

/// Steps of a single remedy, what a person would still read.
constexpr std::size_t kMostSteps = 48;
/// Changes by themselves that are waited for.
constexpr int kMostDues = 16;
/// Of the search, in parts that are set up or stepped through. The costliest that was measured took
/// 170 ms of a processor.
constexpr std::size_t kWork = 500'000;
/// So much of it is left to the pairs of keys.
constexpr std::size_t kWorkForPairs = kWork / 2;

/// What is better stands first.
using Cost = std::tuple<std::size_t, vo::Duration, std::size_t>;

Cost costOf(const Steps& steps)
{
    const Remedy remedy{steps};
    return {remedy.keys().size(), remedy.wait(), steps.size()};
}

std::size_t sizeOf(const ConditionPart& part)
{
    std::size_t size = 1;
    for (const ConditionPart& each : part.parts)
        size += sizeOf(each) + each.instants.size();
    return size;
}

/// What the search tells states apart by: values, truths, and how often something was counted, but
/// not since when.
std::string signatureOf(const ConditionPart& part)
{
    std::string text = part.kind == ConditionPart::Kind::age ? "" : part.value.toDisplayString();
    text += "/" + std::to_string(part.instants.size());
    for (const ConditionPart& each : part.parts)
        text += "," + signatureOf(each);
    return text;
}

/// One search, from a moment to what is wanted.
class RemedySearch {
public:
    RemedySearch(const ConditionMoment& moment, RemedyGoal goal, const KeyCatalogue* catalogue)
        : moment_(moment),
          expression_(parseCondition(moment.condition.text)),
          values_(expression_, moment.condition, catalogue),
          rehearsal_(moment),
          isTimed_(KR::isTimed(expression_)),
          size_((isTimed_ ? 8 : 1) * sizeOf(moment.condition)),
          mustFall_(goal == RemedyGoal::becomesTrue && moment.condition.isTrue())
    {
    }

    Remedies run()
    {
        if (moment_.condition.isTrue() != rehearsal_.isTrue())
            return {{}, true};  // there is more to this moment than is known
        tryWaiting();
        if (!mustFall_)
            tryOneKey();
        searchOn();
        if (!mustFall_ && isWorthTwoKeys())
            tryTwoKeys();
        const auto before = [](const Remedy& a, const Remedy& b) {
            return costOf(a.steps) < costOf(b.steps);
        };
        std::stable_sort(result_.found.begin(), result_.found.end(), before);
        dropLarger();
        return std::move(result_);
    }

private:
    /// Where steps lead to.
    struct Outcome {
        bool isReached = false;
        bool hasFallen = false;  ///< it was false on the way, or need not be
        vo::TimePoint now{};
        ConditionPart condition;  ///< where it is not reached
    };

    bool spend(std::size_t steps)
    {
        work_ += size_ + 4 + steps;
        const bool mayGoOn = work_ <= kWork;
        result_.isCut = result_.isCut || !mayGoOn;
        return mayGoOn;
    }

    /// The condition has to be true at the end, and to have been false before if it must fall.
    Outcome rehearse(const Steps& steps, bool inspects)
    {
        rehearsal_.restart();
        Outcome outcome;
        outcome.hasFallen = !mustFall_;
        for (const Step& step : steps) {
            if (step.key.empty())
                rehearsal_.wait(step.wait);
            else
                rehearsal_.write(step.key, step.value);
            outcome.hasFallen = outcome.hasFallen || !rehearsal_.isTrue();
        }
        rehearsal_.settle();
        outcome.hasFallen = outcome.hasFallen || !rehearsal_.isTrue();
        outcome.now = rehearsal_.now();
        outcome.isReached = outcome.hasFallen && rehearsal_.isTrue();
        if (inspects && !outcome.isReached)
            outcome.condition = rehearsal_.inspect();
        return outcome;
    }

    bool isReachedBy(const Steps& steps)
    {
        return spend(steps.size()) && rehearse(steps, false).isReached;
    }

    /// Lets time pass from one instant at which something is due to the next.
    void tryWaiting()
    {
        rehearsal_.restart();
        bool hasFallen = !mustFall_;
        for (int i = 0; i < kMostDues && rehearsal_.nextDue() && spend(1); ++i) {
            rehearsal_.wait(*rehearsal_.nextDue() - rehearsal_.now());
            hasFallen = hasFallen || !rehearsal_.isTrue();
            if (hasFallen && rehearsal_.isTrue())
                return keep({{"", {}, rehearsal_.now() - moment_.now}});
        }
    }

    void tryOneKey()
    {
        for (const auto& [key, values] : values_.all()) {
            for (const KRValue& value : values) {
                if (isReachedBy({{key, value, {}}})) {
                    keep({{key, value, {}}});
                    break;
                }
            }
        }
    }

    bool isWorthTwoKeys() const
    {
        return std::none_of(result_.found.begin(), result_.found.end(), [](const Remedy& remedy) {
            return remedy.keys().size() <= 2 && remedy.wait() == vo::Duration::zero();
        });
    }

    void tryTwoKeys()
    {
        for (auto a = values_.all().begin(); a != values_.all().end(); ++a) {
            for (auto b = values_.all().begin(); b != values_.all().end(); ++b) {
                // Where nothing is remembered, their order means nothing.
                if ((isTimed_ ? a->first != b->first : a->first < b->first) && tryTwo(*a, *b))
                    return;
            }
        }
    }

    template <class Entry>
    bool tryTwo(const Entry& a, const Entry& b)
    {
        for (const KRValue& first : a.second) {
            for (const KRValue& second : b.second) {
                const Steps steps{{a.first, first, {}}, {b.first, second, {}}};
                if (isReachedBy(steps)) {
                    keep(steps);
                    return true;
                }
                if (work_ > kWork)
                    return true;
            }
        }
        return false;
    }

    /// Best first, from what was tried to what its false parts ask for next.
    void searchOn()
    {
        using Queue = std::multimap<Cost, Steps>;
        Queue queue{{costOf({}), {}}};
        std::set<std::string> seen;
        while (!queue.empty() && result_.found.size() < 3 * Remedies::kMost) {
            const Steps steps = std::move(queue.extract(queue.begin()).mapped());
            if (!isWorth(steps))
                continue;
            if (work_ > kWork - kWorkForPairs || !spend(2 * size_ + steps.size())) {
                result_.isCut = true;
                break;
            }
            const Outcome outcome = rehearse(steps, true);
            if (outcome.isReached) {
                keep(steps);
                continue;
            }
            // The cheapest way to a state comes first.
            const std::string state = signatureOf(outcome.condition);
            if (!seen.insert(state + (outcome.hasFallen ? "!" : "")).second)
                continue;
            const RemedyMoves::Moves moves =
                RemedyMoves(values_, outcome.now)
                    .towards(expression_, outcome.condition, outcome.hasFallen);
            if (!spend(moves.size() * (steps.size() + 1)))
                break;
            for (const RemedyMoves::Move& move : moves) {
                Steps next = steps;
                next.insert(next.end(), move.begin(), move.end());
                if (next.size() <= kMostSteps && isWorth(next))
                    queue.emplace(costOf(next), std::move(next));
            }
        }
    }

    /// Whether it could be an answer that is not there yet.
    bool isWorth(const Steps& steps) const
    {
        const Remedy remedy{steps};
        return remedy.keys().size() <= Remedies::kMostKeys && !isCovered(remedy);
    }

    /// Whether an answer with no other keys takes no longer.
    bool isCovered(const Remedy& remedy) const
    {
        const std::set<std::string> keys = remedy.keys();
        return std::any_of(result_.found.begin(), result_.found.end(), [&](const Remedy& known) {
            const std::set<std::string> fewer = known.keys();
            return known.wait() <= remedy.wait() &&
                   std::includes(keys.begin(), keys.end(), fewer.begin(), fewer.end());
        });
    }

    /// Keeps what was rehearsed, without the steps that it can do without.
    void keep(Steps steps)
    {
        for (std::size_t i = steps.size(); i-- > 0;) {
            Steps fewer = steps;
            fewer.erase(fewer.begin() + static_cast<std::ptrdiff_t>(i));
            if (!fewer.empty() && isReachedBy(fewer))
                steps = std::move(fewer);
        }
        Remedy remedy{{}};
        for (Step& step : steps) {
            const bool isMoreWaiting =
                step.key.empty() && !remedy.steps.empty() && remedy.steps.back().key.empty();
            if (isMoreWaiting)
                remedy.steps.back().wait += step.wait;
            else
                remedy.steps.push_back(std::move(step));
        }
        if (!isCovered(remedy))
            result_.found.push_back(std::move(remedy));
    }

    /// In ascending order of cost: what an earlier one does with some of its keys, as fast.
    void dropLarger()
    {
        std::vector<Remedy> all = std::exchange(result_.found, {});
        for (Remedy& remedy : all) {
            if (result_.found.size() < Remedies::kMost && !isCovered(remedy))
                result_.found.push_back(std::move(remedy));
        }
    }

    const ConditionMoment& moment_;
    const Expression expression_;
    const CandidateValues values_;
    ConditionRehearsal rehearsal_;
    const bool isTimed_;
    const std::size_t size_;  ///< what it takes to set it up
    const bool mustFall_;
    std::size_t work_ = 0;
    Remedies result_;
};

}  // namespace

std::set<std::string> Remedy::keys() const
{
    std::set<std::string> keys;
    for (const Step& step : steps) {
        if (!step.key.empty())
            keys.insert(step.key);
    }
    return keys;
}

vo::Duration Remedy::wait() const
{
    vo::Duration wait{};
    for (const Step& step : steps)
        wait += step.wait;
    return wait;
}

Remedies findRemedies(const ConditionMoment& moment, RemedyGoal goal, const KeyCatalogue* catalogue)
{
    return RemedySearch(moment, goal, catalogue).run();
}

}  // namespace KR
