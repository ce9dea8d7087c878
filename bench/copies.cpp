// Keeping a copy of the store, and reading the newest one.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "bench/Kept.h"
#include "bench/StoredList.h"
#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/preferences/internal/SQLitePreferences.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/WallClock.h"

namespace pellor::bench {
namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& file) {
  std::string content(fs::file_size(file), '\0');
  std::ifstream(file, std::ios::binary).read(content.data(), static_cast<std::streamsize>(content.size()));
  return content;
}

/// The store of a list, with a copy of it.
class CopiedStore {
 public:
  explicit CopiedStore(std::size_t size) : _list(size) { keep(); }

  /// What a running program does some seconds after its last write.
  void keep() {
    const auto copy = _store.copyOfStore(wallClockNow());
    require(copy && !_store.copies().keep(*copy), "a copy that can be kept");
  }
  std::uint64_t friendsOfNewest() const { return _store.copies().newest()->friends; }

  fs::path newestFile() const { return folder() / "newest.copy"; }
  fs::path otherFile() const { return _list.home() / "other.copy"; }

 private:
  fs::path folder() const { return _list.folders().data / StoreCopies::FolderName; }

  StoredList _list;
  SQLitePreferences _store{_list.folders().data, _list.folders().config / "defaults.json",
                           LogHandle("bench", "store", nullptr)};
};

CopiedStore& storeFor(const benchmark::State& state) {
  return kept<CopiedStore>(static_cast<std::size_t>(state.range(0)));
}

void keepCopy(benchmark::State& state) {
  CopiedStore& store = storeFor(state);
  for (auto _ : state) store.keep();
}
BENCHMARK(keepCopy)->Arg(240)->Arg(24'000)->UseRealTime();

// The yardstick: as many bytes, written beside and renamed.
void replaceFile(benchmark::State& state) {
  const CopiedStore& store = storeFor(state);
  const std::string content = contentOf(store.newestFile());
  require(!content.empty(), "a copy with content");
  for (auto _ : state) require(!replacePrivateFile(store.otherFile(), content), "a file that can be written");
}
BENCHMARK(replaceFile)->Arg(240)->Arg(24'000)->UseRealTime();

void readNewestCopy(benchmark::State& state) {
  const CopiedStore& store = storeFor(state);
  for (auto _ : state) {
    require(store.friendsOfNewest() == static_cast<std::uint64_t>(state.range(0)), "a copy of the whole list");
  }
}
BENCHMARK(readNewestCopy)->Arg(240)->Arg(24'000)->UseRealTime();

// The yardstick: the bytes alone.
void readFile(benchmark::State& state) {
  const CopiedStore& store = storeFor(state);
  for (auto _ : state) require(!contentOf(store.newestFile()).empty(), "a copy with content");
}
BENCHMARK(readFile)->Arg(240)->Arg(24'000)->UseRealTime();

}  // namespace
}  // namespace pellor::bench
