#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/kr/MemoryFeed.h"
#include "platform/vo/Clock.h"

namespace KR {

class KRMemory;

/// Takes what shared memory appends to a feed and hands it on, on a platform thread: one change at
/// a time, in the order in which they were raised.
///
/// Destruction refuses further changes and waits for the one that is being handed on, except when
/// it comes from inside that very handler, which then is the last. So the handler keeps what it
/// touches alive itself. It must not throw.
///
/// Thread-safe.
class FeedPump {
public:
    using Handler = std::function<void(const MemoryChange&)>;

    /// The name is for logs and debuggers. `memory` outlives this.
    FeedPump(KRMemory& memory, vo::Clock& clock, const std::string& name, Handler handler);
    ~FeedPump();
    FeedPump(const FeedPump&) = delete;
    FeedPump& operator=(const FeedPump&) = delete;

    /// Has something done on the platform thread after what the feed holds now.
    void post(std::function<void()> task);

    /// The feed to watch keys with. Memory forgets it once the pump is gone.
    const std::shared_ptr<MemoryFeed>& feed() const;

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace KR
