#include "record/RecordLine.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>
#include <simdjson.h>
#include <stdexcept>
#include <zlib.h>

#include "record/EventCodec.h"

namespace KR {

namespace {

using OrderedJson = nlohmann::ordered_json;

constexpr const char* kFormat = "nimbra recording";
/// The field that every line has which is no event; it says what the line is.
constexpr const char* kKind = "recording";
constexpr std::array kGapReasons{"queue", "tooBig"};
constexpr std::size_t kChecksumDigits = 8;

std::string checksumText(std::uint32_t checksum)
{
    std::array<char, kChecksumDigits + 1> digits{};
    std::snprintf(digits.data(), digits.size(), "%08x", checksum);
    return digits.data();
}

std::int64_t microsecondsSinceEpoch(vo::TimePoint time)
{
    return time.time_since_epoch().count();
}

/// An entry as an object.
struct EntryWriter {
    std::string operator()(const RecordedEvent& recorded) const
    {
        const std::string event = encodeEvent(recorded.event);
        return recorded.again ? R"({"again":true,)" + event.substr(1) : event;
    }
    std::string operator()(const RecordGap& gap) const
    {
        return OrderedJson{{kKind, "gap"},
                           {"why", kGapReasons.at(static_cast<std::size_t>(gap.why))},
                           {"events", gap.events},
                           {"from", gap.from},
                           {"to", gap.to}}
            .dump();
    }
    std::string operator()(const RecordCheckpoint& checkpoint) const
    {
        const auto state = OrderedJson::parse(checkpoint.state, nullptr, false);
        if (state.is_discarded())
            throw std::invalid_argument("the checkpoint is no JSON");
        return OrderedJson{{kKind, "checkpoint"},
                           {"before", checkpoint.before},
                           {"time", microsecondsSinceEpoch(checkpoint.time)},
                           {"state", state}}
            .dump();
    }
    std::string operator()(const RecordHeader& header) const
    {
        return OrderedJson{{kKind, "begins"},
                           {"format", kFormat},
                           {"version", header.version},
                           {"program", header.program},
                           {"time", microsecondsSinceEpoch(header.time)},
                           {"file", header.file}}
            .dump();
    }
    std::string operator()(const RecordEnd& /*end*/) const
    {
        return OrderedJson{{kKind, "ends"}}.dump();
    }
    std::string operator()(const RecordPassedOver& /*line*/) const
    {
        throw std::invalid_argument("what was passed over cannot be written");
    }
};

}  // namespace

std::uint32_t recordChecksum(std::string_view line)
{
    return static_cast<std::uint32_t>(
        crc32_z(0, reinterpret_cast<const unsigned char*>(line.data()), line.size()));
}

std::string encodeRecordLine(const RecordLine& line)
{
    const std::string entry = std::visit(EntryWriter(), line.entry);
    std::string text = R"({"n":)" + std::to_string(line.number) + R"(,"crc":")" +
                       checksumText(line.checksum) + R"(",)" + entry.substr(1);
    if (text.size() > kMaxRecordLineBytes)
        throw std::length_error("a line would be too long");
    return text;
}

class RecordLineParser::Impl {
public:
    RecordLine parse(std::string_view text)
    {
        if (wanted) {
            if (const auto line = skim(text))
                return *line;
        }
        if (parser_.parse(text.data(), text.size(), false).get(json_) != simdjson::SUCCESS)
            throw std::runtime_error("is no JSON object");
        RecordLine line;
        line.number = get<std::uint64_t>("n");
        line.checksum = checksum();
        std::string_view kind;
        if (json_[kKind].get(kind) == simdjson::SUCCESS)
            line.entry = entry(kind);
        else
            line.entry =
                RecordedEvent{decodeEvent(json_), json_["again"].error() == simdjson::SUCCESS};
        return line;
    }

    Wanted wanted;

private:
    /// What begins as encodeRecordLine() begins it, and is the write of a key that is not wanted;
    /// nothing for any other. A key whose name has an escape in it is looked at closely.
    std::optional<RecordLine> skim(std::string_view text) const
    {
        constexpr std::string_view kNumber = "{\"n\":";
        constexpr std::string_view kCrc = ",\"crc\":\"";
        constexpr std::string_view kWrite = "\",\"event\":\"key\",";
        constexpr std::string_view kKey = ",\"key\":\"";
        constexpr std::size_t kDigits = 8;
        const auto begins = [](std::string_view whole, std::string_view beginning) {
            return whole.substr(0, beginning.size()) == beginning;
        };
        if (!begins(text, kNumber) || text.back() != '}')
            return {};
        RecordLine line;
        const char* const end = text.data() + text.size();
        const auto number = std::from_chars(text.data() + kNumber.size(), end, line.number);
        std::string_view rest(number.ptr, static_cast<std::size_t>(end - number.ptr));
        if (number.ec != std::errc() || !begins(rest, kCrc) ||
            !begins(rest.substr(std::min(rest.size(), kCrc.size() + kDigits)), kWrite))
            return {};
        const char* const digits = rest.data() + kCrc.size();
        if (std::from_chars(digits, digits + kDigits, line.checksum, 16).ptr != digits + kDigits)
            return {};
        rest.remove_prefix(kCrc.size() + kDigits + kWrite.size());
        const std::size_t place = rest.find(kKey);
        if (place == std::string_view::npos)
            return {};
        rest.remove_prefix(place + kKey.size());
        const std::string_view key = rest.substr(0, rest.find('"'));
        if (key.size() == rest.size() || key.find('\\') != std::string_view::npos || wanted(key))
            return {};
        line.entry = RecordPassedOver();
        return line;
    }

    template <class T>
    T get(const char* name) const
    {
        T result;
        if (json_[name].get(result) != simdjson::SUCCESS)
            throw std::runtime_error(std::string("has no '") + name + "' that makes sense");
        return result;
    }
    std::string text(const char* name) const { return std::string(get<std::string_view>(name)); }
    vo::TimePoint time() const { return vo::TimePoint(vo::Duration(get<std::int64_t>("time"))); }

    std::uint32_t checksum() const
    {
        const auto digits = get<std::string_view>("crc");
        std::uint32_t result = 0;
        std::from_chars(digits.data(), digits.data() + digits.size(), result, 16);
        if (digits != checksumText(result))
            throw std::runtime_error("has no 'crc' that makes sense");
        return result;
    }

    RecordEntry entry(std::string_view kind) const
    {
        if (kind == "begins")
            return header();
        if (kind == "gap")
            return gap();
        if (kind == "checkpoint")
            return RecordCheckpoint{get<std::uint64_t>("before"), time(),
                                    simdjson::minify(get<simdjson::dom::element>("state"))};
        if (kind != "ends")
            throw std::runtime_error("is of a kind that is not known");
        return RecordEnd();
    }

    RecordHeader header() const
    {
        if (get<std::string_view>("format") != kFormat)
            throw std::runtime_error("is of another format");
        RecordHeader header;
        header.version = get<std::uint64_t>("version");
        if (header.version > kRecordVersion)
            return header;
        header.program = text("program");
        header.time = time();
        header.file = get<std::uint64_t>("file");
        return header;
    }

    RecordGap gap() const
    {
        const auto why = get<std::string_view>("why");
        return {why == kGapReasons[0] ? RecordGap::Why::queue : RecordGap::Why::tooBig,
                get<std::uint64_t>("events"), get<std::uint64_t>("from"), get<std::uint64_t>("to")};
    }

    simdjson::dom::parser parser_;
    simdjson::dom::object json_;  ///< of the line that is being read
};

RecordLineParser::RecordLineParser() : impl_(std::make_unique<Impl>()) {}
RecordLineParser::~RecordLineParser() = default;

void RecordLineParser::setWanted(Wanted wanted)
{
    impl_->wanted = std::move(wanted);
}

RecordLine RecordLineParser::parse(std::string_view line)
{
    static_assert(kPadding >= simdjson::SIMDJSON_PADDING);
    return impl_->parse(line);
}

}  // namespace KR
