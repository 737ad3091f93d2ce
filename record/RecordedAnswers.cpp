#include "record/RecordedAnswers.h"

#include <algorithm>

#include "platform/vo/EventLoop.h"
#include "record/LifeCall.h"

namespace KR {

namespace {

constexpr auto kMicroseconds = static_cast<std::uint64_t>(RecordedAnswers::kPatience.count());

}  // namespace

void RecordedAnswers::use(const RecordedPtr& recorded, const vo::Promise<vo::Value>& promise)
{
    recorded->isUsed = true;
    if (recorded->answer)
        keepPromise(promise, *recorded->answer);
    else
        recorded->waiting = promise;
}

void RecordedAnswers::take(const RequestMade& request)
{
    const auto recorded = std::make_shared<Recorded>(Recorded{request.text});
    recorded->answer = request.answer;
    if (request.answer)
        latest_[request.text] = *request.answer;
    else
        pending_[request.number] = recorded;
    const auto asked = asked_.find(request.text);
    if (asked != asked_.end()) {
        const Asked first = asked->second.front();
        asked->second.pop_front();
        if (asked->second.empty())
            asked_.erase(asked);
        first.patience.cancel();
        use(recorded, first.promise);
        return;
    }
    unused_[request.text].push_back(recorded);
    vo::getEventLoop()->async(
        [this, text = request.text, recorded] {
            const auto place = unused_.find(text);
            if (place == unused_.end())
                return;
            auto& fresh = place->second;
            fresh.erase(std::remove(fresh.begin(), fresh.end(), recorded), fresh.end());
            if (fresh.empty())
                unused_.erase(place);
        },
        kMicroseconds);
}

void RecordedAnswers::take(const RequestAnswered& answered)
{
    const auto place = pending_.find(answered.number);
    if (place == pending_.end())
        return;
    const RecordedPtr recorded = place->second;
    pending_.erase(place);
    recorded->answer = answered.answer;
    latest_[recorded->text] = answered.answer;
    if (recorded->waiting)
        keepPromise(*recorded->waiting, answered.answer);
}

vo::Future<vo::Value> RecordedAnswers::ask(const std::string& text)
{
    const vo::Promise<vo::Value> promise;
    const auto fresh = unused_.find(text);
    if (fresh != unused_.end()) {
        const RecordedPtr recorded = fresh->second.front();
        fresh->second.pop_front();
        if (fresh->second.empty())
            unused_.erase(fresh);
        use(recorded, promise);
        return promise.future();
    }
    std::list<Asked>& waiting = asked_[text];
    const auto asked = waiting.insert(waiting.end(), Asked{promise, {}});
    asked->patience = vo::getEventLoop()->async(
        [this, text, asked, promise] {
            std::list<Asked>& all = asked_[text];
            all.erase(asked);
            if (all.empty())
                asked_.erase(text);
            assume(text, promise);
        },
        kMicroseconds);
    return promise.future();
}

void RecordedAnswers::assume(const std::string& text, const vo::Promise<vo::Value>& promise)
{
    ++assumed_;
    const auto last = latest_.find(text);
    keepPromise(promise, last == latest_.end() ? Answer() : last->second);
}

}  // namespace KR
