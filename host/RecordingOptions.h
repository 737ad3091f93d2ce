#pragma once

#include <memory>
#include <string>

#include "host/CommandLine.h"
#include "platform/vo/Clock.h"
#include "record/RecordWriter.h"

namespace KR {

/// What a run is to be recorded to, as given.
struct RecordingOptions {
    std::string file;  ///< empty for no recording
    std::string size;  ///< that all files may have together; empty for no limit
    std::string age;   ///< after which what is recorded goes; empty for no limit
};

/// Adds the options --record, --record-size and --record-age.
void addRecording(const Command& command, RecordingOptions& options);

/// Begins the recording; null for none. UsageError for limits that make no sense. `waits` as in
/// RecordWriter::Options.
std::unique_ptr<RecordWriter> makeRecording(const RecordingOptions& options, bool waits);

}  // namespace KR
