#include "pellor/linux/contacts/internal/ContactIndexCounts.h"

namespace pellor {

std::int64_t raiseSequence(SQLiteStatements& statements) {
  statements.use("UPDATE counter SET sequence = sequence % 2147483647 + 1")->run();
  return statements.database().integer("SELECT sequence FROM counter");
}

std::int64_t sequenceOfFolder(SQLiteStatements& statements, std::int64_t folder) {
  const auto row = statements.use("SELECT sequence FROM folders WHERE folder=?");
  row->bind(1, folder);
  return row->step() ? row->integer(0) : 0;
}

std::uint64_t CardCount::read(SQLiteStatements& statements, std::int64_t folder) {
  const std::int64_t sequence = sequenceOfFolder(statements, folder);
  if (sequence == 0 || sequence != _sequence) {
    const auto row = statements.use("SELECT count(*) FROM cards WHERE folder=? AND id IS NOT NULL");
    row->bind(1, folder).step();
    _count = row->integer(0);
    _sequence = sequence;
  }
  return static_cast<std::uint64_t>(_count);
}

void CardCount::change(std::int64_t before, std::int64_t after, std::int64_t growth) {
  if (before != _sequence) return;
  _sequence = after;
  _count += growth;
}

}  // namespace pellor
