#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "launchpad/LaunchpadObserver.h"
#include "platform/vo/CallbackGate.h"
#include "platform/vo/NotificationQueue.h"
#include "platform/vo/Signal.h"

namespace KR {

/// What a launchpad tells of itself, in the order in which it happens: its errors, and the starts
/// and stops of plugins. Most of it happens with locks of the launchpad held; it is told when none
/// is.
///
/// Thread-safe. Shared with those who may still have something to tell when the launchpad is gone,
/// which nobody hears then.
class LaunchpadNews : public std::enable_shared_from_this<LaunchpadNews> {
public:
    explicit LaunchpadNews(LaunchpadObserver observer) : observer_(std::move(observer)) {}

    /// Held by an operation outside of the locks that it takes: what its thread has to tell
    /// meanwhile is told at its end. One that stands inside of another leaves it to that.
    class Round {
    public:
        explicit Round(LaunchpadNews& news)
            : news_(news.shared_from_this()), pass_(std::in_place, news.rounds_)
        {
        }
        ~Round();
        Round(const Round&) = delete;
        Round& operator=(const Round&) = delete;

    private:
        const std::shared_ptr<LaunchpadNews> news_;
        std::optional<vo::CallbackGate::Pass> pass_;
    };

    /// Logs an error, and tells of it: in the round of this thread, or else on the event loop.
    void error(const std::string& label, const std::string& text);
    /// Tells of a plugin: in the round of this thread, or else at once, and so needs no lock held.
    void switched(const std::string& name, bool running);
    const LaunchpadObserver& observer() const { return observer_; }

    /// Nobody is told anything any more. Waits for who is just being told, except when called by
    /// them.
    void end()
    {
        observing_.close();
        gate_.close();
    }

    // Synchronised by themselves.
    vo::Signal<std::string, bool> pluginSwitched;
    vo::Signal<std::string, std::string> errorReported;

private:
    void deliver();

    // Constant after construction.
    const LaunchpadObserver observer_;
    // Synchronised by themselves.
    vo::CallbackGate observing_;  ///< passed by calls of the observer; closed at the end
    vo::NotificationQueue<std::function<void()>> notifications_;
    vo::CallbackGate gate_;    ///< passed by who tells; closed at the end
    vo::CallbackGate rounds_;  ///< passed by rounds; never closed, it knows their threads
};

}  // namespace KR
