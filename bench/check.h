// A benchmark of an operation that failed measures nothing: its figure is withheld and the
// program ends with an error. One thread.
#pragma once

#include <benchmark/benchmark.h>

namespace bench {

// Withholds the figure of this run unless `fulfilled`.
void check(benchmark::State& state, bool fulfilled, const char* what);

bool anyCheckFailed();

}  // namespace bench
