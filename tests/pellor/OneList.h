// A test with a list and its pages, without a manager.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "pellor/friends/PLFriendGroup.h"
#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLDomainSettings.h"
#include "pellor/friends/internal/PLPageLayout.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {

/// Pages read "ab-|c--": a letter is a friend, "-" an empty slot. The list reads the same without "|".
class OneList : public OneProcess {
 protected:
  static constexpr const char* Domain = "org.tapnote.TN";

  OneList() { setLimits(3, 20); }

  void setLimits(std::uint64_t groupSize, std::int64_t maxGroupCount, bool addsEmptyGroup = true) {
    plWriteDomainSetting(*platform.preferences, PLGroupSizeKey, static_cast<std::int64_t>(groupSize), Domain);
    plWriteDomainSetting(*platform.preferences, PLMaxGroupCountKey, maxGroupCount, Domain);
    plWriteDomainSetting(*platform.preferences, PLEmptyTrailingGroupEnabledKey, addsEmptyGroup, Domain);
    settings = PLDomainSettings::read(*platform.preferences, Domain).value();
  }

  Slot person(char letter) {
    if (letter == '-') return EmptySlot;
    Slot& person = _persons[letter];
    if (!person) person = PLPerson::init();
    return person;
  }
  std::vector<Slot> slots(std::string_view text) {
    std::vector<Slot> slots;
    for (const char letter : text) {
      if (letter != '|') slots.push_back(person(letter));
    }
    return slots;
  }
  char letterOf(const Slot& slot) const {
    for (const auto& [letter, person] : _persons) {
      if (slot == person) return letter;
    }
    return slot ? '?' : '-';
  }

  void fill(std::string_view text) {
    list.clear();
    for (const Slot& slot : slots(text)) list.append(slot);
  }
  /// The pages of a list that was not laid out before.
  void layOut(std::string_view text) {
    pages = std::make_unique<PLPageLayout>(process, list, settings, [this] { ++announcements; });
    announcements = 0;
    fill(text);
    pages->_updateFriendGroups();
  }
  const std::shared_ptr<PLFriendGroup>& group(std::uint64_t index) { return pages->friendGroups().at(index); }

  std::string textOfList() const {
    std::string text;
    for (std::uint64_t index = 0; index < list.count(); ++index) text += letterOf(list.at(index));
    return text;
  }
  std::string textOfPages() const {
    std::string text;
    for (const auto& group : pages->friendGroups()) {
      if (!text.empty()) text += '|';
      for (const Slot& slot : group->friends()) text += letterOf(slot);
    }
    return text;
  }

  PLSlotList list;
  PLDomainSettings settings;
  std::unique_ptr<PLPageLayout> pages;
  int announcements = 0;  // of groups that came or went

 private:
  std::map<char, Slot> _persons;
};

}  // namespace pellor
