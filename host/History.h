#pragma once

#include <memory>
#include <string>

#include "host/CommandLine.h"
#include "life/EventStream.h"
#include "platform/vo/Clock.h"
#include "record/RecordWriter.h"

namespace KR {

/// What has happened lately in a live run, as a ring of recordings that is there without being
/// asked for. A run whose history cannot be kept goes on without; why is logged.
///
/// Used by one thread.
class History {
public:
    /// What is kept of a run, whichever is less.
    static constexpr std::uint64_t kBytes = std::uint64_t{64} * 1024 * 1024;
    static constexpr vo::Duration kAge = std::chrono::hours(1);

    /// Follows the stream, which outlives it. `file` is the newest of the ring; empty for one in a
    /// folder of its own. `clock` is as for RecordWriter.
    History(const std::string& file, std::shared_ptr<vo::Clock> clock, EventStream& events);
    /// Closes; the folder of its own goes.
    ~History();
    History(const History&) = delete;
    History& operator=(const History&) = delete;

    /// Writes what has come, and ends. Idempotent.
    void close();

private:
    std::string folder_;                    ///< of its own; empty for none
    std::unique_ptr<RecordWriter> writer_;  ///< null where there is no place for a folder
};

/// Adds the option --history.
Option addHistory(const Command& command, std::string& file);

/// Null for a `file` that is "none". UsageError for one that is written by something else, too.
std::unique_ptr<History> makeHistory(const std::string& file, const std::string& recording,
                                     EventStream& events);

}  // namespace KR
