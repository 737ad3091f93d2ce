#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "explain/RuleSource.h"
#include "life/Event.h"

namespace KR {

/// What memory holds under a key.
struct HeldKey {
    KRValue value;
    KRValue before;         ///< what it held before it was this
    std::string writer;     ///< "" when it is not known
    vo::TimePoint written;  ///< the latest write
    vo::TimePoint since;    ///< since when it has this value
};

/// Something that is so since a time, by a rule; "" where none brought it about.
struct HeldFact {
    bool is = false;
    vo::TimePoint since;
    std::string rule;
    std::size_t step = 0;  ///< of the rule, from 1; 0 while that is not known
    std::string text;      ///< what it is about: an activity, a reason
};

/// What became of a rule that was proposed.
struct RuleHit {
    enum class Verdict { run, skipped, waits, dropped };
    struct Step {
        std::string type;
        std::string text;
        StepOutcome outcome = StepOutcome::done;
        std::string reason;
        vo::TimePoint at;
        HeldFact block = {};  ///< of the focus, then
    };

    vo::TimePoint at;        ///< when it was proposed
    std::string before;      ///< the activity that it comes before; "" for a hit at any time
    std::uint64_t list = 0;  ///< number of its hit list; 0 for none
    std::size_t place = 0;   ///< in the order in which the list was carried out, from 1
    std::size_t of = 0;      ///< hits of the list
    std::vector<std::string> ahead;  ///< rules of the list that came before it
    Verdict verdict = Verdict::run;
    std::string because;      ///< of what is not run
    std::string waitedFor;    ///< why it waited; "" where it did not
    vo::TimePoint decided;    ///< when the verdict was reached
    std::vector<Step> steps;  ///< that have ended
    bool isOver = false;      ///< nothing more comes of it

    /// Whether all its steps were carried out.
    bool isDone() const
    {
        return isOver && verdict == Verdict::run && !steps.empty() &&
               steps.back().outcome == StepOutcome::done;
    }
};

/// What is known of a rule.
struct RuleState {
    std::deque<RuleHit> hits;  ///< the latest ones, oldest first
    std::uint64_t hitCount = 0;
    std::size_t active = 0;  ///< how many times over
    vo::TimePoint activeSince;
    vo::TimePoint activeUntil;  ///< when it ended being active last; epoch for never
};

/// The state of a life, folded from its events in their order: what memory holds, what runs, what
/// is true of the robot, and what became of its rules. What is past is kept only as far as an
/// answer needs it, so memory does not grow with the length of a life.
///
/// Not thread-safe.
class LifeState {
public:
    static constexpr std::size_t kMostHits = 48;  ///< kept of each rule
    static constexpr std::size_t kMostTold = 32;  ///< kept of errors and focus changes each

    explicit LifeState(RuleReader reader) : reader_(std::move(reader)) {}

    void take(const Event& event);

    vo::TimePoint now() const { return now_; }
    vo::TimePoint begin() const { return begin_; }
    const RunBegan& run() const { return run_; }
    bool hasEnded() const { return hasEnded_; }
    /// Rules of the configuration, in their order, and then of packages that are there.
    std::vector<const RuleSource*> rules() const;
    /// Null when there is none; a rule that a module brought is known as soon as it is hit.
    const RuleSource* rule(const std::string& name) const;
    const RuleState* stateOf(const std::string& rule) const;

    const HeldFact& monitoring() const { return monitoring_; }
    const std::map<std::string, HeldKey>& keys() const { return keys_; }
    /// Those that were switched, and since when they are as they are.
    const std::map<std::string, HeldFact>& plugins() const { return plugins_; }
    const std::map<std::string, vo::PackageInfo>& packages() const { return packages_; }
    const HeldFact& focus() const { return focus_; }
    const HeldFact& focusBlock() const { return block_; }
    const std::map<std::string, HeldFact>& frozenChains() const { return chains_; }
    /// The value of 'Nimbra/State', "" while it is not known.
    std::string lifeState() const;

    struct Told {
        vo::TimePoint at;
        std::string text;
    };
    const std::deque<Told>& errors() const { return errors_; }
    const std::deque<Told>& focusChanges() const { return focusChanges_; }

private:
    /// A rule whose steps are carried out, or that has the focus.
    struct Run {
        std::string rule;
        std::uint64_t stay = 0;  ///< the focus that it gave; 0 for none
        bool isEnded = false;    ///< its steps are
    };

    void on(const RunBegan& run);
    void on(const RunEnded& run);
    void on(const KeyWritten& write);
    void on(const MonitoringSwitched& monitoring);
    void on(const PackageChanged& change);
    void on(const HitsFound& found);
    void on(const HitsTaken& taken);
    void on(const RuleProposed& proposed);
    void on(const RuleResumed& resumed);
    void on(const RuleSkipped& skipped);
    void on(const RuleWaits& waits);
    void on(const RuleDropped& dropped);
    void on(const StepEnded& step);
    void on(const FocusChanged& change);
    void on(const FocusBlockChanged& change);
    void on(const ChainChanged& change);
    void on(const PluginSwitched& plugin);
    void on(const ErrorReported& error);
    template <class Other>
    void on(const Other& /*other*/)
    {
    }

    RuleHit* openHit(const std::string& rule, RuleHit::Verdict verdict);
    void judge(const std::string& rule, RuleHit::Verdict verdict, const std::string& reason);
    void indexRules();
    void beginRun(const std::string& rule);
    void endRun(const std::string& rule);
    void dropRuns();
    void tell(std::deque<Told>& told, const std::string& text) const;
    static void set(HeldFact& fact, bool is, vo::TimePoint since, const std::string& rule,
                    const std::string& text = {});

    const RuleReader reader_;
    vo::TimePoint now_;
    vo::TimePoint begin_;
    RunBegan run_;
    bool hasEnded_ = false;
    std::vector<RuleSource> configured_;
    std::map<std::string, std::vector<RuleSource>> packaged_;  ///< by package
    std::map<std::string, RuleSource> others_;                 ///< that were hit, by name
    std::map<std::string, const RuleSource*> byName_;          ///< of all of these, the first
    std::map<std::string, RuleState> states_;
    HeldFact monitoring_;
    std::map<std::string, HeldKey> keys_;
    std::map<std::string, HeldFact> plugins_;
    std::map<std::string, vo::PackageInfo> packages_;
    HeldFact focus_;
    HeldFact block_;
    std::map<std::string, HeldFact> chains_;
    std::deque<Told> errors_;
    std::deque<Told> focusChanges_;

    std::deque<HitsFound> found_;         ///< hit lists that life has not come to
    std::optional<HitsFound> list_;       ///< that it is at
    std::vector<std::string> listOrder_;  ///< rules of it that were proposed
    RuleHit* judged_ = nullptr;           ///< the latest that was proposed or resumed
    std::vector<Run> runs_;
    // Stays in the focus are counted here.
    std::uint64_t stay_ = 0;  ///< of the activity that has the focus; 0 for none
    std::uint64_t lastStay_ = 0;
};

}  // namespace KR
