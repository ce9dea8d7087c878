// backup, backup restore

#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/Output.h"
#include "pellor/linux/preferences/SharedPreferences.h"
#include "pellor/linux/preferences/StoreCopies.h"
#include "pellor/list/SyncedKeys.h"
#include "pellor/platform/Platform.h"
#include "pellor/platform/SystemNotifyBus.h"
#include "pellor/runtime/WallClock.h"

namespace pellor::cli {
namespace {

std::string lineOf(const StoreCopies::Entry& entry) {
  constexpr std::size_t nameWidth = 28, dateWidth = 18, countWidth = 16;
  const std::string name = fitted(entry.name, nameWidth);
  if (!entry.isWhole) return name + "damaged\n";
  return name + fitted(dateText(entry.date), dateWidth) + fitted(friendsText(entry.friends), countWidth) +
         entry.purpose + "\n";
}

Json jsonOf(const StoreCopies::Entry& entry) {
  return {{"name", entry.name},
          {"date", entry.isWhole ? Json(dateText(entry.date)) : Json(nullptr)},
          {"friends", entry.isWhole ? Json(entry.friends) : Json(nullptr)},
          {"purpose", entry.purpose},
          {"isWhole", entry.isWhole}};
}

void list(Session& session) {
  const auto copies = session.store().copies().list();
  const auto text = [&] {
    std::string all;
    for (const auto& entry : copies) all += lineOf(entry);
    return all.empty() ? "no copies\n" : all;
  };
  session.answer(text, [&] {
    Json entries = Json::array();
    for (const auto& entry : copies) entries.push_back(jsonOf(entry));
    return Json{{"copies", entries}};
  });
}

// What a copy takes the place of becomes one.
void keepPresent(Session& session, const StoreCopy& present) {
  if (present.values.empty() || session.isDry()) return;
  if (const auto error = session.store().copies().keepReplaced(present))
    throw CommandError("nothing was changed: " + *error);
}

PreferenceChanges changesTo(const StoreCopy& copy, const StoreCopy& present, const std::string& domain) {
  PreferenceChanges changes;
  for (const auto& [name, content] : present.values) {
    if (name.first == domain) changes[name.second] = {PreferenceChange::Kind::remove, std::nullopt, std::nullopt};
  }
  for (const auto& [name, content] : copy.values) {
    if (name.first != domain) continue;
    auto value = content.value();
    if (value) changes[name.second] = {PreferenceChange::Kind::set, std::move(value), std::nullopt};
  }
  return changes;
}

void editInto(Session& session, const StoreCopy& copy, const StoreCopy& present) {
  std::set<std::string> domains;
  for (const auto* each : {&copy, &present}) {
    for (const auto& [name, content] : each->values) domains.insert(name.first);
  }
  for (const std::string& domain : domains) {
    const auto answer = session.store().write(changesTo(copy, present, domain), {}, domain);
    if (answer.outcome != PreferenceWriteOutcome::written) {
      throw CommandError("the copy was not taken back, or not all of it: " + session.storeProblem());
    }
  }
  std::set<std::string> posted;
  for (const std::string& domain : domains) {
    for (const std::string& name : changeNames(session.store(), domain, syncedKeys()))
      if (posted.insert(name).second) platformOf(session.process()).notifyBus->post(name);
  }
}

void startAnew(Session& session, const StoreCopy* copy) {
  if (session.isDry() ? session.store().canStartAnew() : session.store().startAnew(copy)) return;
  const bool isOfAdministrator = !session.store().canStartAnew() && session.store().lastError().empty();
  throw CommandError("nothing was changed: " +
                     (isOfAdministrator ? "a store in PostgreSQL is emptied by its administrator (DROP SCHEMA pellor)"
                                        : session.storeProblem()));
}

// In a whole store a copy is an edit; one that cannot be read is put aside.
void restore(Session& session, const std::string& which) {
  const auto copy = session.store().copies().read(which);
  if (!copy) throw CommandError("there is no whole copy " + inQuotes(which) + " (pellor backup lists them)");
  const auto present = session.store().copyOfStore(wallClockNow());
  if (present) {
    session.requireWritableStore();
    keepPresent(session, *present);
    editInto(session, *copy, *present);
  } else {
    startAnew(session, &*copy);
  }
  const std::string done =
      session.would() + "restored the copy of " + dateText(copy->date) + ", " + friendsText(copy->friends);
  session.answer([&] { return done + "\n"; }, [&] { return Json{{"restored", which}, {"friends", copy->friends}}; });
}

void restoreEmpty(Session& session) {
  if (const auto present = session.store().copyOfStore(wallClockNow())) keepPresent(session, *present);
  startAnew(session, nullptr);
  const char* done = session.isDry() ? "the store would be new, and what it held put aside\n"
                                     : "the store is new; what it held was put aside\n";
  session.answer([&] { return std::string(done); }, [] { return Json{{"restored", nullptr}, {"friends", 0}}; });
}

}  // namespace

void addBackupCommands(CommandSyntax program, Command& chosen) {
  const auto command = program.command("backup", "List the copies of the store");
  command.mayHaveCommand();
  const auto which = std::make_shared<std::string>();
  const auto empty = std::make_shared<bool>(false);
  const auto restoring = command.command(
      "restore",
      "Take a copy back; what it takes the place of becomes a copy. A store that cannot be read is put aside");
  restoring.offersDryRun();
  const auto name = restoring.option("WHICH", *which, "The copy's name, as pellor backup lists it");
  const auto flag = restoring.flag("--empty", *empty, "Start anew, with an empty store; end other programs before");
  name.excludes(flag);
  command.whenGiven([&chosen, restoring, which, empty] {
    if (!restoring.isGiven()) {
      chosen = list;
    } else if (*empty) {
      chosen = restoreEmpty;
    } else if (which->empty()) {
      throw UsageError("WHICH copy, or --empty? (pellor backup lists them)");
    } else {
      chosen = [which](Session& session) { restore(session, *which); };
    }
  });
}

}  // namespace pellor::cli
