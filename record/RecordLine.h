#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "life/Event.h"
#include "platform/vo/Clock.h"

namespace KR {

// What a recording consists of; docs/recording.md has the form.

/// The form that is written; each later one is a number higher.
constexpr std::uint64_t kRecordVersion = 1;
/// A longer line is not written, and not read: who reads holds two of them in memory.
constexpr std::size_t kMaxRecordLineBytes = std::size_t{64} * 1024 * 1024;

/// What each file begins with.
struct RecordHeader {
    std::uint64_t version = kRecordVersion;  ///< of a later one nothing else is known
    std::string program;                     ///< version of the program that wrote it
    vo::TimePoint time{};                    ///< when it was begun
    std::uint64_t file = 1;  ///< its number among the files of one recording, from 1 on
};

/// In place of events that were left out.
struct RecordGap {
    enum class Why {
        queue,   ///< they came faster than they could be written
        tooBig,  ///< it was larger or nested deeper than a line may be
    };
    Why why = Why::queue;
    std::uint64_t events = 0;  ///< how many
    std::uint64_t from = 0;    ///< number of the first
    std::uint64_t to = 0;      ///< number of the last
};

/// What a reader needs that begins here.
struct RecordCheckpoint {
    std::uint64_t before = 0;  ///< number of the event that it stands before
    vo::TimePoint time{};      ///< of that event
    std::string state;         ///< JSON, on one line
};

/// The last line of a file that was written to its end.
struct RecordEnd {};

/// An event, as which it stands in its place; or again, so that a later file can be read alone.
struct RecordedEvent {
    Event event;
    bool again = false;
};

/// The write of a key that nobody asked for: it was not looked at any closer.
struct RecordPassedOver {};

using RecordEntry = std::variant<RecordedEvent, RecordGap, RecordCheckpoint, RecordHeader,
                                 RecordEnd, RecordPassedOver>;

struct RecordLine {
    std::uint64_t number = 0;    ///< in its file, from 1 on
    std::uint32_t checksum = 0;  ///< of the line before it
    RecordEntry entry;
};

/// CRC-32 of a line without its end.
std::uint32_t recordChecksum(std::string_view line);

/// The line without its end. std::length_error for one that is too long or nested too deep,
/// std::invalid_argument for a checkpoint that is no JSON. Thread-safe.
std::string encodeRecordLine(const RecordLine& line);

/// Reads lines. Used by one thread at a time.
class RecordLineParser {
public:
    /// Bytes behind a line that are to be readable, whatever they are.
    static constexpr std::size_t kPadding = 64;

    RecordLineParser();
    ~RecordLineParser();
    RecordLineParser(const RecordLineParser&) = delete;
    RecordLineParser& operator=(const RecordLineParser&) = delete;

    /// A line without its end. std::runtime_error says what is wrong.
    RecordLine parse(std::string_view line);

    /// Whether the writes of a key are asked for. Empty for all.
    using Wanted = std::function<bool(std::string_view key)>;
    void setWanted(Wanted wanted);

private:
    class Impl;
    const std::unique_ptr<Impl> impl_;
};

}  // namespace KR
