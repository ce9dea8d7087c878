#include "pellor/friends/internal/PLFriendsManagerParts.h"

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/platform/Platform.h"

namespace pellor {

PLFriendsManagerParts::PLFriendsManagerParts(Process& process, const std::string& domain, PLListWriter& listWriter,
                                             const Handlers& handlers)
    : writer(listWriter),
      listReader(process, domain),
      ownPosts(process, settings),
      pages(process, friendList, settings, handlers.groupListChanged),
      titles(process, pages),
      lookUp(*platformOf(process).addressBook, friendList.people()),
      exceptions(friendList, listWriter.attachedArrays()),
      takeover(process, friendList, lookUp.sourcedPersons(), exceptions, [this] { pages._addEmptyGroup(); }),
      contactsRefresh(process, domain, friendList, listWriter, exceptions, {handlers.refreshIsDue, handlers.decidedOn}),
      favorites(process, handlers.favoritesAreDue),
      steps(listWriter),
      storeFailures(process, listWriter, handlers.storeFailures),
      counters(process, domain, pages) {
  listReader.attach(std::string(PLFriendListExceptionsKey));
}

PLOwnPages PLFriendsManagerParts::ownPages(const PLBaseline& base) const {
  PLOwnPages own;
  own.pagesInBase = pages.pagesInBase(base);
  own.groupCount = pages.count();
  own.groupSize = settings.maxFriendsPerGroup();
  own.maxGroupCount = settings.maxFriendGroups();
  own.titleEdits = titles.edits();
  return own;
}

void PLFriendsManagerParts::_removeGroupAtIndex(std::uint64_t index) {
  titles.noteRemoval();
  pages._removeGroupAtIndex(index);
}

void PLFriendsManagerParts::save() {
  publishList();
  steps.areUntold() ? writer.saveSteps() : writer.save();
}

void PLFriendsManagerParts::publishList() { writer.publish(friendList, pages.pageNumbers()); }

void PLFriendsManagerParts::markLayoutChanged() {
  publishList();
  const auto base = writer.base();
  const bool haveTitlesMoved = titles.takeMoved();
  writer.markLayout(haveTitlesMoved && base ? std::optional(titles.storedAfter(*base)) : std::nullopt);
}

// Titles that were set go out with what was edited beside them.
void PLFriendsManagerParts::markNewTitles() {
  const auto base = writer.base();
  const bool areTitlesWritten = !writer.needsTitlesSync() && !writer.isSaving();
  if (base && titles.haveNew(areTitlesWritten ? base.get() : nullptr)) {
    writer.markTitles(titles.storedAfter(*base));
  }
}

// What others stored is shown to the client with the objects that its friends have here, then what nobody tells of.
void PLFriendsManagerParts::judgeSteps(const PLStoredList& stored) {
  if (!writer.base()) return;
  writer.acceptIfWritten(stored);
  auto base = writer.base();
  const bool isForeign = steps.isForeign(*base, stored);
  const bool areToBeJudged = steps.areToBeJudged(*base, stored);
  if (!isForeign && !areToBeJudged) return;
  publishList();
  if (!comesFrom(*base, stored)) base = std::make_shared<const PLBaseline>();
  const PLOwnPages own = ownPages(*base);
  if (areToBeJudged) {
    PLStoredPages theirs = takeover.pagesOf(*base, stored, own, writer.dirtyChunks());
    theirs.storedStep = writer.storedStep();
    theirs.hasNewHistory = !writer.attachedArrays().areHistoriesUntouched(stored.attached);
    for (const auto& [key, array] : stored.attached) theirs.attached.emplace(key, array.elements);
    for (const auto& [key, array] : writer.attachedArrays().known()) theirs.attachedBefore.emplace(key, array.elements);
    steps.judge(theirs);
  }
  if (isForeign) steps.tellForeignEdit(takeover.foreignEdit(*base, stored, own, writer.dirtyChunks()));
}

}  // namespace pellor
