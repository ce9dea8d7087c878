// A stored history, read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "pellor/list/internal/HistoryEntry.h"
#include "pellor/runtime/LongArray.h"

namespace pellor {

/// Reads the elements of a history once: of a later version of it those that came since. Its invariant: there is one
/// element here for each that was stored when it was read last, in the same place. Main queue.
class DecodedHistory {
 public:
  using Entry = std::shared_ptr<const HistoryEntry>;

  struct Element {
    Entry entry;  ///< null: this version cannot read it
    std::int64_t moment = 0;
  };

  /// Has the elements of `stored`.
  void read(const LongArray& stored);
  /// A step of this process. It is had as it is for the element that tells the same of it, be it of another moment: the
  /// ids of friends and pages are not stored.
  void noteOwn(HistoryEntry entry);
  /// No step counts as one of this process.
  void forgetOwn() { _own.clear(); }

  std::size_t size() const;
  const Element& at(std::size_t index) const;
  /// Those that can be read, the oldest first.
  const std::vector<Entry>& entries() const { return _entries; }

 private:
  struct Own {
    Entry entry;
    Dictionary element;  ///< what was made of it
  };
  struct Chunk {
    std::shared_ptr<const ArrayChunk> source;
    std::vector<Element> elements;
  };

  Chunk decoded(const std::shared_ptr<const ArrayChunk>& source) const;
  const Element* known(const ArrayChunk& source, std::size_t index) const;
  Element decoded(const Value& element) const;
  Entry ownOf(const Value& element) const;
  void putInOrder();
  void dropOwnThatLeft();

  std::vector<Chunk> _chunks;
  std::vector<Entry> _entries;      // by moment
  std::map<std::string, Own> _own;  // by the id of the step
};

}  // namespace pellor
