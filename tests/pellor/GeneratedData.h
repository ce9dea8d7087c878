// What the lives of lists are generated from: stored forms and contacts that have much in common, and are wrong at
// times.
#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "pellor/testing/InMemoryAddressBook.h"
#include "tests/pellor/ManagerWorld.h"

namespace pellor {

/// All that is left to chance in a life, from one seed.
class GeneratedData {
 public:
  explicit GeneratedData(std::uint64_t seed) : random(seed) {}

  std::uint64_t below(std::uint64_t limit) { return random() % limit; }
  bool chance(std::uint64_t oneIn) { return below(oneIn) == 0; }
  template <class T>
  T anyOf(const std::vector<T>& choices) {
    return choices[below(choices.size())];
  }

  // --- Stored lists ---

  std::string anyGUID() { return chance(20) ? "" : guidOf(std::to_string(below(poolSize))); }
  std::string anyDestination() {
    const std::string number = std::to_string(below(poolSize));
    switch (below(10)) {
      case 0:
        return "mailto:p" + number + "@example.org";
      case 1:
        return "0151 1000" + number;
      case 2:
        return "+491511000" + number;
      case 3:
        return "nobody";
      default:
        return "p" + number + "@example.org";
    }
  }
  Value orWrong(Value value) { return chance(40) ? anyOf(wrongValues) : value; }

  Dictionary anyForm() {
    Array destinations;
    for (auto left = below(4); left > 0; --left) destinations.push_back(orWrong(anyDestination()));
    Dictionary form;
    if (!chance(10)) form.emplace("AllValues", orWrong(destinations));
    if (!chance(3)) form.emplace("ABRecordGUID", orWrong(anyGUID()));
    for (const auto& [key, values] : fieldValues) {
      if (!chance(3)) form.emplace(key, orWrong(anyOf(values)));
    }
    return form;
  }
  Value anyElement() { return orWrong(chance(3) ? Dictionary() : anyForm()); }
  Array anyList() {
    Array list;
    for (auto left = below(1 + below(LongestList + 1)); left > 0; --left) list.push_back(anyElement());
    return list;
  }

  // --- Contacts: friends may be linked with them, and find them by their destinations ---

  void addContact(InMemoryAddressBook& book, const std::string& number) {
    TestContact contact = contactNamed(number);
    contact.first = anyOf<std::string>({"Ann", "Bob", "cy"});
    contact.emails = {{"", anyDestination()}};
    if (chance(2)) contact.phones = anyValues();
    book.add(contact);
  }
  /// They come, change, link and vanish, and the database is rebuilt. What was done.
  std::string changeContacts(InMemoryAddressBook& book) {
    std::string story = "contacts: ";
    for (auto left = 1 + below(4); left > 0; --left) story += changeContact(book);
    return story;
  }

  static constexpr std::uint64_t LongestList = 60;
  std::mt19937_64 random;
  const std::uint64_t poolSize = chance(3) ? 1000 : 3 + below(LongestList);  // few: many are the same somehow

 private:
  static constexpr std::uint64_t ContactCount = 12;
  /// What the fields of stored forms can hold, beside GUID and destinations.
  inline static const std::map<std::string, Array> fieldValues{
      {"ABRecordID", {0, 1, 2}},          {"ABDatabaseUID", {"Database"}},
      {"Name", {"", "Ann", "Bob", "cy"}}, {"ReplyAs", {"me"}},
      {"Monogram", {"", "A", "B"}},       {"Metadata", {Dictionary{{"key", 0}}, Dictionary{{"key", 1}}}}};
  inline static const Array wrongValues{7, "text", Array{}, true, 1.5, Data{1}};

  std::string anyContactNumber() { return std::to_string(below(std::min(poolSize, ContactCount))); }
  std::vector<LabelledValue> anyValues() {
    std::vector<LabelledValue> values;
    for (auto left = below(3); left > 0; --left) values.push_back({"", anyDestination()});
    return values;
  }
  void edit(TestContact& contact) {
    switch (below(4)) {
      case 0:
        contact.first = chance(4) ? std::nullopt : std::optional(anyOf<std::string>({"Ann", "Bob", "Dee"}));
        return;
      case 1:
        contact.emails = anyValues();
        return;
      case 2:
        contact.phones = anyValues();
        return;
      default:
        contact.nickname = anyOf<std::string>({"Nick", "Ann"});
    }
  }

  std::string changeContact(InMemoryAddressBook& book) {
    const auto operation = below(12);
    const std::string number = anyContactNumber(), other = anyContactNumber();
    const std::string guid = guidOf(number), otherGUID = guidOf(other);
    if (operation == 0) {
      book.rebuild();
    } else if (operation == 1) {
      book.setDatabaseUID(anyOf<std::optional<std::string>>({"TestDatabase", "Other", std::nullopt}));
    } else if (operation == 2) {
      chance(2) ? book.setShortNamePreferNicknames(chance(2)) : book.setShortNameFormatEnabled(chance(2));
    } else if (operation == 3) {
      book.setReadable(!chance(3));
    } else if (!book.contact(guid)) {
      addContact(book, number);
    } else if (operation < 6) {
      book.remove(guid);
    } else if (operation == 6) {
      book.unlink(guid);
    } else if (operation == 7 && guid != otherGUID && book.contact(otherGUID)) {
      book.link({guid, otherGUID});
    } else {
      book.change(guid, [this](TestContact& contact) { edit(contact); });
    }
    return std::to_string(operation) + " " + number + " " + other + "; ";
  }
};

}  // namespace pellor
