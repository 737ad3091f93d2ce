#pragma once

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "platform/vo/Log.h"
#include "platform/vo/VirtualClock.h"
#include "record/EventCodec.h"
#include "record/RecordReader.h"
#include "record/RecordWriter.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/Testing.h"

namespace KR {

inline std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// What a reader gives, an event as its number, a gap as "gap FROM-TO", a checkpoint as "state
/// BEFORE", and what it tells.
struct ReadRecord {
    explicit ReadRecord(const std::string& path)
    {
        RecordReader reader(path, [this](const RecordProblem& each) { problems.push_back(each); });
        readFrom(reader);
    }
    void readFrom(RecordReader& reader)
    {
        while (const auto entry = reader.next()) {
            if (const auto* recorded = std::get_if<RecordedEvent>(&*entry)) {
                given.push_back((recorded->again ? "again " : "") +
                                std::to_string(recorded->event.number));
                texts.push_back(encodeEvent(recorded->event));
            } else if (const auto* gap = std::get_if<RecordGap>(&*entry)) {
                given.push_back("gap " + std::to_string(gap->from) + "-" + std::to_string(gap->to));
            } else {
                const auto& checkpoint = std::get<RecordCheckpoint>(*entry);
                given.push_back("state " + std::to_string(checkpoint.before));
            }
        }
    }
    /// The texts of what was told.
    std::vector<std::string> told() const
    {
        std::vector<std::string> result;
        for (const RecordProblem& problem : problems)
            result.push_back(std::to_string(problem.line) + ": " + problem.text);
        return result;
    }

    std::vector<std::string> given;
    std::vector<std::string> texts;
    std::vector<RecordProblem> problems;
};

/// A folder with recordings, on virtual time.
class RecordTest : public testing::Test {
protected:
    RecordWriter::Options options(const std::string& file) const
    {
        return {folder.path() + "/" + file, "1.2.3"};
    }
    /// Numbered from 1 on, a second apart.
    Event event(const std::string& text = "x")
    {
        ++number;
        return {number, start + std::chrono::seconds(number), RemarkMade{text}};
    }
    /// A whole recording of that many events; its path.
    std::string record(const std::string& file, int events, const std::string& text = "x")
    {
        number = 0;
        RecordWriter writer(clock, options(file));
        for (int i = 0; i < events; ++i) {
            writer.take(event(text));
            if (i % 10'000 == 0)
                clock->advance(RecordWriter::kDelay);
        }
        return folder.path() + "/" + file;
    }

    const vo::TimePoint start{std::chrono::hours(24 * 20000)};
    const std::shared_ptr<vo::VirtualClock> clock = std::make_shared<vo::VirtualClock>(start);
    const TemporaryFolder folder;
    vo::LogCapture log;
    std::uint64_t number = 0;
};

}  // namespace KR
