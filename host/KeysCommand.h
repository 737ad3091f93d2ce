#pragma once

#include "host/CommandLine.h"

namespace KR {

/// Adds the command `nimbra keys`: writes the memory keys that this program's modules publish or
/// read to stdout, in ascending order: each with what it can hold and what it holds while there is
/// nothing to tell, and indented below it its meaning, who publishes and who reads it. With --json,
/// one object a line. "rules" are among the readers of the keys that the conditions of a
/// configuration file read.
void addKeysCommand(const Command& program);

}  // namespace KR
