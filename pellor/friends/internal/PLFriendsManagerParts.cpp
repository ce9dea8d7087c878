#include "pellor/friends/internal/PLFriendsManagerParts.h"

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/internal/PLListWriter.h"

namespace pellor {
namespace {

// Between the attempts to read a store that fails.
constexpr BackOff::Pauses LoadRetryPauses{.first = 0.1, .longest = 60};
// An edit that was overtaken is made again at once and then, while others keep writing, after random parts of these.
constexpr BackOff::Pauses OvertakenPauses{.first = 0.005, .longest = 0.25};

}  // namespace

PLFriendsManagerParts::PLFriendsManagerParts(Process& process, const std::string& domain, PLListWriter& writer,
                                             const Handlers& handlers)
    : listReader(process, domain),
      ownPosts(process, settings),
      pages(process, friendList, settings, handlers.groupListChanged),
      titles(process, pages),
      _identifiersToPersonMap(friendList.people()),
      exceptions(friendList, writer.attachedArrays()),
      takeover(process, friendList, sourcedPersons, exceptions, [this] { pages._addEmptyGroup(); }),
      contactsRefresh(process, domain, friendList, writer, exceptions, {handlers.refreshIsDue, handlers.decidedOn}),
      favorites(process, handlers.favoritesAreDue),
      steps(writer),
      loadRetry(process.mainQueue(), LoadRetryPauses),
      overtakenRetry(process.mainQueue(), OvertakenPauses, &process.scheduler()) {
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

}  // namespace pellor
