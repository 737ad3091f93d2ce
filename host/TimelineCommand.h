#pragma once

#include <memory>
#include <string>

#include "host/CommandLine.h"
#include "host/Output.h"
#include "timeline/TimelineRenderer.h"

namespace KR {

/// Adds the command `nimbra timeline`, which shows a recorded run as `nimbra run` has shown it. It
/// returns 0 when everything is there; 1 when something of the recording is damaged or was left
/// out, which goes to stderr; 2 for what is no recording or cannot be read.
void addTimelineCommand(const Command& program);

/// Adds the options --from and --until, of a RunWindow.
void addWindow(const Command& command, std::string& from, std::string& until);

/// The looks of a run, for people or as JSON. The output outlives it.
std::unique_ptr<TimelineRenderer> makeRenderer(Output& output, bool json);

}  // namespace KR
