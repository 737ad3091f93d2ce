#pragma once

#include "host/CommandLine.h"

namespace KR {

/// Adds the command `nimbra why`: tells from a recording, or from a scenario that it plays, why a
/// rule acted or did not, what became of an activity, or what a key held. It returns 0 when there
/// is an answer, and 1 where there is no such rule, activity or key.
void addWhyCommand(const Command& program);

}  // namespace KR
