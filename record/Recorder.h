#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "life/EventStream.h"
#include "platform/vo/Clock.h"

namespace KR {

class RecordWriter;

/// Records a robot's life: writes down every event of a stream, on a thread of its own, until it is
/// closed or goes. It is made before the life, whose first events belong to the recording.
///
///     recording --error, or close()--> ended (final)
///
/// What happens is with the operating system a second later: that much is lost when the process is
/// killed. Who tells events never waits for the disk. An error of the disk is logged once, under
/// "Recording", and ends the recording with what is whole; the life goes on.
///
/// Used by one thread at a time; isComplete() by any.
class Recorder {
public:
    struct Options {
        /// The file; compressed when it ends with ".zst". It takes the place of an earlier
        /// recording. What is no recording is left alone, which is an error as those of the disk.
        std::string path;
        /// The path of the rules, as the life gets it: the recorder publishes RunBegan now, and
        /// RunEnded when it ends, without which a recording cannot be replayed. Empty for who
        /// publishes them itself.
        std::string config = {};
        /// As the life gets them; for RunBegan.
        std::vector<std::string> chains = {};
        /// The version of the program that records, for readers.
        std::string program = {};
        /// What all files may take together: `path` is the newest one then, `path`.1 the one before
        /// it, and so on, and the oldest go. 0 for one file without a limit; at least kMinBytes.
        std::uint64_t bytes = 0;
        /// What is older goes, as above; 0 to keep everything.
        vo::Duration age{};
    };
    static constexpr std::uint64_t kMinBytes = std::uint64_t{2} * 1024 * 1024;

    /// The stream outlives it. `clock` gives the thread, and the times of the files.
    /// std::invalid_argument for limits that make no sense.
    Recorder(EventStream& events, std::shared_ptr<vo::Clock> clock, const Options& options);
    /// Closes.
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// Records what has happened so far, and ends. Inside of a receiver of the stream, what that
    /// has not been told yet is left out. Idempotent.
    void close();

    /// Whether everything that has come is recorded, so far: no error, and nothing left out because
    /// it came faster than it could be written or was too large.
    bool isComplete() const;

private:
    EventStream& events_;
    const bool tellsRun_;  ///< publishes its beginning and end
    bool isClosed_ = false;
    const std::unique_ptr<RecordWriter> writer_;
};

}  // namespace KR
