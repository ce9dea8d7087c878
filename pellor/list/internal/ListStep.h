// A step that is to be done to a list.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/list/internal/ListDraft.h"
#include "pellor/runtime/Value.h"

namespace pellor {

class PLPerson;

/// What of a friend's own a step sets. Absent members stay.
struct FieldEdit {
  FriendId id;
  std::optional<std::optional<std::string>> chosenNumber = {};
  std::optional<std::optional<std::string>> replyAs = {};
  std::vector<std::pair<std::string, std::optional<Value>>> metadata = {};  ///< an absent value: the entry goes
  /// Entries of the stored form that a later version made; an absent value: the entry goes.
  std::vector<std::pair<std::string, std::optional<Value>>> others = {};
  std::optional<Dictionary> card = {};  ///< the entries of the stored form that come of the card; those it lacks go
};

/// Pages and slots as they are to be, who comes new into the list, and fields in the order in which they are set.
struct ListStep {
  ListDraft draft;
  std::map<FriendId, std::shared_ptr<PLPerson>> newcomers = {};
  std::vector<FieldEdit> fields = {};
};

}  // namespace pellor
