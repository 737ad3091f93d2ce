#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "life/Event.h"

namespace KR {

/// How a life that was lived again departs from the one that was recorded.
struct ReplayDifference {
    std::optional<Event> recorded;  ///< what was recorded there; nothing where it was to be over
    std::optional<Event> replayed;  ///< what happened in its place, if anything
    std::string text;               ///< the same for people, in one sentence
};

struct ReplayResult {
    std::uint64_t decisions = 0;  ///< that were the same
    std::optional<ReplayDifference> difference;
};

/// Lives a recorded life again: the same engine, under the same rules, is given what the recorded
/// one was given, in the same order, and what it decides is compared, event by event.
///
/// Given is what comes from outside of launchpad and life/: the writes of memory, and what the
/// checker's clock made due; the answers of services and activities; ends of activities; what
/// somebody asked the life service for; packages. Compared are hit lists, what becomes of each hit
/// and step, the requests, and every change of life, with what it writes to memory.
///
/// There must be no other application in this process meanwhile.
class Replay {
public:
    /// The next event of the recording, from its first one on.
    using Source = std::function<std::optional<Event>()>;
    /// Called with each event of the recording up to a difference, when all that comes before it is
    /// known to be the same.
    using Sink = std::function<void(const Event& event)>;

    Replay(Source source, Sink sink);
    ~Replay();
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    /// To the end of the recording, to the end of monitoring or to the first difference, whichever
    /// comes first. std::runtime_error for a recording that does not tell how it began.
    ReplayResult run();

private:
    class Impl;
    const std::unique_ptr<Impl> impl_;
};

}  // namespace KR
