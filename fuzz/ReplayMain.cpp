// The program that replays: gives files, and the files of folders, to a target. A finding ends it.
//
//   fuzz_replay TARGET FILE_OR_FOLDER...
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/FuzzTarget.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesOf(const std::vector<std::string>& arguments) {
  std::vector<fs::path> files;
  for (const std::string& argument : arguments) {
    if (!fs::is_directory(argument)) files.emplace_back(argument);
    if (!fs::is_directory(argument)) continue;
    for (const auto& entry : fs::directory_iterator(argument)) files.push_back(entry.path());
  }
  std::ranges::sort(files);
  return files;
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> words(arguments + 1, arguments + count);
  const auto* const target = words.empty() ? nullptr : pellor::fuzzing::fuzzTarget(words.front());
  if (!target) {
    std::fputs("usage: fuzz_replay TARGET FILE_OR_FOLDER...\nTARGET is one of:", stderr);
    for (const auto& each : pellor::fuzzing::fuzzTargets())
      std::fprintf(stderr, " %.*s", static_cast<int>(each.name.size()), each.name.data());
    std::fputs("\n", stderr);
    return 2;
  }
  const auto files = filesOf({words.begin() + 1, words.end()});
  for (const fs::path& file : files) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) return std::fprintf(stderr, "cannot read %s\n", file.c_str()), 1;
    const std::string content{std::istreambuf_iterator<char>(stream), {}};
    std::printf("%s\n", file.c_str());
    std::fflush(stdout);
    target->run({reinterpret_cast<const std::uint8_t*>(content.data()), content.size()});
  }
  std::printf("%zu files\n", files.size());
  return files.empty() ? 1 : 0;
}
