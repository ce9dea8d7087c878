// title, purge

#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/CommandSyntax.h"
#include "cli/FriendSearch.h"
#include "cli/JsonForms.h"
#include "cli/PageGrid.h"
#include "cli/Steps.h"

namespace pellor::cli {
namespace {

void answerTitle(Session& session, const Page& page, std::uint64_t index, bool isChanged) {
  session.answerNow(
      isChanged, [&] { return pageHeading(page, index); },
      [&] {
        return Json{{"page", index}, {"title", textOrNull(page.title)}};
      });
}

std::string pageText(std::uint64_t index) { return "page " + std::to_string(index + 1); }

void setTitle(Session& session, PageId page, std::uint64_t index, const std::string& title) {
  session.requireWritableStore();
  applyAndStore(session, {RenamePage{page, title}},
                [index](const Refusal& refusal, RefusedAt) { return refusalText(refusal, pageText(index)); });
}

void title(Session& session, const std::string& pageNumber, const std::optional<std::string>& text) {
  const std::uint64_t index = pageIn(pageNumber);
  Page page = pageAt(session.list().snapshot(), index);
  if (text) {
    setTitle(session, page.id, index, *text);
    page.title = *text;
  }
  answerTitle(session, page, index, text.has_value());
}

void purge(Session& session) {
  session.requireWritableStore();
  const Snapshot list = session.list().snapshot();
  std::vector<Edit> edits;
  std::vector<std::uint64_t> pages;
  for (std::uint64_t index = 0; index + 1 < list.pageCount(); ++index) {
    if (list.page(index).friendCount > 0) continue;
    edits.emplace_back(RemovePage{list.page(index).id});
    pages.push_back(index);
  }
  const std::size_t count = edits.size();
  applyAndStore(session, edits,
                [&](const Refusal& refusal, RefusedAt) { return refusalText(refusal, pageText(pages[refusal.edit])); });
  session.answer(
      [&] {
        return session.would() + "removed " + std::to_string(count) + (count == 1 ? " empty page\n" : " empty pages\n");
      },
      [&] {
        Json object;
        object["removedPages"] = count;
        return object;
      });
}

}  // namespace

void addPageCommands(CommandSyntax program, Command& chosen) {
  const auto command = program.command("title", "Show or set the title of a page");
  command.offersDryRun();
  const auto page = std::make_shared<std::string>();
  const auto text = std::make_shared<std::optional<std::string>>();
  command.option("PAGE", *page, "The page").required();
  command.option("TEXT", *text, "The title; an empty one takes it away");
  command.whenGiven(
      [&chosen, page, text] { chosen = [page, text](Session& session) { title(session, *page, *text); }; });
  const auto purging = program.command("purge", "Remove the empty pages but the last one");
  purging.offersDryRun();
  purging.whenGiven([&chosen] { chosen = purge; });
}

}  // namespace pellor::cli
