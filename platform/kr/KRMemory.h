#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/kr/KRValue.h"
#include "platform/kr/MemoryFeed.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Future.h"

namespace vo {
class Application;
class ServiceObject;
}  // namespace vo

namespace KR {

/// Shared memory: keys to values, with events.
///
/// Every write is an event: it stores the value, stamps it with the clock, adds it to the key's
/// history, and is delivered to every subscriber of the key, in the order in which the writes were
/// made, across keys, none dropped and none merged. A 0 followed at once by a 1 is two deliveries.
/// Keys are byte strings in UTF-8. The empty key is refused, with KRError, by everything that
/// writes, declares or subscribes.
///
/// Thread-safe. Concurrent readers never wait for one another. Subscribers never run on the
/// raiser's thread inside the raise. Errors are KRError with the module "KRMemory".
class KRMemory {
public:
    /// Entries of history that a key keeps: enough for "did it happen in the last seconds", small
    /// enough for thousands of keys.
    static constexpr std::size_t kMaxHistory = 32;

    /// `application` outlives the memory.
    explicit KRMemory(vo::Application& application);
    ~KRMemory();

    /// The latest value of a key, which may be the invalid value; KRError "no data for key 'K'"
    /// for a key that was never written.
    KRValue getData(const std::string& key) const;
    /// The latest values of several keys, as an array in the order asked, all as of one moment; a
    /// missing key gives the invalid value in its place.
    KRValue getListData(const std::vector<std::string>& keys) const;
    bool hasData(const std::string& key) const;
    /// Keys that were written and begin with `prefix`, in ascending order.
    std::vector<std::string> getDataList(const std::string& prefix) const;

    /// Says that `declarer` will raise `key`, without writing it. A key may have several.
    void declareEvent(const std::string& key, const std::string& declarer);
    /// Who declared a key, in the order of declaration.
    std::vector<std::string> getDeclarers(const std::string& key) const;

    /// Writes a value and delivers it. Who writes may say so.
    void raiseEvent(const std::string& key, const KRValue& value, MemoryWriter writer = {});
    /// When a write was made, and its place in the order of all writes.
    struct Stamp {
        vo::TimePoint time;
        vo::Duration uptime;
        std::uint64_t number;
    };
    /// Makes a write again that was made in another memory, with the stamp that it had there. For
    /// who lives a life again; the numbers grow.
    void raiseEventAgain(const std::string& key, const KRValue& value, MemoryWriter writer,
                         const Stamp& stamp);
    /// Somebody who writes, by name; the same for the same name, while the memory lives.
    MemoryWriter writer(const std::string& name);
    /// "" for nobody.
    std::string writerName(MemoryWriter writer) const;

    /// The last values of a key, oldest first, as an array of arrays [value, time]; time is an
    /// int, the whole seconds of the application's life (see lifeTime) at which it was raised. A
    /// key that was never written has an empty history.
    KRValue getEventHistory(const std::string& key) const;

    /// Whole seconds from the making of this memory to now; the unit of history times.
    std::int64_t lifeTime() const;

    /// A key's value and the time of its latest write; an unwritten key has the invalid value and
    /// the epoch.
    struct Snapshot {
        KRValue value;
        vo::TimePoint time;
        /// Of the latest write, where it is asked for; of one before that, as of the timer tick
        /// before it. kNotStamped for an unwritten key.
        vo::Duration uptime = kNotStamped;
    };
    /// A key to watch, and the number that comes back with its changes.
    struct Watch {
        std::string key;
        std::uint32_t tag;
        bool stamped = false;  ///< asks for the exact uptime of the writes
    };

    /// From now on delivers the changes of these keys to `feed`, and returns what they hold now,
    /// in the order asked. Both happen at one moment: no change is missed or seen twice. A feed
    /// may watch a key under several tags; the same tag twice counts once, and as stamped if one of
    /// them is. Memory does not keep the feed alive, and forgets one that is gone.
    std::vector<Snapshot> watch(const std::shared_ptr<MemoryFeed>& feed,
                                const std::vector<Watch>& keys);
    /// A key that was written, by its number: keys are numbered from 0 as they come up.
    struct Known {
        std::uint32_t key;
        Snapshot now;
    };
    /// The same for all keys, also those that come up later; the tags are the keys' numbers. To be
    /// called once for a feed, which watches nothing else.
    std::vector<Known> watchAll(const std::shared_ptr<MemoryFeed>& feed);
    /// Of a number that came with a change.
    std::string keyName(std::uint32_t number) const;
    /// Moves everything that is queued for a feed to `changes` (whose old content is discarded, its
    /// storage reused). False when there was nothing.
    bool take(MemoryFeed& feed, std::vector<MemoryChange>& changes);
    /// Ends the delivery of one key's changes to `feed`, or of everything. What is queued stays.
    void unwatch(const std::shared_ptr<MemoryFeed>& feed, const std::string& key,
                 std::uint32_t tag);
    void unwatchAll(const std::shared_ptr<MemoryFeed>& feed);

    /// Subscribes a module: its bound method `method` is called with (key, value, message) for
    /// every write of `key`, on a platform thread, one call at a time per module and in the order
    /// of the writes. A second subscription of the same module to the same key replaces the first.
    /// What is queued is then delivered to the new method. What a call throws is logged. KRError
    /// when there is no such module or method.
    void subscribeToMicroEvent(const std::string& key, const std::string& module,
                               const std::string& message, const std::string& method);
    /// No call for this key begins after this returns; one in progress is not waited for, since it
    /// may want a lock of the caller's. KRError when the module is not subscribed to the key.
    void unsubscribeToMicroEvent(const std::string& key, const std::string& module);

    /// Ends when every module has been called for what was written before, or has gone.
    vo::Future<void> delivered();

    /// The memory as the service "KRMemory": the operations above by name, and
    /// `subscriber(key)`, an object with a signal "signal" that carries each new value.
    std::shared_ptr<vo::ServiceObject> serviceObject();

private:
    friend class KRModule;
    friend struct PrefetchingWatch;
    class Impl;

    /// Ends every micro-event subscription of a module that is closed, and waits for the delivery
    /// in progress (not for one that this is called from).
    void endSubscriptions(const vo::ServiceObject& module);

    std::unique_ptr<Impl> impl_;
};

}  // namespace KR
