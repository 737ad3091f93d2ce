#pragma once

#include <boost/container/small_vector.hpp>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/kr/KRMemory.h"
#include "platform/kr/KeySignals.h"
#include "platform/kr/ModuleSubscriber.h"
#include "platform/vo/Application.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// What memory knows of one key. A key that is only declared or watched has a slot, but no value.
class MemorySlot {
public:
    struct Entry {
        KRValue value;
        std::int64_t lifeTime;
    };
    struct Watcher {
        std::weak_ptr<MemoryFeed> feed;
        std::uint32_t tag;
    };

    bool isWritten() const { return !entries_.empty(); }
    /// Of the latest write; null when there was none.
    const KRValue* value() const;
    KRMemory::Snapshot snapshot() const;
    /// Oldest first.
    std::vector<Entry> history() const;

    /// Has the memory that the next write goes to fetched meanwhile: with many keys it has been
    /// long out of every cache.
    void expectWrite() const
    {
        if (next_ < entries_.size())
            __builtin_prefetch(&entries_[next_], 1);
    }
    void write(const KRValue& value, vo::TimePoint time, std::int64_t lifeTime);

private:
    // A ring once it is full. The latest value lives here alone, so a write copies it once, and
    // into storage that the entry it replaces leaves behind.
    std::vector<Entry> entries_;
    std::size_t next_ = 0;  ///< where the next entry goes
    vo::TimePoint time_;    ///< of the latest write

public:
    // Most keys have one.
    boost::container::small_vector<Watcher, 1> watchers;
    std::vector<std::string> declarers;
};

class KRMemory::Impl {
public:
    Impl(KRMemory& memory, vo::Application& application);

    /// A feed that a write was appended to. Kept until the lock is released, since dropping the
    /// last owner of a feed runs code that is not ours.
    struct Recipient {
        std::shared_ptr<MemoryFeed> feed;
        bool wake;
    };
    using Recipients = boost::container::small_vector<Recipient, 4>;

    void write(const std::string& key, const KRValue& value, Recipients& recipients)
        VO_REQUIRES(mutex);
    const MemorySlot* find(const std::string& key) const VO_REQUIRES_SHARED(mutex);
    std::int64_t lifeTime() const;
    /// The subscriber of a module that is registered under its name now.
    ModuleSubscriber& subscriberOf(const std::shared_ptr<vo::ServiceObject>& module,
                                   std::unique_ptr<ModuleSubscriber>& replaced)
        VO_REQUIRES(subscribersMutex);

    // Constant after construction.
    vo::Session& session;
    const std::shared_ptr<vo::Clock> clock;
    const vo::Duration start;
    const std::shared_ptr<vo::ServiceObject> service;

    mutable vo::SharedMutex mutex;
    std::unordered_map<std::string, MemorySlot> slots VO_GUARDED_BY(mutex);

    // Comes before `mutex`: a subscription and its watch change together.
    vo::Mutex subscribersMutex VO_ACQUIRED_BEFORE(mutex);
    std::map<std::string, std::unique_ptr<ModuleSubscriber>> subscribers
        VO_GUARDED_BY(subscribersMutex);

    // Synchronised by itself.
    KeySignals keySignals;
};

/// KRError of module "KRMemory" for a key that no write or subscription can have.
void checkKey(const char* method, const std::string& key);

}  // namespace KR
