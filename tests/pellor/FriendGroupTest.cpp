#include "pellor/friends/PLFriendGroup.h"

#include "pellor/friends/PLPerson.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Writes down what a group reports.
class Reports : public PLFriendGroupDelegate {
 public:
  void friendGroupDidSetFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                         const std::shared_ptr<PLPerson>& person, std::uint64_t position) override {
    add("set", group, person, position);
  }
  void friendGroupDidRemoveFriendAtPosition(const std::shared_ptr<PLFriendGroup>& group,
                                            const std::shared_ptr<PLPerson>& person, std::uint64_t position) override {
    add("removed", group, person, position);
  }
  void friendGroupDidMoveFriends(const std::shared_ptr<PLFriendGroup>&,
                                 const std::vector<std::shared_ptr<PLPerson>>&) override {}

  std::vector<std::string> reports;
  std::function<void()> onReport;

 private:
  void add(const std::string& what, const std::shared_ptr<PLFriendGroup>& group,
           const std::shared_ptr<PLPerson>& person, std::uint64_t position) {
    if (onReport) onReport();
    const std::string slot = group->friendAtPosition(position) ? "occupied" : "empty";
    reports.push_back(what + " " + (person ? *person->displayName() : "nobody") + " at " + std::to_string(position) +
                      ", now " + slot);
  }
};

class FriendGroup : public OneProcess {
 protected:
  static std::shared_ptr<PLPerson> named(const std::string& name) {
    return PLPerson::initWithDictionaryRepresentationAddressBook({{"Name", name}}, nullptr);
  }
  static std::shared_ptr<PLPerson> reachableBy(const std::string& destination) {
    return PLPerson::initWithDestinationsAddressBook({destination}, nullptr);
  }
  std::vector<std::string> takeReports() { return std::exchange(delegate->reports, {}); }

  std::shared_ptr<Reports> delegate = std::make_shared<Reports>();
  std::uint32_t error = 77;
  const std::shared_ptr<PLPerson> ann = named("Ann");
  const std::shared_ptr<PLPerson> bob = named("Bob");
  const std::shared_ptr<PLPerson> cid = named("Cid");
};

TEST_F(FriendGroup, FillsReplacesAndEmptiesSlotsAndReportsEach) {
  const auto group = PLFriendGroup::initWithDelegateGroupSize(delegate, 2);
  const auto& live = group->friends();
  group->addFriend(ann, error);
  EXPECT_EQ(error, PLFriendGroupErrorNone);
  group->addFriend(bob, error);
  EXPECT_THAT(live, ElementsAre(ann, bob)) << "the live array";
  group->addFriend(cid, error);
  EXPECT_EQ(error, PLFriendGroupErrorCapacityReached);
  group->removeFriendAtPosition(0);
  group->addFriend(cid, error);
  group->setFriendAtPosition(ann, 1, error);
  EXPECT_THAT(live, ElementsAre(cid, ann));
  EXPECT_FALSE(group->containsFriend(bob));
  EXPECT_THAT(takeReports(),
              ElementsAre("set Ann at 0, now occupied", "set Bob at 1, now occupied", "removed Ann at 0, now empty",
                          "set Cid at 0, now occupied", "set Ann at 1, now occupied"));

  group->setFriendAtPosition(nullptr, 2, error);
  EXPECT_EQ(error, PLFriendGroupErrorOutOfRange);
  EXPECT_EQ(group->friendAtPosition(2), nullptr);
  EXPECT_THAT(takeReports(), IsEmpty());
  for (const char* slot : {"occupied", "empty"}) {
    group->setFriendAtPosition(nullptr, 1, error);
    EXPECT_EQ(error, PLFriendGroupErrorNone);
    EXPECT_THAT(takeReports(), ElementsAre("removed nobody at 1, now empty")) << slot;
  }
  EXPECT_EQ(group->count(), 1U);
}

TEST_F(FriendGroup, SurvivesWhatItsDelegateDoes) {
  for (const bool removes : {true, false}) {
    auto group = PLFriendGroup::initWithDelegateGroupSize(delegate, 2);
    auto person = named("Dan");
    group->setFriendAtPosition(person, 0, error);
    takeReports();
    PLFriendGroup* const raw = group.get();
    const std::weak_ptr<PLFriendGroup> weakGroup = group;
    const std::weak_ptr<PLPerson> weakPerson = person;
    delegate->onReport = [&] {
      group.reset();
      person.reset();
      ASSERT_FALSE(weakGroup.expired());
    };
    removes ? raw->removeFriendAtPosition(0) : raw->setFriendAtPosition(ann, 0, error);
    delegate->onReport = nullptr;
    EXPECT_THAT(takeReports(), ElementsAre(removes ? "removed Dan at 0, now empty" : "set Ann at 0, now occupied"));
    EXPECT_TRUE(weakGroup.expired() && weakPerson.expired());
  }
}

TEST_F(FriendGroup, IsCalledByItsTitleElseByItsFriends) {
  const auto group = PLFriendGroup::initWithGroupSize(6);
  const auto name = [&] { return group->displayNameForGroupWithSeparator(", "); };
  EXPECT_EQ(name(), std::nullopt);
  group->setFriends(
      {reachableBy("+49301234567"), EmptySlot, ann, reachableBy("bob@home@example.org"), cid, PLPerson::init()});
  EXPECT_EQ(name(), "Ann, Cid, 0301234567, bob");
  group->setTitle("Family");
  EXPECT_EQ(name(), "Family");
}

}  // namespace
}  // namespace pellor
