// One version of a friend list, as plain values.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/list/ListIds.h"
#include "pellor/list/Reachability.h"
#include "pellor/runtime/Value.h"

namespace pellor {

struct SnapshotContent;

/// A friend as it was when the snapshot was taken.
struct Friend {
  FriendId id;
  std::string name;      ///< the friend's own; empty without one: then `destination` is what to show
  std::string monogram;  ///< one to three letters; empty where the name has no initials
  /// 0 to 11: which of twelve colours stands for the friend. It follows from the friend's numbers and addresses, is the
  /// same in all processes that begin with the same list, and does not change while the process has the friend.
  std::uint8_t color = 0;
  /// The number or address that is shown and written to, in canonical form: what the user chose, else what the card
  /// prefers, else its first number, else its first address. Empty where the friend has none.
  std::string destination;
  std::vector<std::string> destinations;    ///< all, in canonical form and ascending
  std::optional<std::string> chosenNumber;  ///< the user's choice, also while the friend does not have it
  std::optional<std::string> replyAs;       ///< the app's preference for replies; the library does not interpret it
  Dictionary metadata;                      ///< the app's own entries
  std::optional<std::string> contactGUID;   ///< of the contact that the friend is linked with
  /// Whether the friend can receive messages, and since when that is known: as this program had heard when the version
  /// was made.
  Reachability reachability = {};
  friend bool operator==(const Friend&, const Friend&) = default;
};

/// A page as it was when the snapshot was taken.
struct Page {
  PageId id;
  std::string title;                                   ///< empty without one
  std::vector<std::shared_ptr<const Friend>> friends;  ///< null: empty; all pages of a list have as many
  std::size_t friendCount = 0;                         ///< how many stand on it
};

/// One immutable version of the whole list. A copy costs nothing; versions share what did not change between them. Any
/// thread.
class Snapshot {
 public:
  /// A list without a page, as one is whose store was not read yet.
  Snapshot();

  std::size_t pageCount() const;
  /// The page with that index, less than `pageCount`.
  const Page& page(std::size_t index) const;
  /// How many friends there are on all pages.
  std::size_t friendCount() const;
  /// All of them, in the order of pages and slots.
  std::vector<std::shared_ptr<const Friend>> friends() const;
  /// The index of the first page with an empty slot; `pageCount` when all are taken.
  std::size_t firstPageWithRoom() const;

  /// Null for an empty slot and for a place that there is not.
  std::shared_ptr<const Friend> friendAt(Place place) const;
  /// Null for a friend that is in no slot of this version.
  std::shared_ptr<const Friend> friendWith(FriendId id) const;
  std::optional<Place> placeOf(FriendId id) const;
  /// Absent for a page that this version has not.
  std::optional<std::size_t> indexOf(PageId id) const;

  /// Whether both are the very same version.
  friend bool operator==(const Snapshot&, const Snapshot&) = default;

 private:
  friend class SnapshotComparison;
  friend class SnapshotEdit;
  explicit Snapshot(std::shared_ptr<const SnapshotContent> content);

  std::shared_ptr<const SnapshotContent> _content;  // never null
};

}  // namespace pellor
