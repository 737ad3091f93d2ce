#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

#include "life/Event.h"
#include "record/RecordLine.h"

namespace KR {

/// What waits to be written, up to a bound; what comes beyond it is counted, and stands as a gap in
/// its place. Not thread-safe.
class RecordQueue {
public:
    /// At a thousand events a second, a minute.
    static constexpr std::size_t kMaxEvents = 65536;
    /// Of what values hold elsewhere: pictures, say.
    static constexpr std::size_t kMaxBytes = std::size_t{64} * 1024 * 1024;

    /// Here the next file of the recording begins.
    struct NextFile {
        std::optional<RecordCheckpoint> checkpoint;
    };
    using Entry = std::variant<Event, RecordGap, NextFile>;

    bool hasRoomFor(const Event& event) const;
    /// False when it is counted only.
    bool add(const Event& event);
    void add(NextFile next);
    /// Everything; empty then, but for the place that it takes.
    std::vector<Entry> take();

    /// Whether it is time to write.
    bool isQuarterFull() const;

private:
    void addGap();

    std::vector<Entry> entries_;
    std::size_t bytes_ = 0;
    RecordGap gap_;  ///< of no event: there is none
};

}  // namespace KR
