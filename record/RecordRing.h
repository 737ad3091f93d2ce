#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "platform/vo/Clock.h"
#include "record/RecordFile.h"

namespace KR {

/// The files of a recording. The newest one has the recording's name; those before it have a number
/// behind it, 1 for the latest, and the oldest go when the limits want it. Without limits there is
/// one file.
///
/// Files that an earlier run has left under these names belong to the ring; without limits the one
/// file takes the place of an earlier recording. A file that is no recording stays, and is an
/// error.
///
/// Used by one thread at a time; errors are as those of RecordFile, or std::runtime_error.
class RecordRing {
public:
    struct Limits {
        std::uint64_t bytes = 0;  ///< of all files; 0 for none. At least kMinBytes
        vo::Duration age{};       ///< what is older goes; 0 for none
    };
    /// Each file is an eighth of what is kept, and a block more.
    static constexpr std::uint64_t kParts = 8;
    static constexpr std::uint64_t kMinBytes = kParts * RecordFile::kBlockBytes;

    RecordRing(std::shared_ptr<vo::Clock> clock, std::string path, std::string program,
               const Limits& limits);

    /// Begins the next file; ends the one before it.
    void begin();
    /// What the file has so far does not count for how full it is: it repeats what earlier ones
    /// had, however long that is.
    void beginAnew();
    RecordFile& file() { return *file_; }
    /// Whether it is time for the next file.
    bool isFull() const;
    /// Removes files that the limits want removed.
    void removeOld();
    /// Ends the last file.
    void end();

private:
    struct Older {
        std::uint64_t bytes;
        vo::TimePoint end;  ///< not known better than when the next one began
    };

    bool isRing() const;
    std::string olderPath(std::size_t number) const;
    void findOlder();
    void moveAway(std::uint64_t bytes);

    // Constant after construction.
    const std::shared_ptr<vo::Clock> clock_;
    const std::string path_;
    const std::string program_;
    const Limits limits_;

    std::unique_ptr<RecordFile> file_;
    std::uint64_t head_ = 0;   ///< bytes of the file that do not count
    std::uint64_t files_ = 0;  ///< that were begun
    std::deque<Older> older_;  ///< the latest first
};

}  // namespace KR
