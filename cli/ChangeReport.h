// Change logs in the user's words.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "cli/Place.h"
#include "cli/Session.h"
#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"

namespace pellor::cli {

/// One change of one person.
struct Change {
  std::string kind;  ///< "added", "updated", "deleted" or "moved"
  std::shared_ptr<PLPerson> person;
  std::optional<Place>
      place;                  ///< where the friend is; of a deleted one where it was; absent for one that is in no slot
  std::optional<Place> from;  ///< where a moved friend was
};

/// "moved 1:3 to 2:1 Ann Lee", without line end.
std::string textOf(const Change& change);
Json jsonOf(const Change& change);

/// Knows where friends are and were.
class ChangeReport {
 public:
  /// Begins with the places of now. The manager has to outlive the report.
  explicit ChangeReport(const PLFriendsManager& manager);

  /// The changes of a log, in its order, those of one person in the order of `Change::kind` above, and from then on the
  /// places of now.
  std::vector<Change> changesOf(const PLChangeLog& log);

 private:
  using Places = std::unordered_map<std::shared_ptr<PLPerson>, Place>;
  Places placesNow() const;
  Change changeOf(std::string kind, const std::shared_ptr<PLPerson>& person, const Places& now) const;

  const PLFriendsManager& _manager;
  Places _places;
};

}  // namespace pellor::cli
