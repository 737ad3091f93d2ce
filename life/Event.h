#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "life/ActivityRunner.h"
#include "life/StepResult.h"
#include "platform/conditions/CheckerScript.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"
#include "platform/vo/PackageInfo.h"

namespace KR {

/// The rule that an event is about.
struct EventRule {
    std::string name;
    bool periodic = false;  ///< proposed again and again while its condition holds
};

/// A run has begun: what comes after it is of this robot, under these rules.
struct RunBegan {
    std::string title;       ///< of the scenario; empty for a live run
    std::string config;      ///< path of the configuration; empty for none
    std::string configText;  ///< what it held, to the byte
    std::vector<std::string> rules;
    std::vector<std::string> keys;    ///< worth seeing, besides those that the rules read
    std::vector<std::string> chains;  ///< parts of the robot that can be held still
};

/// A run has ended; nothing comes after it.
struct RunEnded {
    bool interrupted = false;
};

/// A memory key was written.
struct KeyWritten {
    std::string key;
    KRValue value;
    /// Who wrote it: as it said itself, else the only one that publishes the key; "" when that is
    /// not known.
    std::string writer = {};
    std::uint64_t number = 0;  ///< see MemoryChange::number
    bool isChange = true;      ///< the key has another value than before
    bool isEarlier = false;    ///< it was written before the stream followed memory
};

/// Conditions are monitored from now on, and the rules read these keys; or no longer, and the keys
/// are none.
struct MonitoringSwitched {
    bool on = false;
    std::vector<std::string> keys;
};

/// What a hold or count remembered when the program ended before.
struct ResumedHistory {
    std::string part;     ///< the text of the part of a condition, in one way of writing
    bool isTrue = false;  ///< its condition
    /// When that became true, oldest first, since the Unix epoch.
    std::vector<vo::Duration> instants;
};

/// Holds and counts go on with what they remembered: for `within` from now, as soon as their
/// condition is true.
struct HistoriesResumed {
    std::vector<ResumedHistory> histories;
    vo::Duration within{};
};

/// A package was there at the beginning, came or went.
struct PackageChanged {
    vo::PackageInfo package;
    bool installed = true;
};

/// The condition checker did something that no write of memory brought about. Its place is after
/// all that the writes up to `after` brought about, and before what later ones do.
struct CheckerMoved {
    CheckerMove::Kind kind = CheckerMove::Kind::period;
    std::uint64_t after = 0;  ///< the number of the last write that it had seen
    vo::Duration uptime{};    ///< the instant that it moved to; a little before it was told
};

/// One of a hit list.
struct FoundHit {
    std::uint32_t condition = 0;  ///< its id with the checker
    std::string rule;
};

/// The checker found these conditions of rules to be reported, all of one moment, in their order.
struct HitsFound {
    std::uint64_t number = 0;  ///< grows by one with every list
    std::uint64_t after = 0;   ///< the number of the last write that they rest on
    std::vector<FoundHit> hits;
};

// What life/ does, it does in turns, one at a time. These tell what a turn begins with.

/// Life comes to a hit list.
struct HitsTaken {
    std::uint64_t number = 0;  ///< that of HitsFound
};

/// One of its timers has fired.
struct TimerFired {
    std::uint64_t timer = 0;  ///< timers are numbered in the order in which they were set
};

/// It looks at the actions that wait.
struct WaitingSeen {};

/// The activity that has the focus has ended by itself, or has to.
struct ActivityEnded {
    FocusId stay = 0;
    std::string reason;
};

/// Somebody outside asks life for something.
struct LifeAsked {
    std::string method;  ///< of the service "KRNimbra"
    KRValue::Array arguments;
};

/// What a request of life to the outside came to.
struct Answer {
    enum class Kind { value, refusal, failure };
    Kind kind = Kind::value;
    KRValue value;     ///< invalid for none
    std::string text;  ///< of a refusal or failure, the reason
};

/// Life has asked the outside for something: a service's method, or an activity's check, start or
/// stop. Told when the asking is over, so after what it brought about meanwhile.
struct RequestMade {
    std::uint64_t number = 0;      ///< grows by one with every request
    std::string text;              ///< the request for people
    std::optional<Answer> answer;  ///< where it came at once
};

/// A turn: the answer to a request came.
struct RequestAnswered {
    std::uint64_t number = 0;
    Answer answer;
};

/// Life has read which conditions of rules are true, of those that it asked for.
struct TruthsRead {
    std::vector<std::string> rules;  ///< the true ones, in the order of the table
};

/// A rule was hit; what becomes of it follows.
struct RuleProposed {
    EventRule rule;
    std::string before;  ///< the activity that it comes before; empty for a hit at any time
};

/// A rule that waited has its turn.
struct RuleResumed {
    EventRule rule;
};

/// A rule is not carried out.
struct RuleSkipped {
    EventRule rule;
    std::string reason;
};

/// A rule waits for others.
struct RuleWaits {
    EventRule rule;
    std::string reason;
};

/// A rule that waited is not carried out.
struct RuleDropped {
    EventRule rule;
    std::string reason;
};

/// A step of a rule was carried out, or was not.
struct StepEnded {
    EventRule rule;
    std::string type;  ///< as in the configuration: "SwitchFocus"
    std::string text;  ///< the step for people
    StepOutcome outcome = StepOutcome::done;
    std::string reason;
    std::size_t rest = 0;  ///< steps after this one: to come, or dropped when it was not done
};

// Changes of the robot's life. `rule` is the one that brought it about; empty where none did.

struct FocusChanged {
    std::string activity;  ///< that has the focus now; empty for none
    std::string previous;  ///< that had it before; empty for none
    std::string reason;    ///< as given by who asked; may be empty
    FocusId lost = 0;      ///< the stay that has ended; 0 for none
    std::string rule = {};
};

struct StateChanged {
    std::string state;
    std::string previous;
    std::string rule = {};
};

struct SleepChanged {
    bool asleep = false;
    std::string rule = {};
};

struct FocusBlockChanged {
    bool blocked = false;  ///< whether rules may not switch the focus
    std::string rule = {};
};

struct ChainChanged {
    std::string chain;
    bool frozen = false;
    std::string reason;  ///< why it can move again; may be empty
    std::string rule = {};
};

/// Everything was to stop: comes after the end of the focus, if an activity had it.
struct EverythingStopped {
    std::string reason;  ///< as given by who asked; may be empty
    std::string rule = {};
};

using LifeChange = std::variant<FocusChanged, StateChanged, SleepChanged, FocusBlockChanged,
                                ChainChanged, EverythingStopped>;

/// A plugin has started or stopped.
struct PluginSwitched {
    std::string plugin;
    bool running = false;
};

/// Something went wrong.
struct ErrorReported {
    std::string source;  ///< who tells of it
    std::string text;
};

/// What somebody who plays with the robot wants to be seen beside its life.
struct RemarkMade {
    std::string text;
};

/// A call to a service that came from outside.
struct CallMade {
    std::string text;  ///< the call for people
    StepOutcome outcome = StepOutcome::done;
    std::string reason;
};

/// What can happen. Texts are as they came, from outside; who prints them makes them fit for it.
using Happening =
    std::variant<RunBegan, RunEnded, KeyWritten, MonitoringSwitched, HistoriesResumed,
                 PackageChanged, CheckerMoved, HitsFound, HitsTaken, TimerFired, WaitingSeen,
                 ActivityEnded, LifeAsked, RequestMade, RequestAnswered, TruthsRead, RuleProposed,
                 RuleResumed, RuleSkipped, RuleWaits, RuleDropped, StepEnded, FocusChanged,
                 StateChanged, SleepChanged, FocusBlockChanged, ChainChanged, EverythingStopped,
                 PluginSwitched, ErrorReported, RemarkMade, CallMade>;

/// Something that has happened.
struct Event {
    std::uint64_t number = 0;  ///< its place in the order of all events of a life; 1 is the first
    vo::TimePoint time{};
    Happening what;
    vo::Duration uptime{};  ///< the clock's; of a write as in MemoryChange::uptime
};

/// Functions for the records of a variant, as one visitor: `std::visit(Cases{...}, event.what)`.
template <class... Functions>
struct Cases : Functions... {
    using Functions::operator()...;
};
template <class... Functions>
Cases(Functions...) -> Cases<Functions...>;

}  // namespace KR
