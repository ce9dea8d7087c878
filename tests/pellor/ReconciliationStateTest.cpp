// Which friends a refresh passes over, without a manager.
#include "pellor/friends/internal/PLReconciliationState.h"

#include <functional>

#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

/// Ann and Bob, who have contacts, and somebody who has none.
class ReconciliationStateTest : public OneProcess {
 protected:
  ReconciliationStateTest() {
    for (const std::string name : {"ann", "bob", "cy", "dan", "eve"}) contacts().add({.guid = name, .first = name});
    for (const char* guid : {"ann", "bob"}) friends.push_back(PLPerson::initWithABRecordGUIDAddressBook(guid, book()));
    friends.push_back(PLPerson::initWithDestinationsAddressBook({"zoe@example.org"}, book()));
  }

  InMemoryAddressBook& contacts() { return world.addressBook(); }
  void rename(const std::string& guid) {
    contacts().change(guid, [](TestContact& contact) { contact.first = *contact.first + "a"; });
  }
  /// Refreshes the friends from the slot `first` on. Slot by slot whether a friend was looked up ("x") or passed over.
  std::string refresh(bool isComplete = true, std::size_t first = 0) {
    std::string text;
    state.begin(*platform.addressBook, *book(), friends.size());
    for (std::size_t index = first; index < friends.size(); ++index) {
      const bool isPassedOver = state.passOver(index, *friends[index], *book());
      text += isPassedOver ? '-' : 'x';
      if (isPassedOver) continue;
      friends[index]->refreshWithAddressBook(book());
      state.note(index, *friends[index]);
    }
    state.end(isComplete);
    return text;
  }

  PLReconciliationState state;
  std::vector<std::shared_ptr<PLPerson>> friends;
};

TEST_F(ReconciliationStateTest, WhoIsInStepIsPassedOver) {
  EXPECT_EQ(refresh(), "xxx");
  EXPECT_EQ(refresh(), "--x") << "who has no contact is searched each time";
  const struct {
    const char* what;
    std::function<void()> change;
    const char* refreshed;
  } rows[] = {
      {"a contact", [&] { rename("ann"); }, "x-x"},
      {"contacts of others", [&] { rename("cy"), rename("dan"); }, "--x"},
      {"more contacts than there are slots", [&] { rename("cy"), rename("dan"), rename("eve"), rename("bob"); }, "xxx"},
      {"a friend", [&] { friends[1]->setPreferredReplyAs("home"); }, "-xx"},
      {"slots", [&] { std::swap(friends[0], friends[1]); }, "xxx"},
      {"a setting", [&] { contacts().setShortNameFormatEnabled(true); }, "xxx"},
      {"another setting", [&] { contacts().setShortNamePreferNicknames(true); }, "xxx"},
      {"the database", [&] { contacts().setDatabaseUID("other"); }, "xxx"},
      {"a contact while a refresh could not look everybody up", [&] { rename("ann"), refresh(false); }, "xxx"},
      {"nothing while one could not", [&] { refresh(false); }, "xxx"},
      {"a contact while one did not come to its friend", [&] { rename(*friends[0]->abRecordGUID()), refresh(true, 1); },
       "x-x"},
      {"a list that was shorter meanwhile",
       [&] {
         const auto last = friends;
         friends = {last[0]};
         refresh();
         friends = last;
       },
       "-xx"},
  };
  for (const auto& row : rows) {
    row.change();
    EXPECT_EQ(refresh(), row.refreshed) << row.what;
    EXPECT_EQ(refresh(), "--x") << row.what;
  }
  contacts().setDatabaseUID(std::nullopt);
  EXPECT_EQ(refresh(), "xxx");
  EXPECT_EQ(refresh(), "xxx") << "of contacts without a name nothing is known";
}

}  // namespace
}  // namespace pellor
