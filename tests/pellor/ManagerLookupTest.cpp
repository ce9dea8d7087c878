// Who owns an address or a GUID, and who may be added.
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/PLUtility.h"
#include "pellor/platform/Platform.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;

class ManagerLookupTest : public ManagerTest {
 protected:
  ManagerLookupTest() { setGroups(3, 2); }

  std::shared_ptr<PLPerson> lookUp(ManagerProcess& process, const std::vector<std::string>& destinations) {
    return process.run([&] { return process.manager().personWithDestinations(destinations); });
  }
  void contactWith(const std::string& name, const std::vector<std::string>& mails,
                   const std::vector<std::string>& phones = {}) {
    auto contact = contactNamed(name);
    contact.emails.clear();
    for (const auto& mail : mails) contact.emails.push_back({"home", mail});
    for (const auto& phone : phones) contact.phones.push_back({"mobile", phone});
    world.addressBook().add(contact);
  }
};

TEST_F(ManagerLookupTest, OnePersonForEachWayOfWritingOneDestination) {
  contactWith("Ann", {"ann@example.org"}, {"0151 2345678"});
  auto a = launch();
  const auto ann = lookUp(*a, {"+49 151 2345678"});
  EXPECT_EQ(ann->displayName(), "Ann");
  world.addressBook().clearRecords();
  EXPECT_EQ(lookUp(*a, {"tel:+491512345678"}), ann);
  EXPECT_EQ(lookUp(*a, {"0151/2345678"}), ann);
  EXPECT_EQ(lookUp(*a, {"mailto:ann@example.org"}), ann);
  EXPECT_EQ(a->run([&] { return a->manager().personWithABRecordGUID("guid-Ann"); }), ann);
  EXPECT_EQ(world.addressBook().lookups(), InMemoryAddressBook::Lookups{}) << "known people cost no lookup";

  EXPECT_TRUE(a->add(ann));
  EXPECT_EQ(lookUp(*a, {"+49 151 2345678"}), ann);
  EXPECT_THAT(a->manager().allPeople(), ElementsAre(ann, ann, ann)) << "under each of three identifiers";
}

// --- Who may be added ---

TEST_F(ManagerLookupTest, AContactMayBeAddedOnceAndOnlyWithDestinations) {
  contactWith("Ann", {"ann@example.org"});
  contactWith("Bob", {});
  contactWith("Cy", {"cy@example.org"}, {"0151 2345678"});
  auto a = launch();
  a->add("Ann");
  PersonValueCache cache;
  const auto recordID = [&](const std::string& name) { return world.addressBook().contact(guidOf(name))->recordID; };
  const auto mayAdd = [&](const std::string& name) {
    return a->run([&] {
      return a->manager().shouldAllowAddingContactWithContactStorePersonValueCache(
          {guidOf(name)}, *platformOf(a->process()).contacts, cache);
    });
  };
  EXPECT_FALSE(mayAdd("Ann"));
  EXPECT_TRUE(cache.empty()) << "a friend's destinations are not counted";
  for (const char* name : {"Bob", "Cy", "Nobody"}) EXPECT_EQ(mayAdd(name), name == std::string("Cy")) << name;
  EXPECT_EQ(cache, (PersonValueCache{{recordID("Bob"), 0}, {recordID("Cy"), 2}}));
  cache[recordID("Bob")] = 5;
  EXPECT_TRUE(mayAdd("Bob")) << "the cache answers";

  PersonValueCache other;
  const auto check = [&](AddressBook& addressBook) {
    const auto allows = [&](const std::string& name, bool asksManager, bool asksContacts) {
      return PLUtility::shouldAllowAddingFriendWithRecordIDWithFriendListManagerAddressBookPersonValueCache(
          recordID(name), asksManager ? &a->manager() : nullptr, asksContacts ? &addressBook : nullptr, other);
    };
    EXPECT_FALSE(allows("Ann", true, true));
    EXPECT_TRUE(other.empty());
    EXPECT_TRUE(allows("Ann", false, true));
    EXPECT_FALSE(allows("Bob", true, true));
    EXPECT_TRUE(allows("Bob", false, false));
    EXPECT_TRUE(allows("Cy", true, true));
    EXPECT_EQ(other, (PersonValueCache{{recordID("Ann"), 1}, {recordID("Bob"), 0}, {recordID("Cy"), 2}}));
  };
  a->run([&] { platformOf(a->process()).addressBook->performWithAddressBook(check); });
}

}  // namespace
}  // namespace pellor
