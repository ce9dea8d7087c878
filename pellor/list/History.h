// What was done to a friend list, and what comes of taking it back.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/list/Edit.h"
#include "pellor/list/ListIds.h"
#include "pellor/platform/PersonalTraces.h"

namespace pellor {

/// What a step did, for the one line that a user sees of it. Each has one text in the store.
enum class StepKind {
  // a person's
  added,
  removed,
  moved,
  changedFriend,
  renamedPage,
  changedPages,
  several,
  imported,
  // automatic decisions
  relinked,
  unlinked,
  deduplicated,
  cleanedUp,
  placedElsewhere,  ///< by a merge
  notImported,
  notPushed,
  // others
  anotherProgram,  ///< found in the stored list, made by a program that keeps no history; a person's
  unknown,         ///< of a later version of the library
};

bool isAutomatic(StepKind kind);
/// Whether a step of that kind only tells of something that nobody can take back.
bool isOnlyTold(StepKind kind);

/// What an automatic decision rests on, as far as that is of any meaning for its kind.
struct StepEvidence {
  /// How a contact was found for a friend.
  enum class FoundBy {
    nothing,  ///< none was searched
    name,     ///< among those with the friend's name
    destinations,
  };

  std::string contactBefore = {};  ///< the GUID with which the friend was linked; empty: with none
  std::string contactAfter = {};   ///< the GUID with which it is; of two friends with one contact: that contact's
  FoundBy foundBy = FoundBy::nothing;
  double score = 0;  ///< how well it fits: the part of the friend's numbers and addresses that it has, and more
  std::uint64_t candidates = 0;  ///< of how many contacts it fits best
  std::string stays = {};        ///< of two friends with one contact: the name of who stays
  friend bool operator==(const StepEvidence&, const StepEvidence&) = default;
};

/// A step in a few words.
struct StepSummary {
  static constexpr std::size_t MostNames = 20;
  static constexpr std::size_t LongestName = 100;  ///< in bytes

  std::uint64_t added = 0;
  std::uint64_t removed = 0;
  std::uint64_t moved = 0;              ///< neither added nor removed
  std::uint64_t changed = 0;            ///< neither added nor removed; somebody who moved as well counts here too
  std::uint64_t pages = 0;              ///< inserted, removed, moved and renamed ones
  std::vector<std::string> names = {};  ///< of friends, the first ones; a number or address for who has no name
  friend bool operator==(const StepSummary&, const StepSummary&) = default;
};

/// A step of the history.
struct HistoryStep {
  std::string id;       ///< of no other step, in all programs
  double time = 0;      ///< in seconds since 1970-01-01T00:00:00Z
  std::string program;  ///< which made it; empty where it is not known
  StepKind kind = StepKind::unknown;
  StepSummary summary = {};
  bool isTakenBack = false;    ///< and was not done again since
  bool isUndoable = true;      ///< false for one that was too large to be kept in whole, forgot somebody, or only tells
  StepEvidence evidence = {};  ///< of an automatic decision
};

/// What somebody changed since a step, so that taking the step back leaves it as it is.
struct KeptChange {
  enum class Part {
    membership,  ///< of a friend in the list
    place,       ///< of a friend, or of a page among the others
    replyAs,
    chosenNumber,
    metadata,  ///< one of the app's entries
    card,      ///< the link with the contact, and what the friend has of it
    title,
    page,   ///< that there is the page, or is not
    other,  ///< an entry that a later version of the library made
  };

  Part part = Part::place;
  FriendId id = {};       ///< number 0: of a page; or of a friend who is not in the list any more
  PageId page = {};       ///< number 0: of a friend; or of a page that is not in the list any more
  std::string name = {};  ///< of the friend: its name, else a number or an address; or the page's title
  std::string key = {};   ///< of metadata, or of an entry of a later version
};

/// The answer to taking a step back.
struct UndoAnswer {
  std::optional<HistoryStep> step = {};  ///< that was taken back; absent: there is none
  std::vector<KeptChange> kept = {};     ///< stays as it is
  std::optional<Refusal> refusal =
      {};  ///< why nothing was done: notUndoable, noRoom, notFound, storeNotReadable, storeNotWritable

  explicit operator bool() const { return !refusal; }
};

/// The answer to forgetting somebody. By these a program finds what else it keeps of the person, when the step is
/// stored.
struct ForgetAnswer {
  std::vector<std::string> guids = {};         ///< of the contacts that the person was linked with, ascending
  std::vector<std::string> destinations = {};  ///< the person's numbers and addresses, in canonical form and ascending
  std::vector<std::string> names = {};         ///< ascending
  std::vector<FriendId> friends = {};          ///< who leave the list
  bool isInHistory = false;                    ///< or among those who were removed and would get back what they had
  std::vector<std::string> found = {};         ///< of a plan: where else the platform keeps something, for the user
  std::optional<Refusal> refusal = {};         ///< why nothing was done: notFound, storeNotReadable, storeNotWritable

  explicit operator bool() const { return !refusal; }
};

/// What became of forgetting somebody.
struct Forgotten {
  std::optional<Refusal> refusal = {};   ///< nothing was forgotten: notFound where nothing is kept, abandoned
  std::vector<std::string> erased = {};  ///< where the platform kept something beside the list, for the user
  std::vector<KeptTrace> kept = {};      ///< what is still there
};

/// Told once how forgetting somebody ended, on the main queue and never inside a call.
using ForgottenHandler = std::function<void(const Forgotten&)>;

}  // namespace pellor
