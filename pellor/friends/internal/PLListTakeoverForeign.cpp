// What programs that keep no history made of the stored list.
#include <cstdint>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLListTakeover.h"

namespace pellor {
namespace {

std::vector<Dictionary> writtenForms(const LongArray& list) {
  std::vector<Dictionary> forms(list.size());
  PLPersonForm form;
  constexpr std::uint64_t size = PLSlotSnapshot::ChunkSize;
  for (std::uint64_t slot = 0; slot < list.size(); ++slot) {
    list.chunks()[slot / size]->view(slot % size, form.entries());
    form.read();
    if (!form.isEmpty()) forms[slot] = PLPerson::initWithForm(form)->dictionaryRepresentation();
  }
  return forms;
}

std::vector<std::string> textsOf(const Array& titles) {
  std::vector<std::string> texts;
  for (const Value& title : titles) texts.push_back(title.string() ? *title.string() : std::string());
  return texts;
}

}  // namespace

PLForeignEdit PLListTakeover::foreignEdit(const PLBaseline& base, const PLStoredList& theirs, const PLOwnPages& pages,
                                          const PLDirtyChunks& touched) const {
  const PLMergeInput input = mergeInput(base, theirs, pages, touched);
  PLForeignEdit edit;
  edit.before = {writtenForms(input.base), textsOf(base.titles), base.listVersion, base.titlesVersion};
  edit.after = {writtenForms(theirs.list), textsOf(theirs.titles), theirs.listVersion, theirs.titlesVersion};
  edit.origins = findTheirFriends(input).inBase;
  edit.groupSize = pages.groupSize;
  return edit;
}

}  // namespace pellor
