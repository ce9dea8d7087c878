#include "pellor/app/UserFriendList.h"

#include <cerrno>

#include <string>
#include <utility>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/linux/LinuxPlatform.h"
#include "pellor/linux/files/UserFolders.h"
#include "pellor/linux/services/UserServices.h"
#include "pellor/list/SyncedKeys.h"

namespace pellor {
namespace {

LinuxPlatformOptions platformOptions(const FriendListOptions& options, const Configuration& configuration) {
  LinuxPlatformOptions result = servicesOptions(configuration, {{{*configuration.text("domain"), syncedKeys()}},
                                                                std::string(PLRefreshAgainstContactsOnInitEnabledKey)});
  result.indexProgress = options.progress;
  return result;
}

}  // namespace

/// In the order in which they are made; they end the other way round.
struct UserFriendList::Parts {
  Parts(const FriendListOptions& options, const Configuration& configuration)
      : process(logSinkOf(configuration, options.log)), platform(process, platformOptions(options, configuration)) {
    // An app may have other processes, as tests do.
    const Process::Scope scope(process);
    manager = PLFriendsManager::managerForDomain(*configuration.text("domain"));
    manager->setServiceName(configuration.text("service"));
    list = FriendList::open(manager, options.program.empty() ? program_invocation_short_name : options.program);
  }

  Process process;
  LinuxPlatform platform;
  std::shared_ptr<PLFriendsManager> manager;
  std::unique_ptr<FriendList> list;
};

UserFriendList::UserFriendList(const FriendListOptions& options, const Configuration& configuration)
    : _parts(std::make_unique<Parts>(options, configuration)) {}

UserFriendList::~UserFriendList() = default;

FriendList& UserFriendList::list() { return *_parts->list; }

PLFriendsManager& UserFriendList::manager() { return *_parts->manager; }

Process& UserFriendList::process() { return _parts->process; }

std::unique_ptr<UserFriendList> openFriendList(const FriendListOptions& options) {
  const Configuration configuration = options.configuration
                                          ? *options.configuration
                                          : Configuration::read(Configuration::fileIn(UserFolders::find().config));
  return std::unique_ptr<UserFriendList>(new UserFriendList(options, configuration));
}

}  // namespace pellor
