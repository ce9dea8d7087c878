// The main function of all benchmark programs.
#include <benchmark/benchmark.h>

#include "bench/Kept.h"

int main(int count, char** arguments) {
  benchmark::Initialize(&count, arguments);
  if (benchmark::ReportUnrecognizedArguments(count, arguments)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  pellor::bench::dropKept();
  benchmark::Shutdown();
}
