// What edits mean, one after the other, on pages that keep their identity: the judge's knowledge of edits. It knows
// nothing of how lists are merged.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/e2e/RaceEdit.h"
#include "tests/e2e/RaceList.h"

namespace pellor {

/// One thing that an edit brings about. A page is named by its identity: the pages of the list before the race are 0, 1
/// and so on, wherever they stand later; pages made since have the numbers after them.
struct RaceFact {
  enum class Kind {
    present,  ///< the friend is in the list; `place` is the first free one at that time
    absent,   ///< the friend is not in the list
    at,       ///< the friend stands in `place`
    title,    ///< the page has the title `value`
    gone,     ///< there is no such page
    field,    ///< the friend's `field` is `value`; absent: it has none
    contact,  ///< the friend is as its contact is now
  };
  Kind kind = Kind::present;
  std::string who;
  RacePlace place;
  std::string field;
  std::optional<std::string> value;

  bool operator==(const RaceFact&) const = default;
};

using RaceFacts = std::vector<RaceFact>;

/// For people.
std::string textOf(const RaceFact& fact);

/// Whether they concern one field of a friend (the place is one, the removal is all of them), one place, one page's
/// title, or one page's removal and anything on that page.
bool conflict(const RaceFact& one, const RaceFact& other);
/// Whether they want one place for two friends, and conflict in nothing else.
bool conflictInPlaceAlone(const RaceFact& one, const RaceFact& other);

class RaceModel {
 public:
  RaceModel(const RaceList& list, std::size_t maxPages, const std::map<std::string, RaceContact>& changedContacts);

  /// Does the edit and gives what it brings about; absent, and nothing is done, where the command fails.
  std::optional<RaceFacts> apply(const RaceEdit& edit);

 private:
  struct Page {
    std::size_t identity;
    std::vector<std::string> slots;  // keys; empty for an empty slot
  };

  bool isEmpty(const Page& page) const;
  std::optional<RacePlace> find(const std::string& who) const;  // by indexes
  std::optional<RacePlace> firstFree() const;
  RacePlace identified(const RacePlace& place) const { return {_pages[place.page].identity, place.slot}; }
  void appendPage();
  void keepRoom();
  RaceFact removePage(std::size_t index);

  std::optional<RaceFacts> add(const RaceEdit& edit);
  std::optional<RaceFacts> remove(const RaceEdit& edit);
  std::optional<RaceFacts> move(const RaceEdit& edit);
  std::optional<RaceFacts> title(const RaceEdit& edit) const;
  RaceFacts purge();
  std::optional<RaceFacts> setField(const std::string& who, const std::string& field,
                                    const std::optional<std::string>& value);
  std::optional<RaceFacts> clearMetadata(const std::string& who);
  RaceFacts refresh() const;

  std::vector<Page> _pages;
  std::map<std::string, std::map<std::string, std::string>> _fields;
  std::vector<std::string> _changedFriends;
  std::size_t _pageSize;
  std::size_t _maxPages;
  std::size_t _nextIdentity;
};

}  // namespace pellor
