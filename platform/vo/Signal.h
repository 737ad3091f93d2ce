#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/vo/CallbackGate.h"
#include "platform/vo/Connection.h"
#include "platform/vo/Mutex.h"

namespace vo {

/// Something that happens, to which others connect.
///
/// Calling it calls the connected functions, in order of connection, on the calling thread and
/// with no lock held; an exception that leaves one is logged and the others are still called. One
/// that is connected meanwhile is called from the next time on.
///
/// Thread-safe. Not copyable. Services that others reach through a handle deliver on the
/// platform's threads instead: see AnyObject::connect.
template <class... Args>
class Signal {
public:
    using Callback = std::function<void(const Args&...)>;

    Signal() = default;
    /// Disconnects everybody, as Connection::disconnect does.
    ~Signal();
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    Connection connect(Callback callback);
    void operator()(const Args&... args) const;

private:
    struct State;

    struct Receiver final : detail::Link {
        Receiver(std::weak_ptr<State> owner, Callback function)
            : state(std::move(owner)), callback(std::move(function))
        {
        }

        bool disconnect() override;
        bool isConnected() const override { return !gate.isClosed(); }

        // Constant after construction.
        const std::weak_ptr<State> state;
        const Callback callback;
        // Synchronised by itself.
        CallbackGate gate;
    };
    using Receivers = std::vector<std::shared_ptr<Receiver>>;

    struct State {
        std::shared_ptr<const Receivers> all() const;
        void add(std::shared_ptr<Receiver> receiver);
        void remove(const Receiver& receiver);

        mutable Mutex mutex;
        /// Never changed in place: an emission goes through the list as it was when it began, and
        /// so keeps those alive that are disconnected meanwhile.
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
