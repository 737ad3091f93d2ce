#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>

#include "life/ActivityRunner.h"
#include "life/StepResult.h"
#include "platform/kr/KRValue.h"
#include "platform/vo/Clock.h"

namespace KR {

/// The rule that an event is about.
struct EventRule {
    std::string name;
    bool periodic = false;  ///< proposed again and again while its condition holds
};

/// A memory key has another value.
struct KeyChanged {
    std::string key;
    KRValue value;
    /// Who wrote it: as it said itself, else the only one that publishes the key; "" when that is
    /// not known.
    std::string writer = {};
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
using Happening = std::variant<KeyChanged, RuleProposed, RuleResumed, RuleSkipped, RuleWaits,
                               RuleDropped, StepEnded, FocusChanged, StateChanged, SleepChanged,
                               FocusBlockChanged, ChainChanged, EverythingStopped, PluginSwitched,
                               ErrorReported, RemarkMade, CallMade>;

/// Something that has happened.
struct Event {
    std::uint64_t number = 0;  ///< its place in the order of all events of a life; 1 is the first
    vo::TimePoint time{};
    Happening what;
};

/// Functions for the records of a variant, as one visitor: `std::visit(Cases{...}, event.what)`.
template <class... Functions>
struct Cases : Functions... {
    using Functions::operator()...;
};
template <class... Functions>
Cases(Functions...) -> Cases<Functions...>;

}  // namespace KR
