// What a process knows of the list in the store, so that neither a save nor a load has to look at all of it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <vector>

#include "pellor/friends/internal/PLSlotList.h"
#include "pellor/runtime/LongArray.h"

namespace pellor {

/// One version of the stored list, and beside it the version of the slots that it was written from or that it was
/// merged into. Immutable once it is shared; any thread.
///
/// A chunk of the slots and a chunk of the array have the same size, and knowledge is about whole chunks. It holds for
/// persons as they were when so many changes were counted (PLPersonChanges::changes): a person with a later change is
/// another one.
class PLStoredVersion {
 public:
  enum class ChunkState : std::uint8_t {
    other,    ///< some element is not what the person in its slot would be stored as
    written,  ///< each element is the stored form of the person in its slot
    atRest,   ///< and to merge it again would change nothing
  };

  /// Nothing is known.
  PLStoredVersion() = default;
  /// What a merge of `array` into the list found: `list` is the list after it, `changes` the count before it.
  PLStoredVersion(LongArray array, std::vector<ChunkState> chunks, PLSlotSnapshot list, std::uint64_t changes);
  /// What such a merge found of a list into which edits of this process were merged on the way: in the chunks that
  /// `displaced` names the elements of `array` have these persons, null for a friend that the merged list has not.
  PLStoredVersion(LongArray array, std::vector<ChunkState> chunks, PLSlotSnapshot list, std::uint64_t changes,
                  std::map<std::uint64_t, std::vector<Slot>> displaced);

  /// The list to be written for `list`: chunks of which `known` has what would be written are taken over from there,
  /// and for the others every element of which that holds, also from another place; only the rest is made. `changes`
  /// was counted before. `touched`, if not null, are the only chunks in which persons changed since `known` and up to
  /// that count.
  static PLStoredVersion made(const PLStoredVersion& known, PLSlotSnapshot list, std::uint64_t changes,
                              const std::vector<std::uint64_t>* touched = nullptr);

  /// After `array` was written: has `stored`, as the store has it now, in place of the chunks that were made, as far as
  /// the store made them from these. Of others nothing is known then.
  void takeOver(const LongArray& stored);

  const LongArray& array() const { return _array; }
  /// How many changes of persons had been counted.
  std::uint64_t changes() const { return _changes; }

  /// How many chunks there are, and the persons of one of them: the i-th stands for the i-th element.
  std::uint64_t chunkCount() const { return array().chunks().size(); }
  std::span<const Slot> chunk(std::uint64_t index) const;
  /// Which chunks of `list` are not known to have the persons that they have here, in place.
  std::vector<bool> differingChunks(const PLSlotSnapshot& list) const;

  /// Tells of a merge of another version which of its chunks it may pass over, being where it was when it began.
  class UnchangedChunks {
   public:
    UnchangedChunks(const PLStoredVersion& known, const LongArray& array, const PLSlotSnapshot& list,
                    std::uint64_t changes);
    /// Whether merging the chunk of that index would change nothing, provided that the merge has neither moved nor
    /// changed anybody there.
    bool operator()(std::size_t index) const;

   private:
    bool holdsTheSame(std::size_t index) const;
    bool isMergedChunk(std::size_t index) const;

    const PLStoredVersion& _known;
    const LongArray& _array;
    const PLSlotSnapshot& _list;
    const std::uint64_t _changes;
    std::vector<bool> _differs;
  };

 private:
  class StoredForms;

  bool holdsFor(std::span<const Slot> chunk) const;
  bool holdsFor(const Slot& slot) const;

  LongArray _array;
  std::vector<ChunkState> _chunks;
  PLSlotSnapshot _slots;
  std::map<std::uint64_t, std::vector<Slot>> _displaced;  // in place of chunks of the slots
  std::uint64_t _changes = 0;
};

}  // namespace pellor
