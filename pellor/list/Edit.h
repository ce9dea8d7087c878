// Edits of a friend list, as data: one shape for doing them, for a dry run, for the history and for other languages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "pellor/list/ListIds.h"
#include "pellor/list/Snapshot.h"
#include "pellor/runtime/Value.h"

namespace pellor {

// Edits that are done together are a step: all of them or none. A place, or the index of a page, is meant as the list
// is when the edit's turn comes, after the edits before it. Behind the last page that holds a friend comes an empty one
// by itself, as the list's settings say. A page that lost a friend by `RemoveFriend` and holds nobody at the end of the
// step goes then, unless it is the only one.

/// Adds somebody who is no friend yet. A friend whom a step removed less than 30 days ago gets back the reply
/// preference, the chosen number, where the friend still has it, and the app's entries. It is the same one if the
/// contact is, or, without a contact then and now, if the name and one of the numbers and addresses are.
struct AddFriend {
  std::string contactGUID =
      {};  ///< of the contact; empty: `destination` alone, of nobody's contact or of one that has it
  std::string destination = {};  ///< a number or an address, however it is written
  std::optional<Place> to = {};  ///< an empty slot; absent: the first one
};

/// The friend leaves the list.
struct RemoveFriend {
  FriendId id;
};

/// The friend takes another slot; who stands there takes the slot that is left.
struct MoveFriend {
  FriendId id;
  Place to;
};

/// Which of the friend's numbers and addresses is shown and written to; absent: the card says.
struct ChooseNumber {
  FriendId id;
  std::optional<std::string> number = {};
};

/// The app's preference for replies; absent: none.
struct SetReplyAs {
  FriendId id;
  std::optional<std::string> replyAs = {};
};

/// One of the app's own entries; absent: it is taken away.
struct SetMetadata {
  FriendId id;
  std::string key;
  std::optional<Value> value = {};
};

/// Gives a page its title; an empty one takes it away.
struct RenamePage {
  PageId page;
  std::string title;
};

/// The friends take the slots of the page in this order, from wherever they stand; number 0 leaves a slot empty, and so
/// are slots behind the last one named. Who stands on the page has to be named: nobody leaves the list by this.
struct FillPage {
  PageId page;
  std::vector<FriendId> friends;
};

/// Puts an empty page before the one with that index, at most the number of pages.
struct InsertPage {
  std::uint64_t index = 0;
  std::string title = {};
};

/// The page gets another index; the pages between shift.
struct MovePage {
  PageId page;
  std::uint64_t index = 0;
};

/// The page goes, and the friends on it leave the list. The only page stays, empty and without a title.
struct RemovePage {
  PageId page;
};

using Edit = std::variant<AddFriend, RemoveFriend, MoveFriend, ChooseNumber, SetReplyAs, SetMetadata, RenamePage,
                          FillPage, InsertPage, MovePage, RemovePage>;

/// Why a step is not done.
enum class RefusalReason {
  noRoom,               ///< every slot of every page is taken, and the list may have no more pages
  isFriend,             ///< the contact, or the number or address, is a friend's already
  noDestination,        ///< there is no number or address: the contact has none, or the friend not the one chosen
  notFound,             ///< there is no such contact, friend or page
  noSuchPlace,          ///< there is no such slot or index, or the slot is taken where an empty one is wanted
  contactsNotReadable,  ///< nobody can tell who the contact is
  storeNotReadable,     ///< the list has not been read yet
  storeNotWritable,     ///< the store may only be read
  overtaken,            ///< another program changed what the edit is about before it was stored
  notUndoable,          ///< the step cannot be taken back
  abandoned,            ///< the program ended before the step was stored
  isTwice,              ///< somebody stands in an exported list twice
  pageTooSmall,         ///< a page has fewer slots than an exported one
  tooManyPages,         ///< the list may not have so many pages
  addsNoPages,          ///< there are fewer pages, and the list makes none by itself
};

/// In English, to be shown to the user behind the name of what was to be done: "there is no room".
std::string_view textOf(RefusalReason reason);

/// Why none of a step was done.
struct Refusal {
  RefusalReason reason = RefusalReason::notFound;
  std::size_t edit = 0;                   ///< the index of the edit that cannot be done
  std::optional<FriendId> inTheWay = {};  ///< who is that friend already, stands in the slot, or would lose it
  friend bool operator==(const Refusal&, const Refusal&) = default;
};

/// Told once what became of a step, on the main queue and never inside a call: absent when it is stored, else why it is
/// not: another program was first and it was taken back, or the program ends.
using StoredHandler = std::function<void(const std::optional<Refusal>& refusal)>;

/// What came of one edit.
struct EditResult {
  FriendId id = {};                 ///< the friend whom it was about, also a new one; number 0: none
  std::optional<Place> place = {};  ///< where that friend stands at the end of the step; absent: in no slot
  PageId page = {};                 ///< the page that it was about, also a new one; number 0: none
  bool restored = false;            ///< of `AddFriend`: gets back what he had when he was removed
  friend bool operator==(const EditResult&, const EditResult&) = default;
};

/// The answer to a step.
struct StepAnswer {
  std::vector<EditResult> results = {};  ///< one for each edit; none where the step was refused
  std::optional<Refusal> refusal = {};
  Snapshot after = {};     ///< the list as the step leaves it; without a page where it was refused
  bool isUndoable = true;  ///< false: it is too large to be kept in whole, and can never be taken back

  explicit operator bool() const { return !refusal; }
};

}  // namespace pellor
