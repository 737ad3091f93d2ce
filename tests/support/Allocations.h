#pragma once

#include <cstddef>

/// How often this thread has asked for memory, in test programs that Allocations.cpp is part of.
std::size_t allocationsOfThisThread();
