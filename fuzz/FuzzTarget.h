// What is given bytes from anywhere, and has to hold for all of them.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>
#include <string_view>

namespace pellor::fuzzing {

using Bytes = std::span<const std::uint8_t>;

/// A part of the program that reads what others wrote. Its corpus is `fuzz/corpus/<name>`, its words
/// `fuzz/dictionaries/<name>.dict`.
struct FuzzTarget {
  std::string_view name;
  /// Ends the program where something does not hold.
  void (*run)(Bytes);
  /// Whether a run makes a world, in which a `Reading` is what reads the bytes.
  bool hasWorld = false;
};

/// While there is one, bytes are read: a search that lets allocations fail lets them fail in it alone.
class Reading {
 public:
  Reading() { ++_count; }
  ~Reading() { --_count; }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;
  static bool isOngoing() { return _count > 0; }

 private:
  static inline std::atomic<int> _count = 0;
};

/// All that this build has.
std::span<const FuzzTarget> fuzzTargets();
/// Null for a name that is none of theirs.
const FuzzTarget* fuzzTarget(std::string_view name);

inline std::string_view textOf(Bytes bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

// Values and lists
void fuzzValue(Bytes bytes);
void fuzzArchive(Bytes bytes);
void fuzzStoredList(Bytes bytes);
void fuzzHistory(Bytes bytes);
void fuzzMerge(Bytes bytes);
// The user's own files
void fuzzCards(Bytes bytes);
void fuzzDestination(Bytes bytes);
void fuzzConfiguration(Bytes bytes);
void fuzzExportedList(Bytes bytes);
void fuzzArguments(Bytes bytes);
// What programs and devices tell one another
void fuzzBusFile(Bytes bytes);
void fuzzDeviceMessage(Bytes bytes);

}  // namespace pellor::fuzzing
