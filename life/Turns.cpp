#include "life/Turns.h"

#include <memory>
#include <utility>

#include "life/EventStream.h"
#include "life/LifeDriver.h"
#include "platform/vo/EventLoop.h"

namespace KR {

Turns::Turns(EventStream& events, const vo::Clock& clock, LifeDriver* driver)
    : events_(events), clock_(clock), driver_(driver)
{
}

bool Turns::isTurn() const
{
    return !clock_.hasThreads() || vo::getEventLoop()->isInEventLoopThread();
}

void Turns::begin(const Happening& begin)
{
    events_.publish(begin);
}

void Turns::take(const Happening& begin, std::function<void()> turn)
{
    takeAndTell(begin, std::move(turn));
}

vo::Future<void> Turns::takeAndTell(const Happening& begin, std::function<void()> turn)
{
    const vo::Promise<void> promise;
    if (isTurn() && isInside_) {
        promise.endWith(turn);
        return promise.future();
    }
    auto whole = [this, begin, turn = std::move(turn)] {
        this->begin(begin);
        turn();
    };
    if (!driver_ && !isTurn())
        return vo::getEventLoop()->async(std::move(whole));
    if (driver_)
        driver_->hold(begin, {}, [whole, promise] { promise.endWith(whole); });
    else
        promise.endWith(whole);
    return promise.future();
}

void Turns::inside(const std::function<void()>& part)
{
    call(true, part);
}

void Turns::outside(const std::function<void()>& part)
{
    call(false, part);
}

void Turns::call(bool inside, const std::function<void()>& part)
{
    const bool before = isInside_.exchange(inside);
    try {
        part();
    } catch (...) {
        isInside_ = before;
        throw;
    }
    isInside_ = before;
}

void Turns::post(const Happening& begin, std::function<void()> turn)
{
    auto whole = [this, begin, turn = std::move(turn)] {
        this->begin(begin);
        turn();
    };
    if (driver_)
        driver_->hold(begin, {}, std::move(whole));
    else
        vo::getEventLoop()->async(std::move(whole));
}

vo::Future<void> Turns::after(vo::Duration delay, std::function<void()> turn)
{
    const TimerFired timer{++lastTimer_};
    auto whole = [this, timer, turn = std::move(turn)] {
        begin(timer);
        turn();
    };
    if (!driver_)
        return vo::getEventLoop()->async(std::move(whole),
                                         static_cast<std::uint64_t>(delay.count()));
    const vo::Promise<void> promise;
    promise.setCanceler([driver = driver_, timer] {
        driver->drop(timer);
        return true;
    });
    driver_->hold(timer, delay, [whole = std::move(whole), promise] { promise.endWith(whole); });
    return promise.future();
}

}  // namespace KR
