#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "platform/packages/FileDescriptor.h"

namespace KR {

/// The bytes of a recording, unpacked where they are compressed, which is told by what they are and
/// not by the file's name. Memory is bounded, whatever the file holds.
///
/// Used by one thread at a time.
class RecordBytes {
public:
    /// What is wrong, and at which byte of the file.
    using Tell = std::function<void(std::uint64_t byte, const std::string& problem)>;

    /// std::system_error when it cannot be opened, or is a folder.
    RecordBytes(const std::string& path, Tell tell);
    ~RecordBytes();
    RecordBytes(const RecordBytes&) = delete;
    RecordBytes& operator=(const RecordBytes&) = delete;

    struct Piece {
        std::size_t size = 0;  ///< 0 at the end
        bool isBreak = false;  ///< what comes next does not follow what came before
    };
    /// The next bytes, at most `size`. What cannot be read is told; damaged parts are passed over,
    /// and are a break.
    Piece read(char* to, std::size_t size);

    bool isCompressed() const { return unpacker_ != nullptr; }
    /// Bytes that the file has now.
    std::uint64_t fileSize() const;
    /// Where in the file a byte stands that was read, counted from the last restart(); of a
    /// compressed file the beginning of its frame. Never asked for an earlier byte than before.
    std::uint64_t placeOf(std::uint64_t position);
    /// Goes on at a byte of the file: any of a plain one, the first of a frame of a compressed one.
    void restart(std::uint64_t byte);
    /// The first place at or after `byte` at which a frame may begin; fileSize() for none.
    std::uint64_t findFrame(std::uint64_t byte) const;

private:
    class Unpacker;

    std::size_t readFile(char* to, std::size_t size, std::uint64_t at) const;
    Piece unpack(char* to, std::size_t size);
    bool refill();
    Piece passOverFrame(const std::string& problem);

    // Constant after construction.
    const FileDescriptor file_;
    const Tell tell_;
    std::unique_ptr<Unpacker> unpacker_;  ///< null for a plain file

    std::uint64_t next_ = 0;      ///< the byte of the file to read next
    std::uint64_t begin_ = 0;     ///< of a plain file, where it was restarted
    std::uint64_t unpacked_ = 0;  ///< bytes since then
    std::deque<std::pair<std::uint64_t, std::uint64_t>>
        frames_;  ///< position, and place in the file
};

}  // namespace KR
