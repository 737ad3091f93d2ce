#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "life/Event.h"
#include "platform/vo/Clock.h"
#include "record/RecordReader.h"

namespace KR {

/// A recording that a command reads: its events in their order. What is damaged or was left out is
/// told on standard error, with the file's name. Used by one thread.
class RecordedRun {
public:
    /// NoRecording, or std::system_error, for a file that cannot be read as one.
    explicit RecordedRun(std::string file);
    RecordedRun(const RecordedRun&) = delete;
    RecordedRun& operator=(const RecordedRun&) = delete;

    /// See RecordReader::passOverKeys().
    void passOverKeys(RecordLineParser::Wanted wanted) { reader_.passOverKeys(std::move(wanted)); }
    std::optional<Event> next();
    /// To be called at the end: tells how much more was wrong than was told. Whether nothing was.
    bool isWhole() const;

private:
    void add(const std::string& text);

    const std::string file_;
    std::size_t problems_ = 0;
    RecordReader reader_;
};

/// The part of a run that is asked for, by times as of `nimbra run --until`. What a run begins
/// with, and which keys its rules read, counts whenever it was told.
class RunWindow {
public:
    /// Texts that are empty are for the beginning and the end.
    RunWindow(std::string from, std::string until)
        : fromText_(std::move(from)), untilText_(std::move(until))
    {
    }

    /// Whether an event is to be shown; `over` once no later one is. The start of the run gets the
    /// time of the window, if that is later. UsageError for times that make no sense.
    enum class Place { before, in, over };
    Place place(Event& event);

    vo::TimePoint from() const { return from_; }
    vo::TimePoint until() const { return until_; }

private:
    const std::string fromText_;
    const std::string untilText_;
    vo::TimePoint from_ = vo::TimePoint::min();
    vo::TimePoint until_ = vo::TimePoint::max();
};

}  // namespace KR
