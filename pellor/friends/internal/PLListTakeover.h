// Takes a stored list over into the live one.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLStepClient.h"
#include "pellor/friends/internal/PLBaseline.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "pellor/friends/internal/PLThreeWayMerge.h"
#include "pellor/runtime/LongArray.h"
#include "pellor/runtime/Process.h"

namespace pellor {

class AddressBook;
class PLPersonSequence;
class PLDirtyChunks;
class PLExceptions;
class PLPersonForm;

/// What a merge has to know of the groups and of the list's limits.
struct PLOwnPages {
  PLPageOrigins pagesInBase;  ///< for each group its page of the baseline; empty: group i is page i
  std::uint64_t groupCount = 0;
  std::map<std::uint64_t, std::string> titleEdits;  ///< by group: titles that were set here and are not stored
  std::uint64_t groupSize = 1;
  std::uint64_t maxGroupCount = 1;
};

/// Brings a stored list into the live one, and the own edits that are not stored onto it. Its invariant: after a
/// takeover exactly those friends are marked whose form differs from the stored one. Main queue.
class PLListTakeover {
 public:
  /// `addEmptyGroup` appends a group, and slots for it, to the list. The exceptions outlive this object.
  PLListTakeover(Process& process, PLSlotList& list, PLPersonSequence& sourcedPersons, const PLExceptions& exceptions,
                 std::function<void()> addEmptyGroup);

  // --- Own edits ---

  /// A friend is taken out by clean-up, not by a person: a merge leaves that out.
  void noteAutomaticRemoval(const std::shared_ptr<PLPerson>& person);
  /// The list of that version (PLSlotList::version) is the baseline now.
  void forgetRemovalsUntil(std::uint64_t listVersion);

  /// Our edits since `base` made on top of `theirs`. Takes the dirty flags of all friends that changed since then:
  /// `takeOver` sets them again where the result differs from theirs. The list has to be published.
  PLMergeResult merge(const PLBaseline& base, const PLStoredList& theirs, const PLOwnPages& pages,
                      const PLDirtyChunks& touched);

  /// `theirs` as steps are judged by it, with the friends that the list has, or had since `base`. The list has to be
  /// published.
  PLStoredPages pagesOf(const PLBaseline& base, const PLStoredList& theirs, const PLOwnPages& pages,
                        const PLDirtyChunks& touched) const;

  /// What lies between `base` and `theirs`. The list has to be published.
  PLForeignEdit foreignEdit(const PLBaseline& base, const PLStoredList& theirs, const PLOwnPages& pages,
                            const PLDirtyChunks& touched) const;

  // --- Loads ---

  struct Result {
    std::shared_ptr<PLBaseline> base;  ///< the baseline from now on, without the groups' numbers
    PLChangeLog changes;               ///< what the load changed, by person
  };
  /// Makes the list what `theirs` says or, where there is one, what `merged` made of it: friends keep their objects,
  /// looked-up persons become friends, displaced friends leave. `known` is the baseline until now. Records nothing.
  Result _updateFriends(const PLStoredList& theirs, const PLMergeResult* merged, const PLBaseline& known,
                        AddressBook* addressBook, std::uint64_t groupSize);

 private:
  struct Merge;
  struct Removal {
    std::shared_ptr<PLPerson> person;
    std::uint64_t listVersion;
  };

  // Own edits
  PLMergeInput mergeInput(const PLBaseline& base, const PLStoredList& theirs, const PLOwnPages& pages,
                          const PLDirtyChunks& touched) const;
  std::vector<std::uint64_t> automaticRemovals(const PLBaseline& base) const;
  PLFriendOrigins friendsInBase(const PLStoredVersion& base, const PLSlotSnapshot& list) const;
  std::map<std::uint64_t, std::vector<Slot>> personsOfTheirs(const PLStoredList& theirs,
                                                             const PLMergeResult& merged) const;
  void describeTheirs(PLBaseline& base, const PLStoredList& theirs, const PLMergeResult& merged,
                      std::vector<PLStoredVersion::ChunkState> chunks, std::uint64_t changes) const;
  void markDifferences(const PLStoredList& theirs, const PLMergeResult& merged);

  // Loads
  void mergeChunks(Merge& merge, const LongArray& stored, const PLStoredVersion& known);
  bool mergeChunk(Merge& merge, const ArrayChunk& chunk, std::uint64_t first);
  bool viewChunk(Merge& merge, const ArrayChunk& chunk);
  bool mergeElement(Merge& merge, std::uint64_t index);
  bool isLeftOut(PLPersonForm& form) const;
  bool appendStoredFriend(Merge& merge, std::uint64_t index);
  bool placeStoredFriend(Merge& merge, std::uint64_t index);
  void markLaterSlots(Merge& merge, const PLPerson& person, std::uint64_t index);
  std::shared_ptr<PLPerson> bringMovedFriend(Merge& merge, std::uint64_t index);
  std::shared_ptr<PLPerson> takeSourcedPerson(const Merge& merge, const PLPerson& stored);
  void trimSlots(Merge& merge, std::uint64_t storedCount, std::uint64_t groupSize);
  void reportDisplaced(Merge& merge);

  Process& _process;
  PLSlotList& _friendList;
  PLPersonSequence& _sourcedPersons;
  const PLExceptions& _exceptions;
  const std::function<void()> _addEmptyGroup;
  std::vector<Removal> _removals;  // automatic ones since the baseline
};

}  // namespace pellor
