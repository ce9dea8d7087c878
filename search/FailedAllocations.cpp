// Gives bytes to a target (`fuzz/FuzzTarget.h`) again and again, each time with another of its allocations failing:
// what reads them and what merges lists ends with the failure alone, keeps nothing allocated, and does the same as ever
// when there is memory again.
//
//   failed_allocations TARGET FILE_OR_FOLDER
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/FuzzTarget.h"

namespace {

constexpr long Never = -1;

// Until the one that fails, and of what is allocated now.
std::atomic<long> left{Never};
std::atomic<long> living{0};
// What makes the world of a target has its memory.
bool failInReadingAlone = false;

bool fails() {
  const bool mayFail =
      left.load(std::memory_order_relaxed) != Never && (!failInReadingAlone || pellor::fuzzing::Reading::isOngoing());
  return mayFail && left.fetch_sub(1) == 0;
}

void* allocated(std::size_t size, std::size_t alignment) {
  if (fails()) return nullptr;
  void* const place = alignment == 0 ? std::malloc(std::max<std::size_t>(size, 1))
                                     : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  if (place) ++living;
  return place;
}

void* allocatedOrThrown(std::size_t size, std::size_t alignment = 0) {
  void* const place = allocated(size, alignment);
  if (!place) throw std::bad_alloc();
  return place;
}

void freed(void* place) {
  if (place) --living;
  std::free(place);
}

}  // namespace

void* operator new(std::size_t size) { return allocatedOrThrown(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocatedOrThrown(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocated(size, 0); }
void operator delete(void* place) noexcept { freed(place); }
void operator delete(void* place, std::size_t) noexcept { freed(place); }
void operator delete(void* place, std::align_val_t) noexcept { freed(place); }
void operator delete(void* place, std::size_t, std::align_val_t) noexcept { freed(place); }

namespace {

namespace fs = std::filesystem;
using pellor::fuzzing::Bytes;
using pellor::fuzzing::FuzzTarget;

/// How many allocations more there are after a run with that one failing and a run with none.
long keptAfter(const FuzzTarget& target, Bytes bytes, long number) {
  const long before = living;
  left = number;
  try {
    target.run(bytes);
  } catch (const std::bad_alloc&) {
  }
  left = Never;
  target.run(bytes);
  return living - before;
}

long allocationsOf(const FuzzTarget& target, Bytes bytes) {
  constexpr long Plenty = 1'000'000'000;
  target.run(bytes);  // what is made once, at the first use
  left = Plenty;
  target.run(bytes);
  return Plenty - left.exchange(Never);
}

/// How many failed; absent where something was kept.
std::optional<long> search(const FuzzTarget& target, Bytes bytes) {
  const long count = allocationsOf(target, bytes);
  for (long number = 0; number < count; ++number) {
    // A cache may take what the last run left out of it; it does so once.
    const long first = keptAfter(target, bytes, number);
    const long second = first > 0 ? keptAfter(target, bytes, number) : 0;
    if (second <= 0) continue;
    std::printf("FOUND %ld allocations are kept after allocation %ld failed\n", second, number);
    return std::nullopt;
  }
  return count;
}

std::vector<fs::path> filesOf(const fs::path& place) {
  if (!fs::is_directory(place)) return {place};
  std::vector<fs::path> files{fs::directory_iterator(place), {}};
  std::ranges::sort(files);
  return files;
}

}  // namespace

int main(int count, char** arguments) {
  const auto* const target = count == 3 ? pellor::fuzzing::fuzzTarget(arguments[1]) : nullptr;
  if (!target) return std::fputs("usage: failed_allocations TARGET FILE_OR_FOLDER\n", stderr), 2;
  failInReadingAlone = target->hasWorld;
  long total = 0;
  bool isSound = true;
  for (const fs::path& file : filesOf(arguments[2])) {
    std::ifstream stream(file, std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    std::printf("%s\n", file.c_str());
    std::fflush(stdout);
    const auto failed = search(*target, {reinterpret_cast<const std::uint8_t*>(content.data()), content.size()});
    total += failed.value_or(0);
    isSound = isSound && failed;
  }
  std::printf("%s: %ld allocations failed, one at a time\n", arguments[1], total);
  return isSound && total > 0 ? 0 : 1;
}
