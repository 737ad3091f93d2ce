#include "platform/conditions/ValueSnapshots.h"

#include <utility>

#include "platform/vo/Mutex.h"

namespace KR {

namespace {

/// Copies that are kept for another time. A host that lags behind holds as many as it likes; what
/// it gives back is soon handed out again, so a few are enough.
constexpr std::size_t kMaxSpare = 16;

std::pair<std::uint64_t, KRValue> entryOf(const KRMemory::Snapshot& now)
{
    return {static_cast<std::uint64_t>(now.time.time_since_epoch().count()), now.value};
}

void assign(std::pair<std::uint64_t, KRValue>& entry, const KRMemory::Snapshot& now)
{
    entry.first = static_cast<std::uint64_t>(now.time.time_since_epoch().count());
    entry.second = now.value;
}

}  // namespace

struct ValueSnapshots::Pool {
    vo::Mutex mutex;
    std::vector<std::unique_ptr<Snapshot>> spare VO_GUARDED_BY(mutex);
};

/// Gives a copy back when its last holder lets go.
struct ValueSnapshots::Return {
    std::shared_ptr<Pool> pool;
    Snapshot* snapshot;

    void operator()(const PersistentValues*) const
    {
        std::unique_ptr<Snapshot> returned(snapshot);  // destroyed without the lock
        const vo::Lock lock(pool->mutex);
        if (pool->spare.size() < kMaxSpare)
            pool->spare.push_back(std::move(returned));
    }
};

std::shared_ptr<const PersistentValues> ValueSnapshots::take(const ConditionNetwork& network)
{
    if (!pool_)
        pool_ = std::make_shared<Pool>();
    std::unique_ptr<Snapshot> snapshot;
    {
        const vo::Lock lock(pool_->mutex);
        if (!pool_->spare.empty()) {
            snapshot = std::move(pool_->spare.back());
            pool_->spare.pop_back();
        }
    }
    if (!snapshot)
        snapshot = std::make_unique<Snapshot>();
    update(*snapshot, network);
    const PersistentValues* const values = &snapshot->values;
    return {values, Return{pool_, snapshot.release()}};
}

void ValueSnapshots::update(Snapshot& snapshot, const ConditionNetwork& network) const
{
    if (snapshot.keys != keys_) {
        snapshot.values.clear();
        network.forEachKey([&](const std::string& key, const KRMemory::Snapshot& now) {
            snapshot.values.emplace(key, entryOf(now));
        });
        snapshot.keys = keys_;
    } else if (changes_ - snapshot.changes > kLog) {
        network.forEachKey([&](const std::string& key, const KRMemory::Snapshot& now) {
            assign(snapshot.values.find(key)->second, now);
        });
    } else {
        for (; snapshot.changes != changes_; ++snapshot.changes) {
            const auto [key, now] = network.keyOf(log_[snapshot.changes % kLog]);
            if (key)
                assign(snapshot.values.find(*key)->second, *now);
        }
    }
    snapshot.changes = changes_;
}

}  // namespace KR
