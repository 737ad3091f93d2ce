#include "life/FrozenChains.h"

#include <utility>

#include "platform/kr/KRError.h"

namespace KR {

namespace {

constexpr const char* kMotionModule = "KRNimbra";

void cancel(const vo::Future<void>& timer)
{
    if (timer.isValid())
        timer.cancel();
}

}  // namespace

FrozenChains::FrozenChains(const std::shared_ptr<vo::Clock>& clock, Turns& turns,
                           std::set<std::string> chains, Tell tell)
    : chains_(std::move(chains)), clock_(clock), turns_(turns), tell_(std::move(tell))
{
}

FrozenChains::~FrozenChains()
{
    for (const auto& [chain, freeze] : frozen_)
        cancel(freeze.timer);
}

void FrozenChains::check(const std::string& chain, const char* method) const
{
    if (chains_.count(chain) == 0)
        throw KRError(kMotionModule, method, "there is no chain '" + chain + "'");
}

void FrozenChains::freeze(const std::string& chain, std::optional<std::int32_t> seconds,
                          const std::string& rule)
{
    constexpr const char* kMethod = "freezeChain";
    check(chain, kMethod);
    if (seconds && *seconds < 1)
        throw KRError(kMotionModule, kMethod, "the duration must be 1 second or more");
    const vo::Duration length = std::chrono::seconds(seconds.value_or(0));
    std::optional<vo::Future<void>> before;  ///< the timer of the freeze that this one replaces
    {
        const vo::Lock lock(mutex_);
        const vo::Duration until = clock_->uptime() + length;
        const auto found = frozen_.find(chain);
        const bool isFrozen = found != frozen_.end();
        if (isFrozen && (!found->second.until || (seconds && until < *found->second.until)))
            return;
        Freeze freeze{++lastFreeze_, {}};
        if (seconds) {
            freeze.until = until;
            freeze.timer = turns_.after(length, [this, chain, id = freeze.id] { thaw(chain, id); });
        }
        if (isFrozen)
            before = std::exchange(found->second, freeze).timer;
        else
            frozen_.emplace(chain, freeze);
    }
    if (before)
        cancel(*before);
    else
        tell_(ChainChanged{chain, true, {}, rule});
}

/// The end of a freeze's time, which may have been replaced meanwhile.
void FrozenChains::thaw(const std::string& chain, std::uint64_t id)
{
    {
        const vo::Lock lock(mutex_);
        const auto found = frozen_.find(chain);
        if (found == frozen_.end() || found->second.id != id)
            return;
        frozen_.erase(found);
    }
    tell_(ChainChanged{chain, false, "its time is over", {}});
}

void FrozenChains::unfreeze(const std::string& chain, const std::string& rule)
{
    check(chain, "unfreezeChain");
    vo::Future<void> timer;
    {
        const vo::Lock lock(mutex_);
        const auto found = frozen_.find(chain);
        if (found == frozen_.end())
            return;
        timer = found->second.timer;
        frozen_.erase(found);
    }
    cancel(timer);
    tell_(ChainChanged{chain, false, {}, rule});
}

std::vector<std::string> FrozenChains::frozen() const
{
    const vo::Lock lock(mutex_);
    std::vector<std::string> chains;
    chains.reserve(frozen_.size());
    for (const auto& chain : frozen_)
        chains.push_back(chain.first);
    return chains;
}

}  // namespace KR
