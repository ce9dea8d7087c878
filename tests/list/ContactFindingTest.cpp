// Contacts are found by what somebody calls them.
#include "pellor/list/ContactFinding.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/pellor/ManagerWorld.h"

namespace pellor {
namespace {

class ContactFindingTest : public ManagerTest {
 protected:
  ContactFindingTest() {
    world.addressBook().add({.guid = "zoe", .first = "Bo", .last = "Ray", .phones = {{"home", "+49301234567"}}});
    world.addressBook().add({.guid = "g1", .first = "Zoe", .phones = {{"home", "+49301234568"}}});
    world.addressBook().add({.guid = "g2", .first = "Zoe", .last = "Berg", .phones = {{"home", "+49301234569"}}});
    world.addressBook().add({.guid = "g3", .first = "Ida", .last = "Berg", .phones = {{"home", "+49301234570"}}});
    world.addressBook().add({.guid = "g4", .first = "Ida", .nickname = "Berg", .phones = {{"cell", "+49151110"}}});
    world.addressBook().link({"g3", "g4"});
  }

  std::string named(const std::string& text, ContactFit worst = ContactFit::numberEnding) {
    std::string guids;
    const Process::Scope scope(_process->process());
    for (const FoundContact& each : contactsNamed(text, worst)) guids += (guids.empty() ? "" : " ") + each.guid;
    return guids;
  }

 private:
  const std::unique_ptr<ManagerProcess> _process = makeProcess();
};

TEST_F(ContactFindingTest, TheFirstWayThatFindsAnybodyDecides) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"zoe", "zoe"},         // a GUID before a name
      {"030 1234569", "g2"},  // a number, however it is written
      {"ZOE", "g1"},          // a whole name before one that begins so
      {"berg zoe", "g2"},     // in any order
      {"berg", "g4"},         // a whole nickname before words of names
      {"ida", "g4"},          // linked records are one person
      {"4568", "g1"},         // the end of a number
      {"68", ""},             // too short for one
      {"nobody", ""},
      {"", ""},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(named(text), expected) << text;
  EXPECT_EQ(named("4568", ContactFit::nameWords), "") << "what is to be added is no part of a number";
}

TEST_F(ContactFindingTest, WithoutContactsNobodyIsNamed) {
  world.addressBook().setReadable(false);
  EXPECT_EQ(named("zoe"), "");
  world.addressBook().setReadable(true);
  EXPECT_EQ(named("zoe"), "zoe");
}

}  // namespace
}  // namespace pellor
