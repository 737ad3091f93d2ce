#include "record/RecordQueue.h"

#include <utility>

namespace KR {

namespace {

std::size_t valueBytes(const KRValue& value)
{
    switch (value.getType()) {
        case KRValue::Type::string:
            return value.toText().size();
        case KRValue::Type::binary:
            return value.toBinary().size();
        case KRValue::Type::array: {
            std::size_t bytes = 0;
            for (const KRValue& element : value.toArray())
                bytes += sizeof element + valueBytes(element);
            return bytes;
        }
        default:
            return 0;
    }
}

}  // namespace

/// Of what comes from outside and may be large; the rest is as large as rules are.
std::size_t RecordQueue::bytesOf(const Event& event)
{
    return std::visit(
        Cases{[](const KeyWritten& write) { return valueBytes(write.value); },
              [](const RequestMade& request) {
                  return request.answer ? valueBytes(request.answer->value) : 0;
              },
              [](const RequestAnswered& answered) { return valueBytes(answered.answer.value); },
              [](const LifeAsked& asked) { return valueBytes(KRValue(asked.arguments)); },
              [](const RunBegan& began) { return began.configText.size(); },
              [](const auto&) { return std::size_t{0}; }},
        event.what);
}

bool RecordQueue::hasRoomFor(std::size_t bytes) const
{
    // One alone has room, however large it is.
    return entries_.empty() || (entries_.size() < kMaxEvents && bytes_ + bytes <= kMaxBytes);
}

bool RecordQueue::add(const Event& event)
{
    if (!hasRoomFor(event)) {
        if (gap_.events++ == 0)
            gap_.from = event.number;
        gap_.to = event.number;
        return false;
    }
    addGap();
    bytes_ += bytesOf(event);
    entries_.emplace_back(event);
    return true;
}

void RecordQueue::add(NextFile next)
{
    addGap();
    entries_.emplace_back(std::move(next));
}

bool RecordQueue::add(RecordCheckpoint checkpoint)
{
    if (!hasRoomFor(checkpoint))
        return false;
    addGap();
    bytes_ += checkpoint.state.size();
    entries_.emplace_back(std::move(checkpoint));
    return true;
}

void RecordQueue::addGap()
{
    if (gap_.events != 0)
        entries_.emplace_back(std::exchange(gap_, {}));
}

std::vector<RecordQueue::Entry> RecordQueue::take()
{
    addGap();
    bytes_ = 0;
    return std::exchange(entries_, {});
}

bool RecordQueue::isQuarterFull() const
{
    return entries_.size() >= kMaxEvents / 4 || bytes_ >= kMaxBytes / 4;
}

}  // namespace KR
