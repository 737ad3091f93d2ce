#include "record/RecordBytes.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <vector>
#include <zstd.h>

namespace KR {

namespace {

constexpr std::string_view kFrameMagic = "\x28\xb5\x2f\xfd";
constexpr std::size_t kChunkBytes = std::size_t{256} * 1024;

}  // namespace

class RecordBytes::Unpacker {
public:
    Unpacker() : context(ZSTD_createDCtx(), ZSTD_freeDCtx), chunk(kChunkBytes) {}

    void restart()
    {
        ZSTD_DCtx_reset(context.get(), ZSTD_reset_session_only);
        input = {};
        isInFrame = false;
    }

    const std::unique_ptr<ZSTD_DCtx, std::size_t (*)(ZSTD_DCtx*)> context;
    std::vector<char> chunk;
    ZSTD_inBuffer input{};
    bool isInFrame = false;
    std::uint64_t frame = 0;  ///< where the frame begins that is being unpacked
};

RecordBytes::RecordBytes(const std::string& path, Tell tell)
    : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC), path), tell_(std::move(tell))
{
    std::array<char, kFrameMagic.size()> first{};
    const auto size = ::pread(file_.get(), first.data(), first.size(), 0);
    if (size < 0)
        failWithErrno(path);
    if (std::string_view(first.data(), static_cast<std::size_t>(size)) == kFrameMagic)
        unpacker_ = std::make_unique<Unpacker>();
}

RecordBytes::~RecordBytes() = default;

std::uint64_t RecordBytes::fileSize() const
{
    struct stat status {};
    return ::fstat(file_.get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

std::uint64_t RecordBytes::placeOf(std::uint64_t position)
{
    if (!isCompressed())
        return begin_ + position;
    while (frames_.size() > 1 && frames_[1].first <= position)
        frames_.pop_front();
    return frames_.empty() ? 0 : frames_.front().second;
}

void RecordBytes::restart(std::uint64_t byte)
{
    next_ = begin_ = byte;
    unpacked_ = 0;
    frames_.clear();
    if (unpacker_)
        unpacker_->restart();
}

/// What cannot be read is told, and the end.
std::size_t RecordBytes::readFile(char* to, std::size_t size, std::uint64_t at) const
{
    ssize_t got = 0;
    do
        got = ::pread(file_.get(), to, size, static_cast<off_t>(at));
    while (got < 0 && errno == EINTR);
    if (got < 0)
        tell_(at, "it cannot be read on: " + std::system_category().message(errno));
    return got < 0 ? 0 : static_cast<std::size_t>(got);
}

RecordBytes::Piece RecordBytes::read(char* to, std::size_t size)
{
    if (unpacker_)
        return unpack(to, size);
    const std::size_t got = readFile(to, size, next_);
    next_ += got;
    return {got};
}

bool RecordBytes::refill()
{
    Unpacker& unpacker = *unpacker_;
    const std::size_t got = readFile(unpacker.chunk.data(), unpacker.chunk.size(), next_);
    next_ += got;
    unpacker.input = {unpacker.chunk.data(), got, 0};
    return got > 0;
}

RecordBytes::Piece RecordBytes::unpack(char* to, std::size_t size)
{
    Unpacker& unpacker = *unpacker_;
    ZSTD_outBuffer output{to, size, 0};
    while (output.pos == 0) {
        // A full output may have left bytes inside.
        if (unpacker.input.pos == unpacker.input.size && !refill()) {
            const bool isTorn = std::exchange(unpacker.isInFrame, false);
            if (isTorn)
                tell_(unpacker.frame, "the last frame is cut off");
            return {0, isTorn};
        }
        if (!unpacker.isInFrame) {
            unpacker.frame = next_ - (unpacker.input.size - unpacker.input.pos);
            frames_.emplace_back(unpacked_, unpacker.frame);
        }
        const std::size_t result =
            ZSTD_decompressStream(unpacker.context.get(), &output, &unpacker.input);
        if (ZSTD_isError(result) != 0)
            return passOverFrame(ZSTD_getErrorName(result));
        unpacker.isInFrame = result != 0;
    }
    unpacked_ += output.pos;
    return {output.pos};
}

RecordBytes::Piece RecordBytes::passOverFrame(const std::string& problem)
{
    const std::uint64_t frame = unpacker_->frame;
    tell_(frame, "the frame that begins here is damaged: " + problem);
    next_ = findFrame(frame + 1);
    unpacker_->restart();
    return {0, true};
}

std::uint64_t RecordBytes::findFrame(std::uint64_t byte) const
{
    std::vector<char> chunk(kChunkBytes);
    // Chunks overlap, so that none is missed between two.
    while (const std::size_t got = readFile(chunk.data(), chunk.size(), byte)) {
        const std::size_t found = std::string_view(chunk.data(), got).find(kFrameMagic);
        if (found != std::string_view::npos)
            return byte + found;
        if (got < kFrameMagic.size())
            break;
        byte += got - (kFrameMagic.size() - 1);
    }
    return fileSize();
}

}  // namespace KR
