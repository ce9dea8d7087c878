// What a refresh looks up, and when it counts as made, without a manager.
#include "pellor/friends/internal/PLContactsRefresh.h"

#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLExceptions.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "tests/pellor/ChangingContacts.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

const std::string Domain = "org.tapnote.TN";

/// Tells the refresh which number the store has taken, as the manager does.
class WriterClient : public PLListWriterClient {
 public:
  void listWasWritten(const PLAcceptedWrite& write) override { refresh->noteWritten(write.sequenceNumber); }
  void listWasOvertaken() override { ADD_FAILURE(); }
  void loadIsDue() override { ADD_FAILURE(); }

  PLContactsRefresh* refresh = nullptr;
};

/// Ann and Bob are friends; the writer has taken over an empty store.
class ContactsRefreshTest : public OneProcess {
 protected:
  ContactsRefreshTest()
      : OneProcess([this](Platform& own) {
          own.addressBook = std::make_shared<ChangingContacts>(world.addressBook(), process, [this] {
            if (questionsUntilUnreadable-- == 0) world.addressBook().setReadable(false);
          });
        }) {
    writer->setClient(client);
    client->refresh = &refresh;
    for (const std::string name : {"ann", "bob"}) {
      world.addressBook().add({.guid = name, .first = name, .emails = {{"", name + "@example.org"}}});
      list.append(PLPerson::initWithABRecordGUIDAddressBook(name, book()));
    }
    list.append(EmptySlot);
    takeOverWhatIsStored();
  }

  void takeOverWhatIsStored() {
    const std::vector<std::string> keys = {std::string(PLFriendListKey), std::string(PLGroupTitlesKey)};
    const auto stored = platform.preferences->read(keys, Domain);
    auto base = std::make_shared<PLBaseline>();
    base->listVersion = stored.value()->at(keys[0]).version;
    base->titlesVersion = stored.value()->at(keys[1]).version;
    writer->takeOver(std::move(base), list, pages);
  }

  void rename(const std::string& guid, const std::string& name) {
    world.addressBook().change(guid, [&](TestContact& contact) { contact.first = name; });
    settle();
  }
  std::string names() { return *list.at(0)->displayName() + " " + *list.at(1)->displayName(); }
  std::int64_t storedNumber() {
    platform.preferences->synchronize(Domain);
    return platform.preferences->integerValue(PLAddressBookSequenceNumberKey, Domain).value().value_or(0);
  }
  void save() {
    writer->publish(list, pages);
    writer->markLayout();
    writer->save();
    settle();
  }

  int questionsUntilUnreadable = -1;
  PLSlotList list;
  PLPageNumbers pages = std::make_shared<const std::vector<std::uint64_t>>(std::vector<std::uint64_t>{1});
  std::shared_ptr<WriterClient> client = std::make_shared<WriterClient>();
  std::shared_ptr<PLListWriter> writer = PLListWriter::make(process, Domain);
  int asks = 0;
  PLExceptions exceptions{list, writer->attachedArrays()};
  PLContactsRefresh refresh{process, Domain, list, *writer, exceptions, {[this] { ++asks; }, [](const auto&) {}}};
};

TEST_F(ContactsRefreshTest, TheNumberGoesOutWithTheListThatTheRefreshChanged) {
  rename("ann", "Anna");
  EXPECT_TRUE(refresh._addressBookSequenceNumberDidChange());
  EXPECT_TRUE(refresh.refreshFriends());
  EXPECT_EQ(names(), "Anna bob");
  EXPECT_FALSE(refresh._addressBookSequenceNumberDidChange()) << "this process has refreshed";
  EXPECT_EQ(storedNumber(), 0) << "others would take the stored list for refreshed";
  save();
  const std::int64_t number = storedNumber();
  EXPECT_EQ(number, book()->sequenceNumber());
  EXPECT_FALSE(refresh._addressBookSequenceNumberDidChange());

  rename("bob", "Rob");
  const auto others = static_cast<std::int64_t>(book()->sequenceNumber());
  platform.preferences->setValue(PLAddressBookSequenceNumberKey, Value(others), Domain);
  platform.preferences->synchronize(Domain);
  EXPECT_FALSE(refresh._addressBookSequenceNumberDidChange()) << "another process was faster";
  EXPECT_EQ(names(), "Anna bob") << "its list comes by a load";
}

TEST_F(ContactsRefreshTest, ARefreshThatWasCutShortStaysDue) {
  for (int questions = 0; questions < 4; ++questions) {
    rename("ann", "Anna" + std::to_string(questions));
    rename("bob", "Rob" + std::to_string(questions));
    questionsUntilUnreadable = questions;
    const bool didRefresh = refresh.refreshFriends();
    const bool wasCutShort = !book()->isReadable();
    EXPECT_EQ(didRefresh, !wasCutShort) << questions;
    EXPECT_FALSE(refresh._addressBookSequenceNumberDidChange()) << "nobody can tell while they cannot be read";
    world.addressBook().setReadable(true);
    settle();
    EXPECT_EQ(refresh._addressBookSequenceNumberDidChange(), wasCutShort) << questions;
    questionsUntilUnreadable = -1;
    EXPECT_TRUE(refresh.refreshFriends()) << questions;
    EXPECT_EQ(names(), "Anna" + std::to_string(questions) + " Rob" + std::to_string(questions));
  }
}

}  // namespace
}  // namespace pellor
