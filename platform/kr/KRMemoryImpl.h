#pragma once

#include <boost/container/small_vector.hpp>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/kr/KRMemory.h"
#include "platform/kr/KeySignals.h"
#include "platform/kr/MemoryTable.h"
#include "platform/kr/ModuleSubscriber.h"
#include "platform/vo/Application.h"
#include "platform/vo/Mutex.h"

namespace KR {

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

    void raise(const std::string& key, const KRValue& value, MemoryWriter writer,
               const Stamp* stamp) VO_EXCLUDES(mutex);
    void write(const std::string& key, const KRValue& value, MemoryWriter writer,
               const Stamp* stamp, Recipients& recipients) VO_REQUIRES(mutex);
    /// See KRMemory::watch and PrefetchingWatch.
    template <class W>
    std::vector<Snapshot> watch(const std::shared_ptr<MemoryFeed>& feed, const std::vector<W>& keys)
        VO_EXCLUDES(mutex);
    std::int64_t lifeTimeAt(vo::Duration uptime) const;
    /// The subscriber of a module that is registered under its name now.
    ModuleSubscriber& subscriberOf(const std::shared_ptr<vo::ServiceObject>& module,
                                   std::unique_ptr<ModuleSubscriber>& replaced)
        VO_REQUIRES(subscribersMutex);

    // Constant after construction.
    KRMemory& owner;
    vo::Session& session;
    const std::shared_ptr<vo::Clock> clock;
    const vo::Duration start;
    const std::shared_ptr<vo::ServiceObject> service;

    mutable vo::SharedMutex mutex;
    MemoryTable slots VO_GUARDED_BY(mutex);
    /// Who declared a key, in the order of declaration.
    std::unordered_map<std::string, std::vector<std::string>> declarers VO_GUARDED_BY(mutex);
    std::vector<std::string> writers VO_GUARDED_BY(mutex){""};  ///< by id
    std::uint64_t lastWrite VO_GUARDED_BY(mutex) = 0;
    std::vector<std::weak_ptr<MemoryFeed>> observers VO_GUARDED_BY(mutex);  ///< of all keys

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
