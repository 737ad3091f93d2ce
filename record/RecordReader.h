#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/vo/Clock.h"
#include "record/RecordLine.h"

namespace KR {

class RecordLines;

/// A file is no recording, or one of a version that is not known yet.
class NoRecording : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Something is wrong with a recording.
struct RecordProblem {
    std::uint64_t line = 0;  ///< number of the line; 0 where that is not known
    std::uint64_t byte = 0;  ///< of the file; in a compressed one where the frame begins
    std::string text;
};

/// Reads a recording, plain or compressed, line by line; memory is bounded.
///
/// What is damaged is told, once, and left out; what is given is as it was written. Only a line
/// that nothing comes after cannot be checked by itself, which is told as well: the recording was
/// not closed then.
///
/// Used by one thread at a time. The callback must not come back.
class RecordReader {
public:
    using Tell = std::function<void(const RecordProblem&)>;

    /// NoRecording; std::system_error when the file cannot be opened or read.
    RecordReader(const std::string& path, Tell tell);
    ~RecordReader();
    RecordReader(const RecordReader&) = delete;
    RecordReader& operator=(const RecordReader&) = delete;

    const RecordHeader& header() const { return header_; }

    /// From now on writes of keys for which that is false are passed over, which takes much less
    /// time. What is wrong with their lines is told all the same, but for what is no JSON.
    void passOverKeys(RecordLineParser::Wanted wanted) { parser_.setWanted(std::move(wanted)); }

    /// The next event, gap or checkpoint; none at the end.
    std::optional<RecordEntry> next();

    /// Goes to the first entry that is not before a time, without reading what comes before. In the
    /// recording of a live run whose clock was set back, times repeat: it is one of them then.
    void seek(vo::TimePoint time);
    /// Goes to the last whole checkpoint that is not after a time, as above; it reads backwards
    /// from there. Without one, false, and to the beginning.
    bool seekCheckpoint(vo::TimePoint time);

    /// When an entry was written down; none for a gap.
    static std::optional<vo::TimePoint> timeOf(const RecordEntry& entry);

private:
    /// A line that was read. Whether it is whole is known with the next one.
    struct Candidate {
        RecordLine line;
        std::uint32_t checksum = 0;  ///< its own
        std::uint64_t number = 0;    ///< of the line in the file; 0 when that is not known
        std::uint64_t byte = 0;
        std::uint64_t passedOver = 0;  ///< lines right before it that were told to be damaged
        bool afterBreak = false;       ///< more than that was, before it
    };

    void readHeader(const std::string& path);
    std::optional<Candidate> read();
    std::optional<Candidate> readAfter(const Candidate& line);
    std::optional<RecordEntry> step();
    bool accept(const Candidate& line);
    void tellMissing(const Candidate& line);
    void finish();
    void restart(std::uint64_t byte);
    struct Place {
        std::uint64_t byte;
        vo::TimePoint time;
    };
    /// Bytes of the file; a line, or its frame, that begins at `to` is not among them.
    struct Span {
        std::uint64_t from;
        std::uint64_t to;
    };
    /// A checkpoint that seems to be there.
    struct Mark {
        std::uint64_t byte;    ///< where its line, or its frame, begins
        std::uint64_t before;  ///< see RecordCheckpoint
    };
    std::optional<Place> probe(std::uint64_t byte);
    Span searchFirst(vo::TimePoint time);
    std::vector<Mark> checkpointsIn(Span span, vo::TimePoint time);
    bool goTo(const Mark& checkpoint);
    bool tell(std::uint64_t line, std::uint64_t byte, const std::string& text);
    bool refuse(const Candidate& line, const std::string& why);

    // Constant after construction.
    const Tell tell_;

    const std::unique_ptr<RecordLines> lines_;
    RecordLineParser parser_;
    RecordHeader header_;
    std::optional<Candidate> coming_;   ///< the line to look at next
    std::optional<RecordEntry> found_;  ///< what a search has read already
    std::uint64_t last_ = 0;            ///< number of the last line that was given; 0 for none
    std::uint32_t lastChecksum_ = 0;
    std::uint64_t lost_ = 0;     ///< lines since then that were told to be damaged
    std::uint64_t refused_ = 0;  ///< number of the last line that was not given
    bool isBroken_ = false;      ///< more than those
    bool isKnown_ = false;       ///< which line comes next
    bool isClosed_ = false;      ///< the last line has come
    bool hasEnded_ = false;
    bool isSearching_ = true;  ///< what is wrong is not told
};

}  // namespace KR
