// What every source of favorites must do, written against the interface alone. Needs GoogleTest.
//
// A factory is one of AddressBookStoreContract.h that has favorites, too:
//
//   FavoritesSource& favorites();
//   void setFavorites(const std::vector<std::string>& guids);  // in the user's order
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "pellor/platform/FavoritesSource.h"
#include "pellor/runtime/Process.h"
#include "pellor/testing/TestContact.h"

namespace pellor {

template <class Factory>
class FavoritesSourceContract : public testing::Test {
 protected:
  /// "<name> <value> <GUID of the record>" of each.
  std::vector<std::string> favorites() {
    const Process::Scope scope(_contacts.process());
    std::vector<std::string> result;
    const auto entries = _contacts.favorites().favoriteEntries();
    if (!entries.isReadable()) return {"unreadable"};
    for (const FavoriteEntry& entry : entries.value().value_or(std::vector<FavoriteEntry>())) {
      _contacts.store().performWithAddressBook([&](AddressBook& book) {
        const RecordRef person = book.personForRecordID(entry.abRecordID);
        result.push_back(entry.displayName + " " + entry.value + " " + (person ? person->recordGUID() : "nobody"));
      });
    }
    return result;
  }

  Factory _contacts;
};

TYPED_TEST_SUITE_P(FavoritesSourceContract);

TYPED_TEST_P(FavoritesSourceContract, FavoritesAreGivenInTheUsersOrder) {
  const std::string anna = this->_contacts.add({.first = "Anna", .phones = {{"cell", "+493023125001"}}});
  const std::string boris = this->_contacts.add({.first = "Boris", .emails = {{"", "boris@example.org"}}});
  EXPECT_EQ(this->favorites(), std::vector<std::string>());
  const std::string annas = "Anna +493023125001 " + anna, borises = "Boris boris@example.org " + boris;
  for (const auto& [guids, expected] : {std::pair{std::vector{boris, anna}, std::vector{borises, annas}},
                                        std::pair{std::vector{anna, boris}, std::vector{annas, borises}},
                                        std::pair{std::vector{boris}, std::vector{borises}}}) {
    this->_contacts.setFavorites(guids);
    EXPECT_TRUE(this->_contacts.runUntil([&] { return this->favorites() == expected; })) << expected.front();
  }
}

REGISTER_TYPED_TEST_SUITE_P(FavoritesSourceContract, FavoritesAreGivenInTheUsersOrder);

}  // namespace pellor
