#pragma once

#include <thread>
#include <vector>

#include "platform/vo/Mutex.h"

namespace vo {

/// Stands in front of a function that others call, so that its owner can be rid of it safely:
/// first no new run begins, then the runs in progress are waited for.
///
///     open --close()--> closed. Closed is final.
///
/// Thread-safe, and a thread may pass several times over. The gate outlives its passes, except
/// that whoever has closed it from outside of a run may destroy it at once.
///
/// Two functions that each close the other's gate while both run on different threads wait for
/// each other forever; that is for their owners to avoid.
class CallbackGate {
public:
    /// One run: held around the call of the function.
    class Pass {
    public:
        explicit Pass(CallbackGate& gate) : gate_(gate), entered_(gate.enter()) {}
        ~Pass()
        {
            if (entered_)
                gate_.leave();
        }
        Pass(const Pass&) = delete;
        Pass& operator=(const Pass&) = delete;

        /// False when the gate was closed: the function is not to be called.
        explicit operator bool() const { return entered_; }

    private:
        CallbackGate& gate_;
        bool entered_;
    };

    /// Refuses new passes and waits for those in progress. Called from inside a run it does not
    /// wait for that run, nor for others that have called close() themselves. Idempotent; each
    /// caller waits. True for the call that closed the gate.
    bool close();
    bool isClosed() const;
    /// True when the calling thread holds a pass.
    bool isInside() const;

private:
    bool enter();
    void leave();
    bool mayGoOn(bool inside) const VO_REQUIRES(mutex_);

    mutable Mutex mutex_;
    Condition changed_;
    bool closed_ VO_GUARDED_BY(mutex_) = false;
    std::vector<std::thread::id> running_ VO_GUARDED_BY(mutex_);  ///< one entry a pass
    std::vector<std::thread::id> closers_ VO_GUARDED_BY(mutex_);  ///< those who closed from inside
};

}  // namespace vo
