#include "host/RecordingOptions.h"

#include <charconv>
#include <limits>
#include <map>

#include "host/RunCommand.h"
#include "platform/vo/Printable.h"

namespace KR {

namespace {

/// Files of a few seconds each would not be what anybody means.
constexpr vo::Duration kMinAge = std::chrono::minutes(1);
constexpr vo::Duration kMaxAge = std::chrono::hours(24 * 366);

/// "500M".
std::uint64_t bytesFromText(const std::string& text)
{
    static const std::map<std::string, int> shifts{{"", 0}, {"K", 10}, {"M", 20}, {"G", 30}};
    std::uint64_t count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    const auto shift = shifts.find(std::string(end, text.data() + text.size()));
    if (error != std::errc() || shift == shifts.end() ||
        count > std::numeric_limits<std::uint64_t>::max() >> shift->second)
        throw UsageError("'" + vo::printable(text) + "' is no size (\"500M\", \"20G\")");
    const std::uint64_t bytes = count << shift->second;
    if (bytes < RecordRing::kMinBytes)
        throw UsageError("'" + text + "' is too small for a recording: it takes " +
                         std::to_string(RecordRing::kMinBytes >> 20) + "M at least");
    return bytes;
}

vo::Duration ageFromText(const std::string& text)
{
    const auto age = durationFromText(text);
    if (!age)
        throw UsageError("'" + vo::printable(text) + "' is no duration (\"12h\", \"30d\")");
    if (*age < kMinAge || *age > kMaxAge)
        throw UsageError("'" + text + "' is not from 1m to 366d");
    return *age;
}

}  // namespace

void addRecording(const Command& command, RecordingOptions& options)
{
    const Option record =
        command.text("--record", options.file, "FILE",
                     "Write everything that happens to FILE; compressed if it ends with .zst");
    command
        .text("--record-size", options.size, "BYTES",
              "Keep no more than this, as \"500M\", in FILE and, before it, FILE.1, FILE.2 ...")
        .needs(record);
    command.text("--record-age", options.age, "TIME", "Keep nothing that is older, as \"30d\"")
        .needs(record);
}

std::unique_ptr<RecordWriter> makeRecording(const RecordingOptions& options, bool waits)
{
    if (options.file.empty())
        return nullptr;
    RecordWriter::Options writer{options.file, NIMBRA_VERSION};
    writer.waits = waits;
    if (!options.size.empty())
        writer.limits.bytes = bytesFromText(options.size);
    if (!options.age.empty())
        writer.limits.age = ageFromText(options.age);
    return std::make_unique<RecordWriter>(vo::makeRealClock(), writer);
}

}  // namespace KR
