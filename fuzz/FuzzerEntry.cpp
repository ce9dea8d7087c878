// The program that searches: what libFuzzer calls. PELLOR_FUZZ_TARGET says which target.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "fuzz/FuzzTarget.h"

namespace {

const pellor::fuzzing::FuzzTarget* chosenTarget() {
  const char* name = std::getenv("PELLOR_FUZZ_TARGET");
  return pellor::fuzzing::fuzzTarget(name ? name : "");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*arguments*/) {
  if (chosenTarget()) return 0;
  std::fputs("PELLOR_FUZZ_TARGET has to be one of:", stderr);
  for (const auto& target : pellor::fuzzing::fuzzTargets())
    std::fprintf(stderr, " %.*s", static_cast<int>(target.name.size()), target.name.data());
  std::fputs("\n", stderr);
  std::exit(2);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto* const target = chosenTarget();
  target->run({data, size});
  return 0;
}
