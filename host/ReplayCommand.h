#pragma once

#include "host/CommandLine.h"

namespace KR {

/// Adds the command `nimbra replay`, which lives a recorded life again: under the same rules, to
/// see whether it comes out the same, or under others, to see what they would have done. It returns
/// 0 when it is the same; 1 when it is not, or something of the recording is damaged or was left
/// out; 2 for what is no recording or cannot be read, and for rules that cannot be read.
void addReplayCommand(const Command& program);

}  // namespace KR
