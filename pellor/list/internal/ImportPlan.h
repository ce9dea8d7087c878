// Plans an import.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "pellor/list/Edit.h"
#include "pellor/list/ExportedList.h"
#include "pellor/list/ListImport.h"
#include "pellor/list/internal/ImportMatching.h"
#include "pellor/list/internal/ListDraft.h"
#include "pellor/list/internal/ListStep.h"
#include "pellor/list/internal/StepRecord.h"

namespace pellor {

/// Makes a draft the list that an import leaves. What it reports is in `answer`, what beside the draft is to be done in
/// `newcomers` and `fields`; refused, all of these are worth nothing. Main queue.
class ImportPlan {
 public:
  /// `matching`: of that exported list, and of the list that the draft was begun with. `formNow`: of its friends. All
  /// outlive the plan.
  ImportPlan(const ExportedList& exported, const ImportMatching& matching, ListDraft& draft,
             const FormOfFriend& formNow, const std::function<FriendId()>& newFriendId);

  void add();
  void replace();

  ImportAnswer& answer() { return _answer; }
  std::map<FriendId, std::shared_ptr<PLPerson>>& newcomers() { return _newcomers; }
  std::vector<FieldEdit>& fields() { return _fields; }

 private:
  bool refuse(RefusalReason reason);
  bool reach(std::uint64_t page);
  void put(const ImportedPerson& person, Place place);
  bool isLeftOut(const ImportedPerson& person);
  bool isKnown(const ImportedPerson& person);
  bool putWhereItWas(const ImportedPerson& person);
  bool putWhereThereIsRoom(const ImportedPerson& person);
  void addTitles();
  bool fits();
  void liftOthers(const std::vector<const ImportedPerson*>& coming);
  void arrangePages(const std::vector<const ImportedPerson*>& coming);
  void putReplacing(const ImportedPerson& person);
  void update(const ImportedPerson& person);
  void replaceTitles();

  const ExportedList& _exported;
  const ImportMatching& _matching;
  ListDraft& _draft;
  const FormOfFriend& _formNow;
  const std::function<FriendId()>& _newFriendId;
  ImportAnswer _answer;
  std::map<FriendId, std::shared_ptr<PLPerson>> _newcomers;
  std::vector<FieldEdit> _fields;
};

}  // namespace pellor
