#pragma once

#include <cstddef>
#include <cstdint>
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
        RecordCheckpoint checkpoint;  ///< its state is empty for none
    };
    using Entry = std::variant<Event, RecordGap, RecordCheckpoint, NextFile>;

    bool hasRoomFor(const Event& event) const { return hasRoomFor(bytesOf(event)); }
    bool hasRoomFor(const RecordCheckpoint& checkpoint) const
    {
        return hasRoomFor(checkpoint.state.size());
    }
    /// False when it is counted only.
    bool add(const Event& event);
    void add(NextFile next);
    /// False when there is no room for it.
    bool add(RecordCheckpoint checkpoint);
    /// Everything; empty then, but for the place that it takes.
    std::vector<Entry> take();

    /// Whether it is time to write.
    bool isQuarterFull() const;

private:
    static std::size_t bytesOf(const Event& event);
    bool hasRoomFor(std::size_t bytes) const;
    void addGap();

    std::vector<Entry> entries_;
    std::size_t bytes_ = 0;
    RecordGap gap_;  ///< of no event: there is none
};

}  // namespace KR
