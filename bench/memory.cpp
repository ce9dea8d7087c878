// Memory of a loaded list: every allocation of the process is counted, whichever library makes it.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <optional>

#include "bench/Kept.h"
#include "bench/StoredList.h"

namespace {

std::atomic<std::size_t> liveBytes{0}, peakBytes{0};

void* counted(void* block) {
  if (!block) return block;
  const std::size_t size = ::malloc_usable_size(block);
  const std::size_t now = liveBytes.fetch_add(size, std::memory_order_relaxed) + size;
  std::size_t peak = peakBytes.load(std::memory_order_relaxed);
  while (now > peak && !peakBytes.compare_exchange_weak(peak, now, std::memory_order_relaxed)) {
  }
  return block;
}

void uncount(void* block) {
  if (block) liveBytes.fetch_sub(::malloc_usable_size(block), std::memory_order_relaxed);
}

}  // namespace

// These take the place of the C library's, which the others then are built on.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the C library's names
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
// NOLINTEND(bugprone-reserved-identifier)

void* malloc(std::size_t size) { return counted(__libc_malloc(size)); }
void* calloc(std::size_t count, std::size_t size) { return counted(__libc_calloc(count, size)); }
void* memalign(std::size_t alignment, std::size_t size) { return counted(__libc_memalign(alignment, size)); }
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block ? 0 : ENOMEM;
}
void* realloc(void* block, std::size_t size) {
  uncount(block);
  return counted(__libc_realloc(block, size));
}
void free(void* block) {
  uncount(block);
  __libc_free(block);
}
}

namespace pellor::bench {
namespace {

// The time says nothing here.
void memory(benchmark::State& state) {
  auto& list = kept<StoredList>(static_cast<std::size_t>(state.range(0)));
  const auto friends = static_cast<double>(list.size());
  for (auto _ : state) {
    const std::size_t before = liveBytes;
    peakBytes = before;
    ListProcess process(list.folders());
    const auto scope = process.enter();
    process.load();
    process.settle();
    const std::size_t peak = peakBytes;
    const std::size_t steady = liveBytes;
    state.counters["steady"] = static_cast<double>(steady - before) / friends;
    state.counters["peak"] = static_cast<double>(peak - before) / friends;
  }
}
BENCHMARK(memory)->Arg(240)->Arg(24'000)->Arg(240'000)->Iterations(1);

}  // namespace
}  // namespace pellor::bench
