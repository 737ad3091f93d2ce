#pragma once

#include <functional>
#include <string>

#include "timeline/TimelineRenderer.h"

namespace KR {

/// The timeline for machines: one JSON object a line, each with "time" (UTC) and "event". Every
/// event is there, the summary last; only that everything stopped is not, as its ends are.
class JsonTimeline : public TimelineRenderer {
public:
    using Sink = std::function<void(const std::string& line)>;

    /// `sink` receives each line, its end included.
    explicit JsonTimeline(Sink sink) : sink_(std::move(sink)) {}

    void begin(const RunHeader& header) override;
    void event(const Event& event) override;
    void end(const RunSummary& summary) override;

private:
    Sink sink_;
};

}  // namespace KR
