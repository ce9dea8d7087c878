// watch

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "cli/ChangeReport.h"
#include "cli/CommandLine.h"
#include "cli/FriendSearch.h"
#include "cli/Interruption.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/StatusText.h"
#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Timer.h"
#include "pellor/runtime/WallClock.h"

namespace pellor::cli {
namespace {

/// What a user is shown of friends, to tell updates that are seen from others: where the list comes from another device
/// its contacts have other records for the same people, and each arrival updates these.
class ShownFriends {
 public:
  explicit ShownFriends(const PLFriendsManager& manager) {
    for (const FriendAt& each : allFriends(manager)) _shown.emplace(each.person, hashOf(*each.person));
  }

  /// Whether the person is shown as another one than when this was asked last; also for a person who is new.
  bool hasChanged(const std::shared_ptr<PLPerson>& person) {
    const std::size_t shown = hashOf(*person);
    const auto [known, isNew] = _shown.try_emplace(person, shown);
    return isNew || std::exchange(known->second, shown) != shown;
  }
  void forget(const std::shared_ptr<PLPerson>& person) { _shown.erase(person); }

 private:
  static std::size_t hashOf(const PLPerson& person) {
    Json json = jsonOf(person);
    json.erase("guid");
    return std::hash<std::string>()(json.dump(-1, ' ', false, Json::error_handler_t::replace));
  }

  std::unordered_map<std::shared_ptr<PLPerson>, std::size_t> _shown;
};

/// Prints what is posted, as it is posted.
class Watch {
 public:
  explicit Watch(Session& session) : _session(session), _report(session.manager()), _shown(session.manager()) {
    for (const auto& page : session.manager().friendGroups()) _titles[page.get()] = page->title().value_or("");
    NotificationCenter& center = session.process().notificationCenter();
    _observations = {center.addObserver(std::string(PLFriendsManagerChangedNotification),
                                        [this](const Notification& notification) { changed(notification); }),
                     center.addObserver(std::string(PLFriendGroupTitleChangedNotification),
                                        [this](const Notification& notification) { titleChanged(notification); })};
  }

  bool couldPrintAll() const { return _couldPrintAll; }

 private:
  void changed(const Notification& notification) {
    const auto* log = notification.userInfoAs<PLChangeLog>();
    if (!log) return;
    for (const Change& change : _report.changesOf(*log)) {
      const bool isSeen = _shown.hasChanged(change.person) || change.kind != "updated";
      if (change.kind == "deleted") _shown.forget(change.person);
      if (!isSeen) continue;
      print(_session.options().json ? textOf(jsonOf(change)) : textOf(change));
    }
  }

  void titleChanged(const Notification& notification) {
    const auto page = notification.objectAs<PLFriendGroup>();
    const auto& pages = _session.manager().friendGroups();
    const auto found = std::ranges::find(pages, page);
    if (!page || found == pages.end()) return;
    const std::string title = page->title().value_or("");
    // To the user a title that was absent and is empty now is none as before.
    if (std::exchange(_titles[page.get()], title) == title) return;
    const auto index = static_cast<std::uint64_t>(found - pages.begin());
    const Json json = {{"change", "titled"}, {"page", index}, {"title", title.empty() ? Json(nullptr) : Json(title)}};
    print(_session.options().json
              ? textOf(json)
              : "titled " + std::to_string(index + 1) + " " + (title.empty() ? "(none)" : printable(title)));
  }

  // Each line by itself, so that a reader of a pipe sees it at once.
  void print(const std::string& line) {
    if (!_couldPrintAll) return;
    const OutputResult written = writeOutput(line + "\n");
    if (written == OutputResult::whole) return;
    _couldPrintAll = written == OutputResult::readerGone;
    _session.process().mainQueue().stop();
  }

  Session& _session;
  ChangeReport _report;
  ShownFriends _shown;
  std::vector<std::shared_ptr<Observation>> _observations;
  std::map<const PLFriendGroup*, std::string> _titles;  ///< as the user knows them
  bool _couldPrintAll = true;
};

/// Has the friends' statuses asked for anew when the answers are a day old, or as old as the service says.
class StatusUpkeep {
 public:
  explicit StatusUpkeep(Session& session)
      : _session(session),
        _timer(Timer::make(session.process().mainQueue(), [this] { check(); })),
        _pauses({.first = 60, .longest = 3600}) {
    if (!areStatusesChecked(session.manager())) return;
    if (allAreAnswered(session.manager())) {
      check();
    } else {
      query();
    }
  }
  ~StatusUpkeep() { _timer->cancel(); }
  StatusUpkeep(const StatusUpkeep&) = delete;
  StatusUpkeep& operator=(const StatusUpkeep&) = delete;

 private:
  void check() {
    const auto oldest = earliestRequery(_session.manager());
    const double wait = oldest ? *oldest - wallClockNow() : 0;
    if (wait <= 0) return query();
    _pauses.reset();
    // The clock of the answers may be set.
    _timer->fireAt(_session.process().now() + std::min(wait, LongestWait));
  }

  // One that does not answer is asked again after a growing pause.
  void query() {
    _session.manager().refreshDestinationStatuses();
    _timer->fireAt(_session.process().now() + _pauses.next());
  }

  static constexpr double LongestWait = 86400;  // seconds

  Session& _session;
  const std::shared_ptr<Timer> _timer;
  BackOff _pauses;
};

void watch(Session& session) {
  session.manager();
  session.settle();
  const Watch watch(session);
  const StatusUpkeep upkeep(session);
  const Interruption interruption([&session] { session.process().mainQueue().stop(); });
  writeError("watching");
  session.process().mainQueue().run();
  if (!watch.couldPrintAll()) throw CommandError("the output could not be written");
}

}  // namespace

void addWatchCommand(CLI::App& program, Command& chosen) {
  program.add_subcommand("watch", "Print changes of the list as they happen, until interrupted")->callback([&chosen] {
    // Before the process starts its threads.
    Interruption::blockSignals();
    chosen = watch;
  });
}

}  // namespace pellor::cli
