#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/vo/CallbackGate.h"
#include "platform/vo/Mutex.h"

namespace vo {

/// Names one connection of a signal or property; 0 is never given.
using SignalLink = std::uint64_t;
constexpr SignalLink kInvalidSignalLink = 0;

/// Something that happens, to which others connect.
///
/// Calling it calls the connected functions, in order of connection, on the calling thread and
/// with no lock held; an exception that leaves one is logged and the others are still called. One
/// that is connected meanwhile is called from the next time on. When disconnect() returns, the
/// function is not running and never will again (unless the call comes from that very function,
/// which then is its last).
///
/// Thread-safe. Not copyable. Services that others reach through a handle deliver on the
/// platform's threads instead: see AnyObject::connect.
template <class... Args>
class Signal {
public:
    using Callback = std::function<void(const Args&...)>;

    Signal() = default;
    /// Disconnects everybody, as disconnect() does.
    ~Signal();
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    SignalLink connect(Callback callback);
    /// False when the link is unknown (or was disconnected before).
    bool disconnect(SignalLink link);
    /// Connects; the result disconnects, and may also be called after the signal has gone.
    std::function<void()> connectWithUndo(Callback callback);
    void operator()(const Args&... args) const;

private:
    struct Receiver {
        Receiver(SignalLink number, Callback function) : link(number), callback(std::move(function))
        {
        }

        // Constant after construction.
        const SignalLink link;
        const Callback callback;
        // Synchronised by itself.
        CallbackGate gate;
    };
    using Receivers = std::vector<std::shared_ptr<Receiver>>;

    struct State {
        std::shared_ptr<const Receivers> all() const;
        bool disconnect(SignalLink link);
        void remove(SignalLink link);

        mutable Mutex mutex;
        SignalLink lastLink VO_GUARDED_BY(mutex) = kInvalidSignalLink;
        /// Never changed in place: an emission goes through the list as it was when it began.
        std::shared_ptr<const Receivers> receivers VO_GUARDED_BY(mutex) =
            std::make_shared<const Receivers>();
    };

    static void call(Receiver& receiver, const Args&... args);

    // Constant after construction. Shared, as an emission outlives a signal that is destroyed by
    // a function that it calls.
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace vo

#include "platform/vo/Signal.hxx"
