#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "life/Deadline.h"
#include "life/Event.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Future.h"

namespace KR {

class EventStream;
class LifeDriver;

/// What life/ does, it does in turns: one at a time, on the event loop; under a clock without
/// threads where they come up, as there is no other thread. A turn begins with what reaches life/
/// from outside of it, which is published as it begins. So the order of the events is the order in
/// which all of it was done, and a driver can have it done in that order again.
///
/// Thread-safe. A turn that is still to come when the event loop is closed is dropped.
class Turns {
public:
    /// All outlive it. `driver` may be null.
    Turns(EventStream& events, const vo::Clock& clock, LifeDriver* driver = nullptr);
    Turns(const Turns&) = delete;
    Turns& operator=(const Turns&) = delete;

    /// Null for a life that is lived for the first time.
    LifeDriver* driver() const { return driver_; }

    /// Runs it here if this is a turn already, and otherwise as soon as its turn comes.
    void take(const Happening& begin, std::function<void()> turn);
    /// The same, and tells when it is over: canceled for one that was dropped.
    vo::Future<void> takeAndTell(const Happening& begin, std::function<void()> turn);
    /// Runs it later, after the turn in progress.
    void post(const Happening& begin, std::function<void()> turn);
    /// Runs it after that time. To be called in turns.
    vo::Future<void> after(vo::Duration delay, std::function<void()> turn);
    /// Tells that a turn begins here.
    void begin(const Happening& begin);
    /// Calls something that asks for turns, as a part of the turn in progress: those that it asks
    /// for here are none of their own.
    void inside(const std::function<void()>& part);
    /// The other way round: what is asked for here comes from outside again.
    void outside(const std::function<void()>& part);

private:
    bool isTurn() const;
    void call(bool inside, const std::function<void()>& part);

    // Constant after construction.
    EventStream& events_;
    const vo::Clock& clock_;
    LifeDriver* const driver_;

    std::atomic<std::uint64_t> lastTimer_{0};
    std::atomic<bool> isInside_{false};  ///< set and read by turns alone
};

/// expireAfter(), in a turn.
template <class T>
void expireAfter(Turns& turns, const vo::Future<T>& future, vo::Duration deadline,
                 std::function<void()> expire)
{
    if (!future.isRunning())
        return;
    const vo::Future<void> timer = turns.after(deadline, std::move(expire));
    future.then([timer](const vo::Future<T>&) { timer.cancel(); });
}

/// failAfter(), in a turn.
template <class T>
void failAfter(Turns& turns, const vo::Promise<T>& promise, vo::Duration deadline,
               const std::string& module, const std::string& method)
{
    expireAfter(turns, promise.future(), deadline, [promise, deadline, module, method] {
        promise.setError(overdueError(deadline, module, method));
    });
}

}  // namespace KR
