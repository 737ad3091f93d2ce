#pragma once

#include "host/TimelineEvent.h"

namespace KR {

/// For a robot that is brought up to be asked something, whose timeline nobody looks at.
class NoTimeline : public TimelineRenderer {
public:
    void begin(const RunHeader&) override {}
    void event(const TimelineEvent&) override {}
    void end(const RunSummary&) override {}
};

}  // namespace KR
