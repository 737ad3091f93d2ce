#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "life/Event.h"
#include "platform/kr/KRBroker.h"
#include "platform/kr/MemoryFeed.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Mutex.h"
#include "platform/vo/NotificationQueue.h"
#include "platform/vo/Signal.h"

namespace KR {

/// Everything that happens in a robot's life, in the order in which it happened.
///
/// Events are numbered when they are published, a change of memory before everything that is
/// published after it. They are told to the receivers of `happened` in that order, one at a time
/// and with no lock held, by whichever thread has come first: a thread that publishes meanwhile
/// leaves its event to that one, and does not wait. So receivers are quick, or have a queue of
/// their own. One may publish itself: its event comes after the one that it is just told.
///
/// Thread-safe, but follow() and unfollow() are called by one thread.
class EventStream {
public:
    /// A write of memory that nothing else follows is told so much later, on a clock with threads:
    /// of many writes the first one alone wakes somebody.
    static constexpr vo::Duration kWriteDelay = std::chrono::milliseconds(10);

    explicit EventStream(std::shared_ptr<vo::Clock> clock);
    ~EventStream();
    EventStream(const EventStream&) = delete;
    EventStream& operator=(const EventStream&) = delete;

    vo::Signal<Event> happened;

    /// Stamps it with now.
    void publish(Happening what);
    /// The same, but has it told later, on a thread of the platform: for who holds locks that a
    /// receiver might want.
    void note(Happening what);
    /// The same, but has it told no earlier than the next one that is published.
    void leave(Happening what);
    /// Publishes what memory holds, and every write of a key from now on, until unfollow(), which
    /// comes before the broker goes.
    void follow(const boost::shared_ptr<KRBroker>& broker);
    void unfollow();
    /// Returns when everything that has happened so far is told; at once inside of a receiver.
    void flush();

private:
    void takeMemory() VO_REQUIRES(mutex_);
    void append(vo::TimePoint time, vo::Duration uptime, Happening what) VO_REQUIRES(mutex_);
    void appendWrite(const MemoryChange& write, bool isEarlier) VO_REQUIRES(mutex_);
    void deliver();

    // Constant after construction.
    const std::shared_ptr<vo::Clock> clock_;
    const std::shared_ptr<vo::Executor> executor_;
    // Set by follow() and unfollow().
    boost::shared_ptr<KRBroker> broker_;
    // Synchronised by itself.
    vo::NotificationQueue<Event> notifications_;

    vo::Mutex mutex_;
    std::uint64_t last_ VO_GUARDED_BY(mutex_) = 0;
    std::shared_ptr<MemoryFeed> feed_ VO_GUARDED_BY(mutex_);
    struct Key {
        std::string name = {};  ///< empty for one that was not met yet
        KRValue value = {};     ///< as last published
    };
    std::vector<Key> keys_ VO_GUARDED_BY(mutex_);  ///< by number
    std::vector<MemoryChange> changes_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
