#include "pellor/list/internal/ImportAgain.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <vector>

#include "pellor/list/internal/FriendIdentity.h"

namespace pellor {
namespace {

/// Does a step that an import made to a list that it was not made of.
class Again {
 public:
  Again(const StepRecord& step, const Snapshot& before, ListDraft& draft)
      : _step(step), _pages(step), _before(before), _draft(draft) {}

  std::optional<Refusal> run() {
    noteTheirs();
    if (!liftTouched()) return Refusal{RefusalReason::overtaken};
    insertPages();
    if (!putAll()) return Refusal{RefusalReason::noRoom};
    removeAndRenamePages();
    _draft.addEmptyPageIfDue();
    return std::nullopt;
  }

 private:
  static std::string keyOf(const FriendIdentity& identity) {
    return identity.guid.empty() ? "name " + identity.name : "guid " + identity.guid;
  }

  // Who came into the list there.
  void noteTheirs() {
    for (const auto& person : _draft.before().friends()) {
      if (_before.placeOf(person->id)) continue;
      const FriendIdentity identity = identityOf(*person);
      _theirs.emplace(keyOf(identity), identity);
    }
  }

  bool isThere(const FriendRecord& person) const {
    const FriendIdentity identity = identityOf(person.after);
    const auto [first, last] = _theirs.equal_range(keyOf(identity));
    return std::any_of(first, last, [&](const auto& other) { return areAddedAlike(identity, other.second); });
  }

  bool liftTouched() {
    for (const FriendRecord& person : _step.friends) {
      if (person.from && person.to && !_draft.placeOf(person.id)) return false;
      if (person.from && (!person.to || _pages.isMoved(person))) _draft.lift(person.id);
      if (!person.from ? !isThere(person) : person.to && _pages.isMoved(person)) _coming.push_back(&person);
    }
    return true;
  }

  void insertPages() {
    for (const PageRecord& page : _step.pages)
      if (!page.from && _draft.canInsertPage())
        _draft.insertPage(std::min(*page.to, _draft.pageCount()), page.titleAfter, page.id);
  }

  bool putAll() {
    for (const FriendRecord* person : _coming) {
      const auto number = _pages.after(person->to->page);
      const auto index = number ? _draft.indexOf(_step.pages[*number].id) : std::nullopt;
      auto place = index ? _draft.freeSlotNear({*index, person->to->slot}) : _draft.firstFreeSlot();
      if (!place && _draft.canInsertPage()) {
        _draft.insertPage(_draft.pageCount(), "");
        place = _draft.firstFreeSlot();
      }
      if (!place) return false;
      _draft.put(person->id, *place);
    }
    return true;
  }

  void removeAndRenamePages() {
    for (const PageRecord& page : _step.pages) {
      const auto index = page.from ? _draft.indexOf(page.id) : std::nullopt;
      if (!index) continue;
      if (page.to && page.titleBefore != page.titleAfter) _draft.rename(*index, page.titleAfter);
      if (!page.to && _draft.isEmpty(*index) && _draft.pageCount() > 1) _draft.removePage(*index);
    }
  }

  const StepRecord& _step;
  const StepPages _pages;
  const Snapshot& _before;
  ListDraft& _draft;
  std::unordered_multimap<std::string, FriendIdentity> _theirs;
  std::vector<const FriendRecord*> _coming;
};

}  // namespace

std::optional<Refusal> importAgain(const StepRecord& step, const Snapshot& before, ListDraft& draft) {
  return Again(step, before, draft).run();
}

}  // namespace pellor
