#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/kr/FeedPump.h"
#include "platform/vo/Clock.h"
#include "platform/vo/ServiceObject.h"

namespace KR {

/// The micro-event subscriptions of one module: calls its bound methods with the changes of the
/// keys that it subscribed to.
///
/// A key that is removed is not delivered any more, not even what was queued; a call in progress
/// goes on. A call that throws is logged, and delivery goes on. Destruction waits as FeedPump's
/// does.
///
/// Thread-safe.
class ModuleSubscriber {
public:
    /// `memory` outlives this.
    ModuleSubscriber(KRMemory& memory, std::shared_ptr<vo::ServiceObject> module, vo::Clock& clock);

    const std::shared_ptr<vo::ServiceObject>& module() const;
    const std::shared_ptr<MemoryFeed>& feed() const { return pump_.feed(); }

    /// Has something done after the calls that are due now.
    void afterDelivery(std::function<void()> task) { pump_.post(std::move(task)); }

    /// Subscribes to a key, or changes the subscription to it, what is queued included. Returns
    /// the tag under which the feed is to watch a new key, and nothing when it watches already.
    std::optional<std::uint32_t> add(const std::string& key, const std::string& message,
                                     const std::string& method);
    /// Returns the tag of the ended subscription; nothing when there was none.
    std::optional<std::uint32_t> remove(const std::string& key);

private:
    struct Table;

    // The table is shared with the pump's handler, which may outlive this.
    std::shared_ptr<Table> table_;
    FeedPump pump_;
};

}  // namespace KR
