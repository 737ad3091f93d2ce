#include "record/RecordReader.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "record/RecordLines.h"

namespace KR {

namespace {

/// A search ends with reading this many bytes one line after the other.
constexpr std::uint64_t kSearchedBytes = std::size_t{256} * 1024;

/// A damaged first line leaves a recording one when one of the next is whole.
constexpr int kHeaderAttempts = 8;

/// As lines of checkpoints have it near their beginning.
constexpr std::string_view kCheckpointMark = R"("recording":"checkpoint")";
constexpr std::size_t kMarkWithin = 80;

std::string linesText(std::uint64_t first, std::uint64_t last)
{
    return first == last
               ? "line " + std::to_string(first) + " is"
               : "lines " + std::to_string(first) + " to " + std::to_string(last) + " are";
}

}  // namespace

RecordReader::RecordReader(const std::string& path, Tell tell)
    : tell_(std::move(tell)),
      lines_(std::make_unique<RecordLines>(
          path,
          [this](std::uint64_t byte, const std::string& problem) { this->tell(0, byte, problem); }))
{
    readHeader(path);
}

RecordReader::~RecordReader() = default;

void RecordReader::readHeader(const std::string& path)
{
    std::optional<RecordLine> first;
    for (int i = 0; i < kHeaderAttempts && !first; ++i) {
        const auto line = lines_->next();
        if (!line)
            break;
        try {
            first = parser_.parse(line->text);
        } catch (const std::runtime_error&) {
            continue;  // it may be damaged
        }
    }
    if (!first)
        throw NoRecording(path + " is no recording");
    if (const auto* const header = std::get_if<RecordHeader>(&first->entry))
        header_ = *header;
    if (header_.version > kRecordVersion)
        throw NoRecording(path + " is a recording of version " + std::to_string(header_.version) +
                          "; this program reads versions up to " + std::to_string(kRecordVersion));
    isSearching_ = false;
    restart(0);
}

void RecordReader::restart(std::uint64_t byte)
{
    lines_->restart(byte);
    found_.reset();
    last_ = lost_ = refused_ = 0;
    lastChecksum_ = 0;
    isBroken_ = isClosed_ = hasEnded_ = false;
    isKnown_ = byte == 0;
    coming_ = read();
}

/// Returns false, for who refuses something.
bool RecordReader::tell(std::uint64_t line, std::uint64_t byte, const std::string& text)
{
    if (!isSearching_)
        tell_({line, byte, text});
    return false;
}

bool RecordReader::refuse(const Candidate& line, const std::string& why)
{
    return tell(line.number, line.byte,
                "the line with the number " + std::to_string(line.line.number) + " " + why);
}

/// The next line that can be read; those that cannot are told.
std::optional<RecordReader::Candidate> RecordReader::read()
{
    Candidate result;
    while (const auto line = lines_->next()) {
        result.afterBreak |= line->afterBreak;
        try {
            result.line = parser_.parse(line->text);
            result.checksum = recordChecksum(line->text);
            result.number = line->number;
            result.byte = line->byte;
            return result;
        } catch (const std::runtime_error& e) {
            tell(line->number, line->byte, std::string("the line is damaged: it ") + e.what());
            ++result.passedOver;
        }
    }
    return std::nullopt;
}

/// The line after that one; the same once more is told, and passed over.
std::optional<RecordReader::Candidate> RecordReader::readAfter(const Candidate& line)
{
    std::uint64_t passedOver = 0;
    while (auto after = read()) {
        after->passedOver += std::exchange(passedOver, 0);
        if (after->line.number != line.line.number || after->checksum != line.checksum)
            return after;
        refuse(*after, "stands twice");
        passedOver = after->passedOver;
    }
    return std::nullopt;
}

std::optional<RecordEntry> RecordReader::next()
{
    if (found_)
        return std::exchange(found_, std::nullopt);
    while (!hasEnded_) {
        if (auto entry = step())
            return entry;
    }
    return std::nullopt;
}

/// None for a line that is not given.
std::optional<RecordEntry> RecordReader::step()
{
    if (!coming_ || isClosed_) {
        finish();
        return std::nullopt;
    }
    Candidate line = *std::move(coming_);
    coming_ = readAfter(line);
    lost_ += line.passedOver;
    isBroken_ |= line.afterBreak;
    if (!accept(line)) {
        ++lost_;
        refused_ = line.line.number;
        return std::nullopt;
    }
    tellMissing(line);
    last_ = line.line.number;
    lastChecksum_ = line.checksum;
    // One that came too early will not be missing.
    lost_ = refused_ > last_ ? 1 : 0;
    isBroken_ = false;
    isKnown_ = true;
    isClosed_ = std::holds_alternative<RecordEnd>(line.line.entry);
    if (isClosed_ || std::holds_alternative<RecordHeader>(line.line.entry) ||
        std::holds_alternative<RecordPassedOver>(line.line.entry))
        return std::nullopt;
    return std::move(line.line.entry);
}

/// Whether it is to be given. The line after it, if it has the next number, says whether it is as
/// it was written. If it has not, one of the two is out of its place, or its number is damaged:
/// what comes right after the last line that was given is taken then.
bool RecordReader::accept(const Candidate& line)
{
    const std::uint64_t number = line.line.number;
    const bool isNext = number == last_ + 1;
    if (coming_ && coming_->line.number == number + 1) {
        if (coming_->line.checksum != line.checksum)
            return refuse(line, "is damaged: its checksum is another one");
        return number > last_ || refuse(line, "is not in its place");
    }
    if (!isKnown_ || (isNext && line.line.checksum == lastChecksum_))
        return true;
    // Of the line that closes a recording everything is known.
    if (std::holds_alternative<RecordEnd>(line.line.entry) && number > last_ + 1)
        return true;
    return refuse(line, "is damaged, or not in its place");
}

void RecordReader::tellMissing(const Candidate& line)
{
    const std::uint64_t missing = isKnown_ ? line.line.number - last_ - 1 : 0;
    if (missing > lost_ && !isBroken_)
        tell(line.number, line.byte,
             linesText(last_ + 1, line.line.number - 1) + " missing before it");
}

void RecordReader::finish()
{
    hasEnded_ = true;
    if (!isClosed_)
        tell(0, lines_->fileSize(),
             "it was not closed: what came last is not there, and the last line cannot be checked");
    else if (coming_)
        tell(coming_->number, coming_->byte, "there is something after the last line");
}

std::optional<vo::TimePoint> RecordReader::timeOf(const RecordEntry& entry)
{
    if (const auto* const recorded = std::get_if<RecordedEvent>(&entry)) {
        if (recorded->again)
            return std::nullopt;
        return recorded->event.time;
    }
    if (const auto* const checkpoint = std::get_if<RecordCheckpoint>(&entry))
        return checkpoint->time;
    return std::nullopt;
}

/// The first line that begins, or whose frame begins, at that byte or after it, and tells a time.
std::optional<RecordReader::Place> RecordReader::probe(std::uint64_t byte)
{
    lines_->restart(byte);
    while (const auto line = read()) {
        if (const auto time = timeOf(line->line.entry))
            return Place{line->byte, *time};
    }
    return std::nullopt;
}

/// Where the first entry is that is not before a time: in a span that is read quickly, or at its
/// end.
RecordReader::Span RecordReader::searchFirst(vo::TimePoint time)
{
    Span span{0, lines_->fileSize()};
    while (span.to - span.from > kSearchedBytes) {
        const std::uint64_t middle = span.from + (span.to - span.from) / 2;
        const auto place = probe(middle);
        if (place && place->byte < span.to && place->time < time)
            span.from = place->byte;
        else
            span.to = middle;
    }
    return span;
}

void RecordReader::seek(vo::TimePoint time)
{
    isSearching_ = true;
    const Span span = searchFirst(time);
    isSearching_ = false;
    restart(span.from);
    while (auto entry = next()) {
        const auto at = timeOf(*entry);
        if (at && *at >= time) {
            found_ = std::move(entry);
            return;
        }
    }
}

/// Those that are not after a time. Their lines are not held against the next ones.
std::vector<RecordReader::Mark> RecordReader::checkpointsIn(Span span, vo::TimePoint time)
{
    std::vector<Mark> marks;
    lines_->restart(span.from);
    for (auto line = lines_->next(); line && line->byte < span.to; line = lines_->next()) {
        if (line->text.substr(0, kMarkWithin).find(kCheckpointMark) == std::string_view::npos)
            continue;
        try {
            const auto entry = parser_.parse(line->text).entry;
            const auto* const checkpoint = std::get_if<RecordCheckpoint>(&entry);
            if (checkpoint && checkpoint->time <= time)
                marks.push_back({line->byte, checkpoint->before});
        } catch (const std::runtime_error&) {
            continue;  // a damaged one is none
        }
    }
    return marks;
}

/// False when it is damaged.
bool RecordReader::goTo(const Mark& checkpoint)
{
    restart(checkpoint.byte);
    while (auto entry = next()) {
        const auto* const found = std::get_if<RecordCheckpoint>(&*entry);
        if (found && found->before == checkpoint.before) {
            found_ = std::move(entry);
            return true;
        }
        const auto* const recorded = std::get_if<RecordedEvent>(&*entry);
        if (recorded && recorded->event.number >= checkpoint.before)
            return false;
    }
    return false;
}

bool RecordReader::seekCheckpoint(vo::TimePoint time)
{
    isSearching_ = true;
    const bool isBounded = time < vo::TimePoint::max();
    Span span{0, isBounded ? searchFirst(time + vo::Duration(1)).to : lines_->fileSize()};
    for (std::uint64_t size = kSearchedBytes; span.to > 0; size *= 2, span.to = span.from) {
        span.from = span.to - std::min(size, span.to);
        const std::vector<Mark> marks = checkpointsIn(span, time);
        for (auto mark = marks.rbegin(); mark != marks.rend(); ++mark) {
            if (goTo(*mark)) {
                isSearching_ = false;
                return true;
            }
        }
    }
    isSearching_ = false;
    restart(0);
    return false;
}

}  // namespace KR
