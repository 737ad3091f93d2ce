#include "record/RecordLines.h"

#include <cstring>

#include "record/RecordLine.h"

namespace KR {

namespace {

constexpr std::size_t kFirstBufferBytes = std::size_t{256} * 1024;

}  // namespace

RecordLines::RecordLines(const std::string& path, RecordBytes::Tell tell)
    : tell_(tell),
      bytes_(path, std::move(tell)),
      buffer_(kFirstBufferBytes + RecordLineParser::kPadding)
{
}

std::optional<RecordLines::Line> RecordLines::next()
{
    while (true) {
        const void* const found = std::memchr(buffer_.data() + searched_, '\n', end_ - searched_);
        if (!found) {
            searched_ = end_;
            if (!fill())
                return std::nullopt;
            continue;
        }
        const std::size_t end =
            static_cast<std::size_t>(static_cast<const char*>(found) - buffer_.data());
        const Line line{{buffer_.data() + begin_, end - begin_},
                        isCounted_ ? ++count_ : 0,
                        place(),
                        afterBreak_};
        begin_ = searched_ = end + 1;
        if (isInside_) {
            isInside_ = false;
            continue;
        }
        afterBreak_ = false;
        return line;
    }
}

/// Reads more behind the beginning of a line. False at the end.
bool RecordLines::fill()
{
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    passed_ += begin_;
    end_ -= begin_;
    searched_ -= begin_;
    begin_ = 0;
    if (end_ > kMaxRecordLineBytes) {
        tell_(place(), "the line that begins here is too long");
        passed_ += end_;
        searched_ = end_ = 0;
        isInside_ = afterBreak_ = true;
        ++count_;
    }
    if (end_ + RecordLineParser::kPadding == buffer_.size())
        buffer_.resize(2 * buffer_.size());
    const auto piece =
        bytes_.read(buffer_.data() + end_, buffer_.size() - RecordLineParser::kPadding - end_);
    if (piece.isBreak) {
        passed_ += end_;
        searched_ = end_ = 0;
        isInside_ = isCounted_ = false;
        afterBreak_ = true;
        return true;
    }
    if (piece.size == 0 && end_ > 0) {
        tell_(place(), "the last line is cut off after " + std::to_string(end_) + " bytes");
        passed_ += end_;
        searched_ = end_ = 0;
    }
    end_ += piece.size;
    return piece.size > 0;
}

void RecordLines::restart(std::uint64_t byte)
{
    begin_ = searched_ = end_ = 0;
    passed_ = count_ = 0;
    isCounted_ = byte == 0;
    afterBreak_ = false;
    // The line in which the byte before stands ends where the first one begins.
    isInside_ = !isCompressed() && byte > 0;
    bytes_.restart(isCompressed() ? bytes_.findFrame(byte) : byte - (isInside_ ? 1 : 0));
}

}  // namespace KR
