// title, purge

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "cli/CommandLine.h"
#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/PageGrid.h"

namespace pellor::cli {
namespace {

void answerTitle(Session& session, const PLFriendGroup& page, std::uint64_t index) {
  const std::string title = page.title().value_or("");
  session.answer([&] { return pageHeading(page, index); },
                 [&] {
                   return Json{{"page", index}, {"title", title.empty() ? Json(nullptr) : Json(title)}};
                 });
}

void setTitle(Session& session, PLFriendGroup& page, const std::string& title) {
  session.requireWritableStore();
  page.setTitle(title);
  session.manager().saveFriendGroupTitles();
  session.commit();
}

void title(Session& session, const std::string& pageNumber, const std::optional<std::string>& text) {
  const std::uint64_t index = pageIn(pageNumber);
  const auto page = pageAt(session.manager(), index);
  if (text) setTitle(session, *page, *text);
  answerTitle(session, *page, index);
}

void purge(Session& session) {
  session.requireWritableStore();
  PLFriendsManager& manager = session.manager();
  const std::size_t before = manager.friendGroups().size();
  manager.purgeEmptyFriendGroups();
  // Afterwards pages of other programs may have come.
  const std::size_t count = before - manager.friendGroups().size();
  session.commit();
  session.answer([&] { return "removed " + std::to_string(count) + (count == 1 ? " empty page\n" : " empty pages\n"); },
                 [&] {
                   Json object;
                   object["removedPages"] = count;
                   return object;
                 });
}

}  // namespace

void addPageCommands(CLI::App& program, Command& chosen) {
  auto* command = program.add_subcommand("title", "Show or set the title of a page");
  const auto page = std::make_shared<std::string>();
  const auto text = std::make_shared<std::optional<std::string>>();
  command->add_option("PAGE", *page, "The page")->required();
  command->add_option("TEXT", *text, "The title; an empty one takes it away");
  command->callback(
      [&chosen, page, text] { chosen = [page, text](Session& session) { title(session, *page, *text); }; });
  program.add_subcommand("purge", "Remove the empty pages but the last one")->callback([&chosen] { chosen = purge; });
}

}  // namespace pellor::cli
