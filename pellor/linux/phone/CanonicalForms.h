// Texts and their canonical forms, in memory.
//
// Nearly every text is its own form, so it is stored once. Texts stand one behind the other in blocks that never move;
// a table of 32-bit numbers, two thirds full at most, says where. A text of 12 characters takes about 25 bytes in all.
//
// A reader takes no lock: whatever a table entry leads to was written before the entry. A table that became too small
// is kept as long as the object, for readers that may still look into it.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

class CanonicalForms {
 public:
  /// Longer texts and forms are not kept.
  static constexpr std::size_t LongestText = 255;

  CanonicalForms();
  ~CanonicalForms();
  CanonicalForms(const CanonicalForms&) = delete;
  CanonicalForms& operator=(const CanonicalForms&) = delete;

  /// The form of a text; absent when it is not known. The view is valid as long as this object. Any thread.
  std::optional<std::string_view> find(std::string_view text) const;

  /// Keeps the form of a text, and that the form is its own form. Whether the text is new here and was kept: it is not
  /// when one of them is too long, and after 32 MB of texts. Any thread.
  bool add(std::string_view text, std::string_view form);

  /// Keeps many at once. Any thread.
  void add(std::span<const std::pair<std::string_view, std::string_view>> textsAndForms);

  /// How many texts have a form here. Any thread.
  std::size_t size() const;

 private:
  // An entry of the table is the place of a text with some bits of its hash, by which nearly all other texts are told
  // apart without looking at them. A text stands at its place behind its own length and that of its form, which is 0
  // when the text is its own form, and the form behind it.
  static constexpr std::uint32_t PlaceBits = 25;
  static constexpr std::size_t BlockCount = 512;
  using Entry = std::atomic<std::uint32_t>;  // 0: none; written with the lock, read on any thread
  struct Table;

  const char* at(std::uint32_t place) const;
  const char* headOf(std::string_view text, const Table& table, std::uint64_t hash) const;
  static bool isKept(std::string_view text, std::string_view form);
  bool insert(std::string_view text, std::string_view form) PELLOR_REQUIRES(_mutex);
  std::uint32_t write(std::string_view text, std::string_view form) PELLOR_REQUIRES(_mutex);
  void makeRoomFor(std::size_t count) PELLOR_REQUIRES(_mutex);
  void fill(const Table& table) const PELLOR_REQUIRES(_mutex);
  char* blockOf(std::uint32_t place) PELLOR_REQUIRES(_mutex);

  /// Written with the lock; a reader looks at those alone that a table entry leads to.
  std::array<std::unique_ptr<char[]>, BlockCount> _blocks;
  std::atomic<const Table*> _table;  // written with the lock, read on any thread
  mutable Mutex _mutex;
  std::vector<std::unique_ptr<Table>> _tables PELLOR_GUARDED_BY(_mutex);  ///< the last one is in use
  std::size_t _size PELLOR_GUARDED_BY(_mutex) = 0;
  std::uint32_t _end PELLOR_GUARDED_BY(_mutex);  ///< the place behind the last text
};

/// A number made of all bytes of the text, equal on all machines of one byte order.
std::uint64_t hashOf(std::string_view text);

}  // namespace pellor
