#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/conditions/ConditionChecker.h"
#include "platform/conditions/ConditionNetwork.h"
#include "platform/conditions/KeySlot.h"

namespace KR {

/// Copies of the persistent values, handed out so that nobody alters them any more while they are
/// held. A copy that was given back is brought up to date and handed out again, which costs what
/// has changed since, not a new map: most dispatches find one.
///
/// Not synchronised, but for what is handed out: that may be given back on any thread, also when
/// this is gone. A part of ConditionChecker.
class ValueSnapshots {
public:
    /// To be told of each change of a key, before the next snapshot.
    void noteChange(KeyTag tag)
    {
        if (pool_)
            log_[changes_++ % kLog] = tag;
    }
    /// To be told when there are other keys.
    void noteKeys() { ++keys_; }

    /// The values of the network's keys now.
    std::shared_ptr<const PersistentValues> take(const ConditionNetwork& network);

private:
    /// Changes that are remembered: a copy that missed more of them is brought up to date by
    /// looking at every key.
    static constexpr std::size_t kLog = 256;

    struct Snapshot {
        PersistentValues values;
        std::uint64_t keys = 0;     ///< which keys it has
        std::uint64_t changes = 0;  ///< up to which change it is up to date
    };
    struct Pool;
    struct Return;

    void update(Snapshot& snapshot, const ConditionNetwork& network) const;

    std::shared_ptr<Pool> pool_;  ///< null until the first is taken
    std::vector<KeyTag> log_ = std::vector<KeyTag>(kLog);
    std::uint64_t changes_ = 0;
    std::uint64_t keys_ = 1;
};

}  // namespace KR
