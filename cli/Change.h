// Changes of the list in the user's words.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Place.h"
#include "cli/Session.h"
#include "pellor/list/ListChange.h"

namespace pellor::cli {

/// One change of one friend.
struct Change {
  std::string kind;  ///< "added", "updated", "deleted" or "moved"
  std::shared_ptr<const Friend> person;
  /// Where the friend is; of a deleted one where it was; absent for one that is in no slot.
  std::optional<Place> place;
  std::optional<Place> from;  ///< where a moved friend was
};

/// "moved 1:3 to 2:1 Ann Lee", without line end.
std::string textOf(const Change& change);
Json jsonOf(const Change& change);

/// Whether it is told that a friend is linked with another contact, and looks as before. Where the list comes from
/// another device its contacts have other records for the same people, and each arrival updates these.
enum class LinkChanges { untold, told };

/// The changes of friends in a batch: who left, who moved, alone or with their page, who came, and who is shown
/// otherwise.
std::vector<Change> changesOf(const ListChange& batch, LinkChanges links = LinkChanges::untold);

}  // namespace pellor::cli
