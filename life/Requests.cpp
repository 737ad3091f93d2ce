#include "life/Requests.h"

#include <optional>

#include "life/EventStream.h"
#include "life/FocusRequest.h"
#include "life/LifeDriver.h"
#include "platform/kr/KRError.h"

namespace KR {

namespace {

/// A value that is none of memory's kinds is not told.
KRValue toldValue(const vo::Value& value)
{
    try {
        return vo::fromValue<KRValue>(value);
    } catch (const std::exception&) {
        return {};
    }
}

Answer answerOf(const vo::Future<vo::Value>& ended)
{
    try {
        return {Answer::Kind::value, toldValue(ended.value()), {}};
    } catch (const LifeRefusal& e) {
        return {Answer::Kind::refusal, {}, e.getDescription()};
    } catch (const KRError& e) {
        return {Answer::Kind::failure, {}, e.getDescription()};
    } catch (const std::exception& e) {
        return {Answer::Kind::failure, {}, e.what()};
    } catch (...) {
        return {Answer::Kind::failure, {}, "unknown error"};
    }
}

vo::Future<vo::Value> attempted(const std::function<vo::Future<vo::Value>()>& ask)
{
    try {
        return ask();
    } catch (...) {
        const vo::Promise<vo::Value> failed;
        failed.setError(std::current_exception());
        return failed.future();
    }
}

vo::Future<vo::Value> withoutValue(const vo::Future<void>& future)
{
    return future.map([] { return vo::Value(); });
}

vo::Future<void> valueDropped(const vo::Future<vo::Value>& future)
{
    return future.map([](const vo::Value&) {});
}

}  // namespace

vo::Future<vo::Value> Requests::make(const std::string& text,
                                     const std::function<vo::Future<vo::Value>()>& ask)
{
    const std::uint64_t number = ++last_;
    if (turns_.driver())
        return turns_.driver()->answer(number, text);
    vo::Future<vo::Value> asked;
    turns_.outside([&] { asked = attempted(ask); });
    if (!asked.isRunning()) {
        events_.publish(RequestMade{number, text, answerOf(asked)});
        return asked;
    }
    events_.publish(RequestMade{number, text, std::nullopt});
    const vo::Promise<vo::Value> promise;
    asked.then([&turns = turns_, number, promise](const vo::Future<vo::Value>& ended) {
        turns.take(RequestAnswered{number, answerOf(ended)},
                   [promise, ended] { promise.endAs(ended); });
    });
    return promise.future();
}

RequestedActivities::RequestedActivities(Requests& requests, ActivityRunner& runner)
    : requests_(requests),
      runner_(runner),
      ends_(runner.ended.connect(
          [this](FocusId stay, const std::string& reason) { ended(stay, reason); }))
{
}

RequestedActivities::~RequestedActivities()
{
    ends_.disconnect();
}

vo::Future<void> RequestedActivities::check(const std::string& activity)
{
    return valueDropped(
        requests_.make("check " + activity, [&] { return withoutValue(runner_.check(activity)); }));
}

vo::Future<void> RequestedActivities::start(const std::string& activity, FocusId stay)
{
    return valueDropped(requests_.make(
        "start " + activity, [&] { return withoutValue(runner_.start(activity, stay)); }));
}

vo::Future<void> RequestedActivities::stop()
{
    return valueDropped(requests_.make("stop", [&] { return withoutValue(runner_.stop()); }));
}

}  // namespace KR
