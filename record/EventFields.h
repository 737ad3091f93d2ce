#pragma once

#include <array>
#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

#include "life/Event.h"
#include "platform/vo/Convert.h"
#include "platform/vo/PackageInfo.h"

/// @file
/// What the records of life/Event.h and their fields are called in a recording. A field that is
/// added there gets its name here, and the codec knows it; before that, this does not compile.

namespace KR {

/// The words for an enumeration's values, in their order.
template <class Enum>
struct Words;

template <>
struct Words<StepOutcome> {
    static constexpr std::array names{"done", "refused", "failed"};
};
template <>
struct Words<CheckerMove::Kind> {
    static constexpr std::array names{"started", "stopped", "period", "settled", "both", "checked"};
};
template <>
struct Words<Answer::Kind> {
    static constexpr std::array names{"value", "refusal", "failure"};
};

/// A structure's fields by name, and the word for its kind.
template <class... Fields>
struct RecordFields {
    const char* kind;
    std::tuple<Fields...> fields;
};

namespace record_fields {

/// Turns into whatever a field of the structure is made from.
template <class Structure>
struct Anything {
    template <class T, class = std::enable_if_t<!std::is_same_v<T, Structure>>>
    operator T() const;  // NOLINT(google-explicit-constructor): that is what it is for
};

template <class Structure, class Indices, class = void>
struct IsMadeOf : std::false_type {
};
template <class Structure, std::size_t... Index>
struct IsMadeOf<
    Structure, std::index_sequence<Index...>,
    std::void_t<decltype(Structure{(static_cast<void>(Index), Anything<Structure>())...})>>
    : std::true_type {
};

template <class Structure, std::size_t Count>
constexpr bool hasFields = IsMadeOf<Structure, std::make_index_sequence<Count>>::value &&
                           !IsMadeOf<Structure, std::make_index_sequence<Count + 1>>::value;

template <class Structure, class... Types>
constexpr RecordFields<vo::Field<Structure, Types>...> record(const char* kind,
                                                              vo::Field<Structure, Types>... fields)
{
    static_assert(hasFields<Structure, sizeof...(Types)>, "a field has no name here");
    return {kind, {fields...}};
}

}  // namespace record_fields

/// The fields of a structure. One that services know already is called as they call it.
template <class T>
inline constexpr auto kRecordFields = std::apply(
    [](auto... each) {
        return RecordFields<decltype(each)...>{vo::Struct<T>::name, {each...}};
    },
    vo::Struct<T>::fields());

template <>
inline constexpr auto kRecordFields<RunBegan> = record_fields::record(
    "start", vo::field("title", &RunBegan::title), vo::field("config", &RunBegan::config),
    vo::field("configText", &RunBegan::configText), vo::field("rules", &RunBegan::rules),
    vo::field("keys", &RunBegan::keys), vo::field("chains", &RunBegan::chains));
template <>
inline constexpr auto kRecordFields<RunEnded> =
    record_fields::record("end", vo::field("interrupted", &RunEnded::interrupted));
template <>
inline constexpr auto kRecordFields<KeyWritten> = record_fields::record(
    "key", vo::field("key", &KeyWritten::key), vo::field("value", &KeyWritten::value),
    vo::field("writer", &KeyWritten::writer), vo::field("write", &KeyWritten::number),
    vo::field("change", &KeyWritten::isChange), vo::field("earlier", &KeyWritten::isEarlier));
template <>
inline constexpr auto kRecordFields<MonitoringSwitched> =
    record_fields::record("monitoring", vo::field("on", &MonitoringSwitched::on),
                          vo::field("keys", &MonitoringSwitched::keys));
template <>
inline constexpr auto kRecordFields<ResumedHistory> = record_fields::record(
    "history", vo::field("part", &ResumedHistory::part), vo::field("true", &ResumedHistory::isTrue),
    vo::field("instants", &ResumedHistory::instants));
template <>
inline constexpr auto kRecordFields<HistoriesResumed> =
    record_fields::record("resumed", vo::field("histories", &HistoriesResumed::histories),
                          vo::field("within", &HistoriesResumed::within));
template <>
inline constexpr auto kRecordFields<PackageChanged> =
    record_fields::record("package", vo::field("package", &PackageChanged::package),
                          vo::field("installed", &PackageChanged::installed));
template <>
inline constexpr auto kRecordFields<CheckerMoved> = record_fields::record(
    "checker", vo::field("did", &CheckerMoved::kind), vo::field("after", &CheckerMoved::after),
    vo::field("instant", &CheckerMoved::uptime));
template <>
inline constexpr auto kRecordFields<FoundHit> = record_fields::record(
    "found", vo::field("condition", &FoundHit::condition), vo::field("rule", &FoundHit::rule));
template <>
inline constexpr auto kRecordFields<HitsFound> = record_fields::record(
    "hits", vo::field("list", &HitsFound::number), vo::field("after", &HitsFound::after),
    vo::field("hits", &HitsFound::hits));
template <>
inline constexpr auto kRecordFields<HitsTaken> =
    record_fields::record("hitsTaken", vo::field("list", &HitsTaken::number));
template <>
inline constexpr auto kRecordFields<TimerFired> =
    record_fields::record("timer", vo::field("timer", &TimerFired::timer));
template <>
inline constexpr auto kRecordFields<WaitingSeen> =
    record_fields::record<WaitingSeen>("waitingSeen");
template <>
inline constexpr auto kRecordFields<ActivityEnded> =
    record_fields::record("activityEnded", vo::field("stay", &ActivityEnded::stay),
                          vo::field("reason", &ActivityEnded::reason));
template <>
inline constexpr auto kRecordFields<LifeAsked> =
    record_fields::record("asked", vo::field("method", &LifeAsked::method),
                          vo::field("arguments", &LifeAsked::arguments));
template <>
inline constexpr auto kRecordFields<Answer> =
    record_fields::record("answer", vo::field("came", &Answer::kind),
                          vo::field("value", &Answer::value), vo::field("text", &Answer::text));
template <>
inline constexpr auto kRecordFields<RequestMade> = record_fields::record(
    "request", vo::field("request", &RequestMade::number), vo::field("text", &RequestMade::text),
    vo::field("answer", &RequestMade::answer));
template <>
inline constexpr auto kRecordFields<RequestAnswered> =
    record_fields::record("answered", vo::field("request", &RequestAnswered::number),
                          vo::field("answer", &RequestAnswered::answer));
template <>
inline constexpr auto kRecordFields<TruthsRead> =
    record_fields::record("truths", vo::field("rules", &TruthsRead::rules));
template <>
inline constexpr auto kRecordFields<EventRule> = record_fields::record(
    "rule", vo::field("name", &EventRule::name), vo::field("periodic", &EventRule::periodic));
template <>
inline constexpr auto kRecordFields<RuleProposed> = record_fields::record(
    "hit", vo::field("rule", &RuleProposed::rule), vo::field("before", &RuleProposed::before));
template <>
inline constexpr auto kRecordFields<RuleResumed> =
    record_fields::record("resume", vo::field("rule", &RuleResumed::rule));
template <>
inline constexpr auto kRecordFields<RuleSkipped> = record_fields::record(
    "skip", vo::field("rule", &RuleSkipped::rule), vo::field("reason", &RuleSkipped::reason));
template <>
inline constexpr auto kRecordFields<RuleWaits> = record_fields::record(
    "wait", vo::field("rule", &RuleWaits::rule), vo::field("reason", &RuleWaits::reason));
template <>
inline constexpr auto kRecordFields<RuleDropped> = record_fields::record(
    "drop", vo::field("rule", &RuleDropped::rule), vo::field("reason", &RuleDropped::reason));
template <>
inline constexpr auto kRecordFields<StepEnded> = record_fields::record(
    "step", vo::field("rule", &StepEnded::rule), vo::field("step", &StepEnded::type),
    vo::field("text", &StepEnded::text), vo::field("outcome", &StepEnded::outcome),
    vo::field("reason", &StepEnded::reason), vo::field("rest", &StepEnded::rest));
template <>
inline constexpr auto kRecordFields<FocusChanged> = record_fields::record(
    "focus", vo::field("activity", &FocusChanged::activity),
    vo::field("previous", &FocusChanged::previous), vo::field("reason", &FocusChanged::reason),
    vo::field("lost", &FocusChanged::lost), vo::field("rule", &FocusChanged::rule));
template <>
inline constexpr auto kRecordFields<StateChanged> = record_fields::record(
    "state", vo::field("state", &StateChanged::state),
    vo::field("previous", &StateChanged::previous), vo::field("rule", &StateChanged::rule));
template <>
inline constexpr auto kRecordFields<SleepChanged> = record_fields::record(
    "asleep", vo::field("asleep", &SleepChanged::asleep), vo::field("rule", &SleepChanged::rule));
template <>
inline constexpr auto kRecordFields<FocusBlockChanged> =
    record_fields::record("autonomousFocus", vo::field("blocked", &FocusBlockChanged::blocked),
                          vo::field("rule", &FocusBlockChanged::rule));
template <>
inline constexpr auto kRecordFields<ChainChanged> = record_fields::record(
    "chain", vo::field("chain", &ChainChanged::chain), vo::field("frozen", &ChainChanged::frozen),
    vo::field("reason", &ChainChanged::reason), vo::field("rule", &ChainChanged::rule));
template <>
inline constexpr auto kRecordFields<EverythingStopped> =
    record_fields::record("stopAll", vo::field("reason", &EverythingStopped::reason),
                          vo::field("rule", &EverythingStopped::rule));
template <>
inline constexpr auto kRecordFields<PluginSwitched> =
    record_fields::record("plugin", vo::field("plugin", &PluginSwitched::plugin),
                          vo::field("running", &PluginSwitched::running));
template <>
inline constexpr auto kRecordFields<ErrorReported> = record_fields::record(
    "error", vo::field("source", &ErrorReported::source), vo::field("text", &ErrorReported::text));
template <>
inline constexpr auto kRecordFields<RemarkMade> =
    record_fields::record("say", vo::field("text", &RemarkMade::text));
template <>
inline constexpr auto kRecordFields<CallMade> = record_fields::record(
    "call", vo::field("text", &CallMade::text), vo::field("outcome", &CallMade::outcome),
    vo::field("reason", &CallMade::reason));

}  // namespace KR
