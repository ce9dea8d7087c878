// What others may read in the log of an app.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

#include "pellor/app/UserFriendList.h"
#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/testing/LogCollector.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {
namespace {

// Each is planted once or more, and in no line as others see it. Numbers are looked for by the digits that all of their
// forms have.
constexpr std::array Planted = {"Quillon",   "Xanthe",   "7314159",   "zzyzx",
                                "guid-6f2e", "Hideaway", "broken-9a", "s3cr3t"};

class LogPrivacyTest : public testing::Test {
 protected:
  LogPrivacyTest() {
    card("guid-6f2e-1", "FN:Xanthe Quillon\nTEL:030 7314159\nEMAIL:zzyzx@example.org\nX-FOLKS-FAVOURITE:true\n");
    card("guid-6f2e-2", "FN:Xanthe Quillon\nTEL:+49 30 7314159\n");
    card("guid-6f2e-3", "FN:Bo Quillon\nEMAIL:zzyzx@example.org\n");
    writeFile(contacts() / "broken-9a.vcf", "BEGIN:VCARD\nFN:Xanthe");
    writeFile(contacts() / "guid-6f2e-4.vcf", std::string(3, '\xFF') + "Quillon");
    writeFile(contacts() / "favorites", "guid-6f2e-9\t\tQuillon the Gone\n\t030 7314159\tXanthe Quillon\n");
  }

  std::filesystem::path contacts() const {
    std::filesystem::create_directories(_folder / "contacts");
    return _folder / "contacts";
  }
  std::filesystem::path data() const { return _folder / "data"; }
  void card(const std::string& name, const std::string& content) const {
    writeFile(contacts() / (name + ".vcf"), "BEGIN:VCARD\nVERSION:3.0\nUID:" + name + "\n" + content + "END:VCARD\n");
  }

  std::unique_ptr<UserFriendList> open() const {
    FriendListOptions options;
    options.configuration.emplace();
    options.configuration->set("data", data().string());
    options.configuration->set("contacts", contacts().string());
    options.configuration->set("region", "DE");
    options.configuration->set("postgresql.connection", "host=db password=s3cr3t");
    options.log = _log;
    return openFriendList(options);
  }

  void edit() const {
    const auto friends = open();
    PLFriendsManager& manager = friends->manager();
    manager.addFriend(manager.personWithABRecordGUID("guid-6f2e-1"));
    manager.addFriend(manager.personWithDestinations({"030 73141590", "zzyzx@example.net"}));
    manager.addFriend(manager.personWithDestinations({"030 73141590"}));
    manager.friendGroups().front()->setTitle("Hideaway");
    EXPECT_TRUE(friends->settle(30));
    card("guid-6f2e-1", "FN:Xanthe Quillon-Smith\nTEL:030 73141592\n");
    std::filesystem::remove(contacts() / "guid-6f2e-2.vcf");
    manager.refreshAgainstAddressBook();
    EXPECT_TRUE(friends->settle(30));
    friends->list().findContacts("Quillon", 5);
    friends->list().undo();
    EXPECT_TRUE(friends->settle(30));
  }

  /// Overwrites all bytes of stored texts that tell of a friend.
  void damage(const std::filesystem::path& file) const {
    std::string content = contentOf(file);
    for (std::size_t place = content.find("Quillon"); place != std::string::npos;
         place = content.find("Quillon", place))
      content.replace(place, 3, "\xFF\xFF\xFF");
    writeFile(file, content);
  }

  const TemporaryFolder _folder;
  const std::shared_ptr<LogCollector> _log = std::make_shared<LogCollector>();
};

TEST_F(LogPrivacyTest, NamesNumbersAddressesTitlesAndFilesOfCardsAreNotForOthers) {
  edit();
  damage(data() / "preferences.sqlite");
  writeFile(data() / "contacts-index.sqlite", "Quillon, no index");
  edit();
  writeFile(data() / "preferences.sqlite", "Quillon, no database");
  std::filesystem::create_symlink(_folder / "elsewhere", data() / "aside/link");
  edit();
  std::filesystem::remove_all(contacts());
  open()->settle(30);

  std::size_t told = 0;
  for (const LogEntry& entry : _log->entries()) {
    const std::string hidden = entry.messageText(LogEntry::Private::hidden);
    const std::string shown = entry.messageText(LogEntry::Private::shown);
    for (const std::string_view planted : Planted) {
      EXPECT_EQ(hidden.find(planted), std::string::npos) << entry.operation << ": " << hidden;
      if (shown.find(planted) != std::string::npos) ++told;
    }
  }
  EXPECT_GE(told, 20u) << "what is planted is told of, to the user alone";
  EXPECT_FALSE(_log->contains("s3cr3t"));
}

}  // namespace
}  // namespace pellor
