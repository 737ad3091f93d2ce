#include "record/RecordFile.h"

#include <boost/algorithm/string/predicate.hpp>
#include <fcntl.h>
#include <stdexcept>
#include <zstd.h>

namespace KR {

namespace {

/// What a compressor's function returned, unless it is an error.
std::size_t checkedZstd(std::size_t result)
{
    if (ZSTD_isError(result) != 0)
        throw std::runtime_error(ZSTD_getErrorName(result));
    return result;
}

}  // namespace

/// Makes a frame of a block.
class RecordFile::Compressor {
public:
    Compressor() : context_(ZSTD_createCCtx(), ZSTD_freeCCtx)
    {
        checkedZstd(ZSTD_CCtx_setParameter(context_.get(), ZSTD_c_checksumFlag, 1));
    }

    std::string compressed(const std::string& block)
    {
        std::string frame(ZSTD_compressBound(block.size()), '\0');
        frame.resize(checkedZstd(ZSTD_compress2(context_.get(), frame.data(), frame.size(),
                                                block.data(), block.size())));
        return frame;
    }

private:
    const std::unique_ptr<ZSTD_CCtx, std::size_t (*)(ZSTD_CCtx*)> context_;
};

RecordFile::RecordFile(const std::string& path, const RecordHeader& header)
    : path_(path),
      beginning_(header.time),
      compressor_(isCompressed(path) ? std::make_unique<Compressor>() : nullptr),
      file_(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644), path)
{
    add(header);
}

RecordFile::~RecordFile() = default;

bool RecordFile::isCompressed(const std::string& path)
{
    return boost::algorithm::ends_with(path, ".zst");
}

void RecordFile::add(RecordEntry entry)
{
    const std::string line = encodeRecordLine({lines_ + 1, checksum_, std::move(entry)});
    ++lines_;
    checksum_ = recordChecksum(line);
    block_ += line;
    block_ += '\n';
    if (block_.size() >= kBlockBytes)
        flush();
}

void RecordFile::flush()
{
    if (block_.empty())
        return;
    write(compressor_ ? compressor_->compressed(block_) : block_);
    block_.clear();
}

void RecordFile::end()
{
    add(RecordEnd());
    flush();
}

void RecordFile::write(const std::string& block)
{
    std::size_t written = 0;
    while (written < block.size()) {
        const auto size = ::write(file_.get(), block.data() + written, block.size() - written);
        if (size < 0 && errno == EINTR)
            continue;
        if (size < 0) {
            const int error = errno;
            cut(block, written);
            throw std::system_error(error, std::generic_category(), path_);
        }
        written += static_cast<std::size_t>(size);
    }
    bytes_ += written;
}

void RecordFile::cut(const std::string& block, std::size_t written)
{
    if (!compressor_ && written > 0)
        bytes_ += block.rfind('\n', written - 1) + 1;  // 0 where there is none
    // What is no file, like a pipe, cannot be cut; the reader finds the torn line then.
    static_cast<void>(::ftruncate(file_.get(), static_cast<off_t>(bytes_)));
}

}  // namespace KR
