#pragma once

#include <string>

#include "record/Replay.h"
#include "record/Rerun.h"

namespace KR {

// What came out of living a recorded life again, for people and as one JSON object on a line. Both
// end with a line end.

std::string replayText(const ReplayResult& result);
std::string replayJson(const ReplayResult& result);
std::string comparisonText(const Rerun::Result& result);
std::string comparisonJson(const Rerun::Result& result);

}  // namespace KR
