// What an import does to a list.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/list/Edit.h"
#include "pellor/list/ListIds.h"
#include "pellor/list/Snapshot.h"

namespace pellor {

/// What becomes of an exported list.
///
/// A friend of it is a friend already who has its GUID, or the GUID of the contact that fits it here; else who has its
/// name and one of its numbers and addresses; else, where one of both has no name, who has one of these. Another
/// contact of this machine is somebody else, and so is another name: families share their lines.
enum class ImportMode {
  /// Those who are no friends yet come into the list: each to its slot where that is free, else to the first free one;
  /// missing pages are made. A page that held nobody and has no title gets the exported one. Who is a friend already
  /// stays as it is.
  add,
  /// The list becomes what the exported one says: pages, titles, places, and what friends carry. Who is a friend
  /// already stays the same one; all others leave the list.
  replace,
};

/// What an import does, or why it does nothing.
struct ImportAnswer {
  using Person = std::shared_ptr<const Friend>;
  struct Placed {
    Person person;
    Place place;
  };
  struct Moved {
    Person person;
    Place from;
    Place to;
  };
  struct Title {
    std::uint64_t page = 0;
    std::string title;
  };

  std::vector<Placed> added = {};    ///< friends who come, and where; who is only planned has an id of nobody
  std::vector<Placed> known = {};    ///< friends who were in the list already, and where they were
  std::vector<Placed> removed = {};  ///< friends who leave, and where they were
  std::vector<Moved> moved = {};
  std::vector<Person> updated = {};  ///< friends who carry something else now, as they are then
  std::vector<Title> titled = {};    ///< pages that get another title, or lose theirs with the page
  /// Left out: they have neither a number nor an address, without which nobody stays in a list.
  std::vector<Person> unreachable = {};
  /// Left out: the contact that fits them is that of a friend before them, and both would be one.
  std::vector<Person> repeated = {};
  std::vector<Person> withoutRoom = {};  ///< if there are any, nobody comes

  /// Why nothing is done: storeNotReadable, storeNotWritable; noRoom, see `withoutRoom`; isTwice; and of a replacement
  /// pageTooSmall, tooManyPages, addsNoPages.
  std::optional<Refusal> refusal = {};
  /// The friend of the exported list who is there twice, or has no slot here, and the place there.
  std::optional<Placed> cause = {};
  std::optional<Place> twin = {};  ///< where somebody who is there twice stands first
  bool isUndoable = true;          ///< false: it is too large to be taken back

  bool changesNothing() const {
    return added.empty() && removed.empty() && moved.empty() && updated.empty() && titled.empty();
  }
  explicit operator bool() const { return !refusal; }
};

}  // namespace pellor
