#include "record/RecordQueue.h"

#include <utility>

namespace KR {

namespace {

std::size_t bytesOf(const KRValue& value)
{
    switch (value.getType()) {
        case KRValue::Type::string:
            return value.toText().size();
        case KRValue::Type::binary:
            return value.toBinary().size();
        case KRValue::Type::array: {
            std::size_t bytes = 0;
            for (const KRValue& element : value.toArray())
                bytes += sizeof element + bytesOf(element);
            return bytes;
        }
        default:
            return 0;
    }
}

/// Of what comes from outside and may be large; the rest is as large as rules are.
std::size_t bytesOf(const Event& event)
{
    return std::visit(
        Cases{[](const KeyWritten& write) { return bytesOf(write.value); },
              [](const RequestMade& request) {
                  return request.answer ? bytesOf(request.answer->value) : 0;
              },
              [](const RequestAnswered& answered) { return bytesOf(answered.answer.value); },
              [](const LifeAsked& asked) { return bytesOf(KRValue(asked.arguments)); },
              [](const RunBegan& began) { return began.configText.size(); },
              [](const auto&) { return std::size_t{0}; }},
        event.what);
}

}  // namespace

bool RecordQueue::hasRoomFor(const Event& event) const
{
    // One alone has room, however large it is.
    return entries_.empty() ||
           (entries_.size() < kMaxEvents && bytes_ + bytesOf(event) <= kMaxBytes);
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
