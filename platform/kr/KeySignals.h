#pragma once

#include <memory>
#include <string>

#include "platform/kr/FeedPump.h"
#include "platform/vo/AnyObject.h"
#include "platform/vo/Clock.h"

namespace KR {

class KRMemory;

/// Shared memory's keys as objects with a signal, for those who follow a key through a handle.
///
/// There is one object a key, made when it is first asked for and kept as long as the memory: a
/// connection lives on after its handle was dropped.
///
/// Thread-safe.
class KeySignals {
public:
    /// `memory` outlives this.
    KeySignals(KRMemory& memory, vo::Clock& clock);
    ~KeySignals();

    /// An object whose signal "signal" carries every value that the key gets from now on.
    vo::AnyObject subscriber(const std::string& key);

private:
    struct Table;

    // Constant after construction. The table is shared with the pump's handler.
    KRMemory& memory_;
    std::shared_ptr<Table> table_;
    FeedPump pump_;
};

}  // namespace KR
