#include "platform/conditions/TimedPart.h"

#include <algorithm>
#include <set>
#include <utility>

namespace KR {

namespace {

class Hold final : public TimedPart {
public:
    Hold(const TimedMeaning& meaning, std::string text) : TimedPart(meaning, std::move(text)) {}

    bool update(const TimedInputs& inputs, const TimedMoment& moment) override
    {
        if (!inputs.first)
            since_.reset();
        else if (!since_)
            since_ = moment.now;
        isHeld_ = since_ && (isHeld_ || moment.isPast(end()));
        return isHeld_;
    }
    std::optional<vo::Duration> due() const override
    {
        return since_ && !isHeld_ ? std::optional(end()) : std::nullopt;
    }

    std::optional<TimedHistory> history() const override
    {
        if (!since_)
            return std::nullopt;
        return TimedHistory{true, {*since_}};
    }
    void resume(const TimedHistory& history) override { since_ = history.instants.front(); }

private:
    void onBegin(const TimedInputs& /*inputs*/) override
    {
        since_.reset();
        isHeld_ = false;
    }
    vo::Duration end() const { return *since_ + meaning().duration; }

    std::optional<vo::Duration> since_;  ///< when its operand became true
    bool isHeld_ = false;
};

class Count final : public TimedPart {
public:
    Count(const TimedMeaning& meaning, std::string text) : TimedPart(meaning, std::move(text)) {}

    bool update(const TimedInputs& inputs, const TimedMoment& moment) override
    {
        if (std::exchange(wasTrue_, inputs.first) < inputs.first)
            add(moment.now);
        isReached_ = instants_.size() == meaning().times && !moment.isPast(end());
        return isReached_;
    }
    std::optional<vo::Duration> due() const override
    {
        return isReached_ ? std::optional(end()) : std::nullopt;
    }

    std::optional<TimedHistory> history() const override
    {
        if (instants_.empty())
            return std::nullopt;
        return TimedHistory{wasTrue_, {instants_.begin(), instants_.end()}};
    }
    void resume(const TimedHistory& history) override
    {
        std::multiset<vo::Duration> all(instants_.begin(), instants_.end());
        all.insert(history.instants.begin(), history.instants.end());
        instants_.clear();
        for (const vo::Duration instant : all)
            add(instant);
        wasTrue_ = history.isTrue;
    }

private:
    void onBegin(const TimedInputs& inputs) override { wasTrue_ = inputs.first; }
    void add(vo::Duration instant)
    {
        // Most conditions seldom become true: room is made as it is needed.
        if (instants_.full() && instants_.size() < meaning().times)
            instants_.set_capacity(std::min<std::size_t>(
                meaning().times, std::max<std::size_t>(4, instants_.size() * 2)));
        instants_.push_back(instant);
    }
    /// When the oldest that is needed does not count any more.
    vo::Duration end() const { return instants_.front() + meaning().duration; }

    boost::circular_buffer<vo::Duration>
        instants_;  ///< the last ones that are needed, oldest first
    bool wasTrue_ = false;
    bool isReached_ = false;
};

class Within final : public TimedPart {
public:
    Within(const TimedMeaning& meaning, std::string text) : TimedPart(meaning, std::move(text)) {}

    bool update(const TimedInputs& inputs, const TimedMoment& moment) override
    {
        const bool first = std::exchange(wasFirst_, inputs.first) < inputs.first;
        const bool second = std::exchange(wasSecond_, inputs.second) < inputs.second;
        if (first)
            first_ = moment.now;
        if (second)
            second_ = moment.now;
        if ((first || second) && first_ && second_) {
            const auto [earlier, later] = std::minmax(*first_, *second_);
            if (later - earlier <= meaning().duration)
                end_ = later + meaning().duration;
        }
        if (end_ && moment.isPast(*end_))
            end_.reset();
        return end_.has_value();
    }
    std::optional<vo::Duration> due() const override { return end_; }

private:
    void onBegin(const TimedInputs& inputs) override
    {
        wasFirst_ = inputs.first;
        wasSecond_ = inputs.second;
    }

    bool wasFirst_ = false;
    bool wasSecond_ = false;
    std::optional<vo::Duration> first_;   ///< when it became true last
    std::optional<vo::Duration> second_;  ///< when it became true last
    std::optional<vo::Duration> end_;     ///< while it is true
};

class Age final : public TimedPart {
public:
    Age(const TimedMeaning& meaning, std::string text) : TimedPart(meaning, std::move(text)) {}

    bool update(const TimedInputs& inputs, const TimedMoment& moment) override
    {
        due_.reset();
        if (!inputs.written)
            return false;
        const vo::Duration reached = *inputs.written + meaning().duration;
        if (meaning().duration == vo::Duration::zero() || moment.isPast(reached))
            return true;
        due_ = reached;
        return false;
    }
    std::optional<vo::Duration> due() const override { return due_; }

private:
    void onBegin(const TimedInputs& /*inputs*/) override {}

    std::optional<vo::Duration> due_;
};

}  // namespace

std::unique_ptr<TimedPart> TimedPart::make(const TimedMeaning& meaning, std::string text,
                                           unsigned condition)
{
    std::unique_ptr<TimedPart> part;
    switch (meaning.kind) {
        case TimedMeaning::Kind::hold:
            part = std::make_unique<Hold>(meaning, std::move(text));
            break;
        case TimedMeaning::Kind::count:
            part = std::make_unique<Count>(meaning, std::move(text));
            break;
        case TimedMeaning::Kind::within:
            part = std::make_unique<Within>(meaning, std::move(text));
            break;
        case TimedMeaning::Kind::age:
            part = std::make_unique<Age>(meaning, std::move(text));
            break;
    }
    part->condition_ = condition;
    return part;
}

void TimedPart::begin(const TimedInputs& inputs)
{
    begun_ = true;
    onBegin(inputs);
}

}  // namespace KR
