// watch

#include <algorithm>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "cli/Change.h"
#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/Interruption.h"
#include "cli/JsonForms.h"
#include "cli/Output.h"
#include "cli/StatusText.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/NotificationCenter.h"
#include "pellor/runtime/Timer.h"
#include "pellor/runtime/WallClock.h"

namespace pellor::cli {
namespace {

std::string titleText(std::size_t page, const std::string& title) {
  return "titled " + std::to_string(page + 1) + " " + (title.empty() ? "(none)" : printable(title));
}

Json titleJson(std::size_t page, const std::string& title) {
  return {{"change", "titled"}, {"page", page}, {"title", textOrNull(title)}};
}

std::string troubleText(const std::optional<StoreTrouble>& trouble) {
  if (!trouble) return "the store works again";
  const bool isReading = trouble->kind == StoreTrouble::Kind::reading;
  return std::string(isReading ? "cannot read" : "cannot write") + " the store: " + printable(trouble->text);
}

Json troubleJson(const std::optional<StoreTrouble>& trouble) {
  if (!trouble) return {{"change", "trouble"}, {"trouble", nullptr}, {"message", nullptr}};
  const bool isReading = trouble->kind == StoreTrouble::Kind::reading;
  return {{"change", "trouble"}, {"trouble", isReading ? "reading" : "writing"}, {"message", trouble->text}};
}

/// Prints what changes, as it changes.
class Watch {
 public:
  explicit Watch(Session& session)
      : _session(session),
        _observation(session.list().observe({.changed = [this](const ListChange& batch) { changed(batch); },
                                             .trouble = [this](const auto& trouble) { troubleChanged(trouble); }})) {}

  bool couldPrintAll() const { return _couldPrintAll; }

 private:
  void changed(const ListChange& batch) {
    const bool isJson = _session.options().json;
    for (const auto& [id, page] : batch.renamed) {
      const std::string& title = batch.after.page(page).title;
      print(isJson ? textOf(titleJson(page, title)) : titleText(page, title));
    }
    for (const Change& change : changesOf(batch)) print(isJson ? textOf(jsonOf(change)) : textOf(change));
  }

  void troubleChanged(const std::optional<StoreTrouble>& trouble) {
    print(_session.options().json ? textOf(troubleJson(trouble)) : troubleText(trouble));
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
  bool _couldPrintAll = true;
  const std::shared_ptr<Observation> _observation;
};

/// Has the friends' statuses asked for anew when the answers are a day old, or as old as the service says.
class StatusUpkeep {
 public:
  explicit StatusUpkeep(Session& session)
      : _session(session),
        _timer(Timer::make(session.process().mainQueue(), [this] { check(); })),
        _pauses({.first = 60, .longest = 3600}) {
    if (!session.list().checksReachability()) return;
    if (allAreAnswered(session.list().snapshot())) {
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
    const auto oldest = earliestRequery(_session.list().snapshot());
    const double wait = oldest ? *oldest - wallClockNow() : 0;
    if (wait <= 0) return query();
    _pauses.reset();
    // The clock of the answers may be set.
    _timer->fireAt(_session.process().now() + std::min(wait, LongestWait));
  }

  // One that does not answer is asked again after a growing pause.
  void query() {
    _query = _session.list().queryAll([] {});
    _timer->fireAt(_session.process().now() + _pauses.next());
  }

  static constexpr double LongestWait = 86400;  // seconds

  Session& _session;
  const std::shared_ptr<Timer> _timer;
  std::shared_ptr<Observation> _query;
  BackOff _pauses;
};

void watch(Session& session) {
  session.list();
  session.settle();
  const Watch watch(session);
  const StatusUpkeep upkeep(session);
  const Interruption interruption([&session] { session.process().mainQueue().stop(); });
  writeError("watching");
  session.process().mainQueue().run();
  if (!watch.couldPrintAll()) throw CommandError("the output could not be written");
}

}  // namespace

void addWatchCommand(CommandSyntax program, Command& chosen) {
  program.command("watch", "Print changes of the list as they happen, until interrupted").whenGiven([&chosen] {
    // Before the process starts its threads.
    Interruption::blockSignals();
    chosen = watch;
  });
}

}  // namespace pellor::cli
