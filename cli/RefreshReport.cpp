#include "cli/RefreshReport.h"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "cli/ListPersons.h"
#include "pellor/friends/PLChangeLog.h"
#include "pellor/runtime/NotificationCenter.h"

namespace pellor::cli {
namespace {

constexpr std::array<std::pair<std::string_view, const char*>, 4> Kinds = {{
    {PLFriendsManagerPersonAdded, "added"},
    {PLFriendsManagerPersonUpdated, "updated"},
    {PLFriendsManagerPersonDeleted, "deleted"},
    {PLFriendsManagerPersonMoved, "moved"},
}};

/// Makes changes of change logs: knows where friends are and were.
class ChangeReport {
 public:
  /// Begins with the places of now. The manager has to outlive the report.
  explicit ChangeReport(const PLFriendsManager& manager);

  /// The changes of a log, in its order, those of one person in the order of `Kinds`, and from then on the places of
  /// now.
  std::vector<Change> changesOf(const PLChangeLog& log);

 private:
  using Places = std::unordered_map<std::shared_ptr<PLPerson>, Place>;
  Places placesNow() const;
  Change changeOf(std::string kind, const std::shared_ptr<PLPerson>& person, const Places& now) const;

  const PLFriendsManager& _manager;
  Places _places;
};

ChangeReport::ChangeReport(const PLFriendsManager& manager) : _manager(manager), _places(placesNow()) {}

ChangeReport::Places ChangeReport::placesNow() const {
  Places places;
  for (const PersonAt& found : allPersons(_manager)) places.emplace(found.person, found.place);
  return places;
}

std::vector<Change> ChangeReport::changesOf(const PLChangeLog& log) {
  Places now = placesNow();
  std::vector<Change> changes;
  for (const auto& [person, types] : log.entries()) {
    for (const auto& [type, kind] : Kinds) {
      if (types.contains(type)) changes.push_back(changeOf(kind, person, now));
    }
  }
  _places = std::move(now);
  return changes;
}

Change ChangeReport::changeOf(std::string kind, const std::shared_ptr<PLPerson>& person, const Places& now) const {
  const auto placeIn = [&](const Places& places) -> std::optional<Place> {
    const auto known = places.find(person);
    return known == places.end() ? std::nullopt : std::optional(known->second);
  };
  Change change{std::move(kind), std::make_shared<const Friend>(friendOf(*person)), placeIn(now), std::nullopt};
  if (change.kind == "moved") change.from = placeIn(_places);
  if (change.kind == "deleted") change.place = placeIn(_places);
  return change;
}

// The first log of a list that was just loaded has every friend as added.
void takeChanges(const PLChangeLog& log, ChangeReport& report, bool isFirst, std::vector<Change>& changes) {
  for (Change& change : report.changesOf(log)) {
    if (!isFirst || change.kind != "added") changes.push_back(std::move(change));
  }
}

}  // namespace

std::vector<Change> refreshedFriends(Session& session) {
  std::vector<PLChangeLog> logs;
  const auto observation = session.process().notificationCenter().addObserver(
      std::string(PLFriendsManagerChangedNotification), [&](const Notification& notification) {
        if (const auto* log = notification.userInfoAs<PLChangeLog>()) logs.push_back(*log);
      });
  ChangeReport report(managerOf(session));
  session.list().refresh();
  session.commit();
  std::vector<Change> changes;
  for (std::size_t index = 0; index < logs.size(); ++index) takeChanges(logs[index], report, index == 0, changes);
  return changes;
}

}  // namespace pellor::cli
