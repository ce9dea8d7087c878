// The numbers that the contact index counts: its changes, and the cards of a source.
#pragma once

#include <cstdint>

#include "pellor/linux/sqlite/SQLiteStatements.h"

namespace pellor {

/// Raises the sequence number and gives it. Never zero, which is what a program that remembers no number has.
std::int64_t raiseSequence(SQLiteStatements& statements);
/// The sequence number of the last change of a source; zero for an unknown one.
std::int64_t sequenceOfFolder(SQLiteStatements& statements, std::int64_t folder);

/// How many cards of one source can be used. They are counted once: at one sequence number there is one count, and an
/// update of this program tells by how many cards it changes.
class CardCount {
 public:
  /// Counts where that has to be done. Throws SQLiteError.
  std::uint64_t read(SQLiteStatements& statements, std::int64_t folder);
  /// A change of the source was written, which had the sequence number `before`.
  void change(std::int64_t before, std::int64_t after, std::int64_t growth);

 private:
  std::int64_t _sequence = 0;  // zero: not counted
  std::int64_t _count = 0;
};

}  // namespace pellor
