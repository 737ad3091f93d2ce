#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "record/RecordBytes.h"

namespace KR {

/// The lines of a recording, as bytes. It holds one line in memory, and bounds it.
///
/// Used by one thread at a time.
class RecordLines {
public:
    /// As RecordBytes does.
    RecordLines(const std::string& path, RecordBytes::Tell tell);

    struct Line {
        std::string_view text;     ///< without its end; valid until the next call
        std::uint64_t number = 0;  ///< from 1 on; 0 when that is not known
        std::uint64_t byte = 0;    ///< where it begins; in a compressed file, where its frame does
        bool afterBreak = false;   ///< what stood before it is damaged, and was told
    };
    /// None at the end. A last line without an end, and one that is too long, are told and not
    /// given.
    std::optional<Line> next();

    bool isCompressed() const { return bytes_.isCompressed(); }
    std::uint64_t fileSize() const { return bytes_.fileSize(); }
    /// Goes on with the first line that begins, or whose frame begins, at `byte` or after it.
    void restart(std::uint64_t byte);

private:
    bool fill();
    std::uint64_t place() { return bytes_.placeOf(passed_ + begin_); }

    // Constant after construction.
    const RecordBytes::Tell tell_;

    RecordBytes bytes_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;     ///< of the next line in the buffer
    std::size_t searched_ = 0;  ///< no line ends before this
    std::size_t end_ = 0;       ///< of what was read
    std::uint64_t passed_ = 0;  ///< bytes before the buffer, since the last restart
    std::uint64_t count_ = 0;   ///< of lines
    bool isCounted_ = true;     ///< from the beginning, and none was passed over
    bool isInside_ = false;     ///< of a line of which the beginning was passed over
    bool afterBreak_ = false;
};

}  // namespace KR
