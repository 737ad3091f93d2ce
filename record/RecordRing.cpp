#include "record/RecordRing.h"

#include <charconv>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <vector>

#include "record/RecordReader.h"

namespace KR {

namespace {

namespace fs = std::filesystem;

/// When an earlier file was begun; the epoch for one that cannot be read.
vo::TimePoint beginningOf(const std::string& path)
{
    try {
        return RecordReader(path, [](const RecordProblem&) {}).header().time;
    } catch (const std::exception&) {
        return {};
    }
}

/// std::runtime_error for a file that is to be left alone.
void requireRecordingOrNothing(const std::string& path)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::is_regular_file(status) || fs::file_size(path) == 0)
        return;
    try {
        RecordReader(path, [](const RecordProblem&) {});
    } catch (const NoRecording& e) {
        throw std::runtime_error(std::string(e.what()) + ", so it is not overwritten");
    }
}

}  // namespace

RecordRing::RecordRing(std::shared_ptr<vo::Clock> clock, std::string path, std::string program,
                       const Limits& limits)
    : clock_(std::move(clock)),
      path_(std::move(path)),
      program_(std::move(program)),
      limits_(limits)
{
    requireRecordingOrNothing(path_);
    if (!isRing())
        return;
    findOlder();
    std::error_code error;
    const auto bytes = fs::file_size(path_, error);
    if (!error && bytes > 0)
        moveAway(bytes);
}

bool RecordRing::isRing() const
{
    return limits_.bytes != 0 || limits_.age != vo::Duration::zero();
}

std::string RecordRing::olderPath(std::size_t number) const
{
    return path_ + "." + std::to_string(number);
}

/// A run that was killed may have left numbers out.
void RecordRing::findOlder()
{
    const fs::path whole = fs::absolute(path_);
    const std::string begin = whole.filename().string() + ".";
    std::set<std::size_t> numbers;
    for (const auto& entry : fs::directory_iterator(whole.parent_path())) {
        const std::string name = entry.path().filename().string();
        std::size_t number = 0;
        if (name.compare(0, begin.size(), begin) != 0)
            continue;
        const char* const end = name.data() + name.size();
        const auto [stop, error] = std::from_chars(name.data() + begin.size(), end, number);
        if (error == std::errc() && stop == end && number > 0 && entry.is_regular_file())
            numbers.insert(number);
    }
    vo::TimePoint ended = fs::exists(path_) ? beginningOf(path_) : clock_->now();
    for (const std::size_t number : numbers) {
        const std::string path = olderPath(older_.size() + 1);
        if (olderPath(number) != path)
            fs::rename(olderPath(number), path);
        older_.push_back({fs::file_size(path), ended});
        ended = beginningOf(path);
    }
}

/// The newest file becomes the latest of the older ones.
void RecordRing::moveAway(std::uint64_t bytes)
{
    for (std::size_t number = older_.size(); number > 0; --number)
        fs::rename(olderPath(number), olderPath(number + 1));
    fs::rename(path_, olderPath(1));
    older_.push_front({bytes, clock_->now()});
}

void RecordRing::begin()
{
    if (file_) {
        file_->end();
        const std::uint64_t bytes = file_->bytes();
        file_.reset();
        moveAway(bytes);
    }
    RecordHeader header;
    header.program = program_;
    header.time = clock_->now();
    header.file = ++files_;
    file_ = std::make_unique<RecordFile>(path_, header);
    head_ = 0;
    removeOld();
}

void RecordRing::beginAnew()
{
    file_->flush();
    head_ = file_->bytes();
}

bool RecordRing::isFull() const
{
    return (limits_.bytes != 0 && file_->bytes() - head_ >= limits_.bytes / kParts) ||
           (limits_.age != vo::Duration::zero() &&
            clock_->now() - file_->beginning() >= limits_.age / static_cast<int>(kParts));
}

void RecordRing::removeOld()
{
    // What is gathered will be written yet.
    std::uint64_t bytes = file_->bytes() + RecordFile::kBlockBytes;
    for (const Older& older : older_)
        bytes += older.bytes;
    const vo::TimePoint now = clock_->now();
    while (!older_.empty()) {
        const bool isTooMuch = limits_.bytes != 0 && bytes > limits_.bytes;
        const bool isTooOld =
            limits_.age != vo::Duration::zero() && now - older_.back().end > limits_.age;
        if (!isTooMuch && !isTooOld)
            return;
        fs::remove(olderPath(older_.size()));
        bytes -= older_.back().bytes;
        older_.pop_back();
    }
}

void RecordRing::end()
{
    if (file_)
        file_->end();
    file_.reset();
}

}  // namespace KR
