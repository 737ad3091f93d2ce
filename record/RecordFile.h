#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/packages/FileDescriptor.h"
#include "record/RecordLine.h"

namespace KR {

/// One file of a recording while it is written: plain lines, or frames of zstd that each hold whole
/// lines and can be read alone. Whatever happens, what it holds is whole lines: what could be
/// written of one only in part is cut off again.
///
/// Used by one thread at a time. What cannot be written is a std::system_error; the file takes
/// nothing more then.
class RecordFile {
public:
    /// Lines that are gathered are written when they are as much as this.
    static constexpr std::size_t kBlockBytes = std::size_t{256} * 1024;

    /// Makes the file, in place of one that is there. The header is gathered.
    RecordFile(const std::string& path, const RecordHeader& header);
    ~RecordFile();
    RecordFile(const RecordFile&) = delete;
    RecordFile& operator=(const RecordFile&) = delete;

    /// Gathers a line; nothing is when encodeRecordLine() throws.
    void add(RecordEntry entry);
    /// Has the system take what is gathered.
    void flush();
    /// Adds the last line and flushes.
    void end();

    /// What it takes on the disk, without what is gathered.
    std::uint64_t bytes() const { return bytes_; }
    vo::TimePoint beginning() const { return beginning_; }

    /// Whether a file of that name is compressed: it ends with ".zst".
    static bool isCompressed(const std::string& path);

private:
    class Compressor;
    void write(const std::string& block);
    void cut(const std::string& block, std::size_t written);

    // Constant after construction.
    const std::string path_;
    const vo::TimePoint beginning_;
    const std::unique_ptr<Compressor> compressor_;  ///< null for a plain file

    FileDescriptor file_;
    std::uint64_t lines_ = 0;
    std::uint32_t checksum_ = 0;  ///< of the last line
    std::string block_;           ///< what is gathered
    std::uint64_t bytes_ = 0;
};

}  // namespace KR
