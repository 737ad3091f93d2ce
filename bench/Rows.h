#pragma once

#include "bench/Harness.h"

namespace bench {

// The families of workloads; each adds its rows. docs/performance.md describes them.

void measureOneChange(Table& table);
void measureWideKeys(Table& table);
void measureHandOver(Table& table);
void measureBursts(Table& table);
void measureLoading(Table& table);
void measureTime(Table& table);
void measureHost(Table& table);
void measureRecord(Table& table);

}  // namespace bench
