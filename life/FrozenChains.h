#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "life/Event.h"
#include "life/Turns.h"
#include "platform/vo/Clock.h"
#include "platform/vo/Future.h"
#include "platform/vo/Mutex.h"

namespace KR {

/// Which parts of the robot are held still, and until when.
///
/// Chains are frozen and unfrozen in turns; the rest is thread-safe. Tells of every change with no
/// lock held. Errors are KRError. The event loop is closed before this goes.
class FrozenChains {
public:
    using Tell = std::function<void(const ChainChanged&)>;

    /// `chains` are the parts that can be held still.
    FrozenChains(const std::shared_ptr<vo::Clock>& clock, Turns& turns,
                 std::set<std::string> chains, Tell tell);
    ~FrozenChains();
    FrozenChains(const FrozenChains&) = delete;
    FrozenChains& operator=(const FrozenChains&) = delete;

    /// Holds a chain still, for so many seconds (1 or more) or until it is unfrozen. A chain that
    /// is frozen for longer already stays so. `rule` is who brought it about, "" for none.
    void freeze(const std::string& chain, std::optional<std::int32_t> seconds = {},
                const std::string& rule = {});
    /// Does nothing for a chain that is not frozen.
    void unfreeze(const std::string& chain, const std::string& rule = {});
    /// In ascending order.
    std::vector<std::string> frozen() const;

private:
    struct Freeze {
        std::uint64_t id;
        std::optional<vo::Duration> until;  ///< uptime; nothing for a freeze without end
        vo::Future<void> timer = {};        ///< invalid for a freeze without end
    };

    void check(const std::string& chain, const char* method) const;
    void thaw(const std::string& chain, std::uint64_t id);

    // Constant after construction.
    const std::set<std::string> chains_;
    const std::shared_ptr<vo::Clock> clock_;
    Turns& turns_;
    const Tell tell_;

    mutable vo::Mutex mutex_;
    std::uint64_t lastFreeze_ VO_GUARDED_BY(mutex_) = 0;
    std::map<std::string, Freeze> frozen_ VO_GUARDED_BY(mutex_);
};

}  // namespace KR
