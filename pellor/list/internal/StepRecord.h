// What a step did to a list, as it is kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/list/History.h"
#include "pellor/list/ListChange.h"
#include "pellor/list/ListIds.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// A friend whom a step touched, as the step found and left it; or, in a step that is only told, somebody who did not
/// become one: with the form before, and without places.
struct FriendRecord {
  FriendId id = {};                ///< in the process that made the step; number 0 in a step that was read
  Dictionary before = {};          ///< the stored form; empty: was not in the list
  Dictionary after = {};           ///< the stored form; empty: is not in the list
  std::optional<Place> from = {};  ///< in the list before the step; absent: was in no slot
  std::optional<Place> to = {};    ///< in the list after it; absent: is in no slot
  std::uint64_t lookalikes = 0;    ///< of a removed one: friends added alike who were in the list all the same
  friend bool operator==(const FriendRecord&, const FriendRecord&) = default;
};

/// A page that a step touched, or that a friend whom it touched stood or stands on.
struct PageRecord {
  PageId id = {};                        ///< in the process that made the step; number 0 in a step that was read
  std::optional<std::size_t> from = {};  ///< the index before; absent: was inserted
  std::optional<std::size_t> to = {};    ///< the index after; absent: was removed
  bool isMoved = false;                  ///< among the pages that were there before and after
  std::string titleBefore = {};
  std::string titleAfter = {};
  std::vector<std::uint32_t> fingerprints = {};  ///< of the friends on it after the step, ascending
  friend bool operator==(const PageRecord&, const PageRecord&) = default;
};

/// A plain value. What is absent where a comment does not speak of it, is empty.
struct StepRecord {
  /// How many bytes of CBOR a step takes, at most, that can be taken back.
  static constexpr std::size_t LargestSize = std::size_t{256} << 10;

  std::string id = {};       ///< of no other step
  double time = 0;           ///< wall clock, in seconds since 1970
  std::string program = {};  ///< which made it
  StepKind kind = StepKind::unknown;
  Dictionary evidence = {};  ///< of an automatic decision: records and scores that led to it
  std::vector<FriendRecord> friends = {};
  std::vector<PageRecord> pages = {};
  bool isComplete = true;    ///< false: only `summary` is left of friends, pages and evidence; it cannot be taken back
  StepSummary summary = {};  ///< of a step that is not complete; see `summaryOf`
  friend bool operator==(const StepRecord&, const StepRecord&) = default;
};

/// A friend's name; without one its first number or address; empty without any.
std::string nameToSay(const Dictionary& form);
/// As short as a summary has it.
std::string summaryName(const Dictionary& form);
StepSummary summaryOf(const StepRecord& step);
/// What is left of a step that is not kept in whole.
StepRecord summaryAlone(StepRecord step);
StepEvidence evidenceOf(const StepRecord& step);
bool canBeTakenBack(const StepRecord& step);

/// The step as it is stored, with its "id" among the keys.
Dictionary dictionaryOf(const StepRecord& step);
/// The step that is stored; absent for a value that is none. What this version does not know is left out. A step that
/// is damaged is not complete.
std::optional<StepRecord> stepRecordOf(const Value& value);

/// The forms of friends, by id: as they were before a step, as they are after it.
using FormOfFriend = std::function<Dictionary(FriendId)>;
/// The friends of the list after a step who have the GUID or one of the destinations of somebody who left it.
using FriendsSharing = std::function<std::vector<FriendId>(const Friend& gone)>;

/// Writes the friends and pages of a change into a step, all else of which is set already. Costs what changed, and the
/// number of pages; for a removal without `sharing` the number of friends.
void describe(StepRecord& step, const ListChange& change, const FormOfFriend& formBefore, const FormOfFriend& formAfter,
              const FriendsSharing& sharing = {});

/// The step as the history keeps it: its summary alone where it is too large, or nested too deep to be stored.
StepRecord storable(StepRecord step);

/// Finds the pages of a step by their indexes.
class StepPages {
 public:
  explicit StepPages(const StepRecord& step);

  /// The number of the page in the step's `pages`; absent for a page that the step does not tell of.
  std::optional<std::size_t> before(std::uint64_t index) const { return find(_before, index); }
  std::optional<std::size_t> after(std::uint64_t index) const { return find(_after, index); }
  /// Whether somebody who was and is in the list stands elsewhere.
  bool isMoved(const FriendRecord& person) const;
  /// Whether the step itself did something to the page.
  static bool isTouched(const PageRecord& page);

 private:
  using Numbers = std::vector<std::pair<std::uint64_t, std::size_t>>;  // ascending
  static std::optional<std::size_t> find(const Numbers& numbers, std::uint64_t index);

  Numbers _before;
  Numbers _after;
};

}  // namespace pellor
