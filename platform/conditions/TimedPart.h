#pragma once

#include <boost/circular_buffer.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/conditions/NetworkNode.h"
#include "platform/vo/Clock.h"

namespace KR {

struct KeySlot;

/// What a part of a condition means that speaks of time. Two that are equal are one node.
struct TimedMeaning {
    enum class Kind : std::uint8_t {
        hold,    ///< the first operand has been true for the duration
        count,   ///< it became true so many times within the duration
        within,  ///< both operands became true no further apart than the duration
        age      ///< the key's latest write is as old as the duration; zero for any age
    };
    Kind kind;
    vo::Duration duration;
    Edge first = {};
    Edge second = {};        ///< of within
    unsigned times = 0;      ///< of a count, 1 or more
    KeySlot* key = nullptr;  ///< of an age
};

/// The instant of a moment, as uptime, and up to which instant all that was due has come about. A
/// write at the very instant of something due comes before it.
struct TimedMoment {
    vo::Duration now{};
    vo::Duration elapsed{};

    bool isPast(vo::Duration due) const { return due <= elapsed; }
};

/// What a part's truth depends on, besides time.
struct TimedInputs {
    bool first = false;
    bool second = false;
    std::optional<vo::Duration> written;  ///< the uptime of the key's latest write
};

/// What was so far of a hold or a count, for one of the same text to go on with.
struct TimedHistory {
    bool isTrue = false;  ///< its operand
    std::vector<vo::Duration>
        instants;  ///< uptimes at which it became true, oldest first; maybe negative
};

/// A part of a condition that speaks of time: what it remembers, and its truth.
///
///     ended --begin--> begun --end--> ended
///
/// While it is ended nothing happens to it. Not synchronised: a part of ConditionNetwork.
class TimedPart {
public:
    /// `text` is what it is called in a history, `condition` the first one that it is a part of.
    static std::unique_ptr<TimedPart> make(const TimedMeaning& meaning, std::string text,
                                           unsigned condition);
    virtual ~TimedPart() = default;
    TimedPart(const TimedPart&) = delete;
    TimedPart& operator=(const TimedPart&) = delete;

    const TimedMeaning& meaning() const { return meaning_; }
    const std::string& text() const { return text_; }
    unsigned condition() const { return condition_; }

    bool hasBegun() const { return begun_; }
    /// From here on it is brought up to date. What is true already has not become true now, but
    /// holds from now on.
    void begin(const TimedInputs& inputs);
    void end() { begun_ = false; }
    /// Brings it up to date with a moment. Returns its truth.
    virtual bool update(const TimedInputs& inputs, const TimedMoment& moment) = 0;
    /// When its truth changes if its inputs stay as they are; later than the moment's `elapsed`.
    virtual std::optional<vo::Duration> due() const = 0;

    /// Nothing where there is nothing to go on with.
    virtual std::optional<TimedHistory> history() const { return std::nullopt; }
    /// Goes on with what was, before it is brought up to date with its operand's having become
    /// true.
    virtual void resume(const TimedHistory& /*history*/) {}

    /// For the network: the instant at which it is to look at this part; none while there is none.
    std::optional<vo::Duration> scheduled;

protected:
    TimedPart(const TimedMeaning& meaning, std::string text)
        : meaning_(meaning), text_(std::move(text))
    {
    }

private:
    virtual void onBegin(const TimedInputs& inputs) = 0;

    const TimedMeaning meaning_;
    const std::string text_;
    unsigned condition_ = 0;
    bool begun_ = false;
};

}  // namespace KR
