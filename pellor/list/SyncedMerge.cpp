#include "pellor/list/SyncedMerge.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

#include "pellor/friends/PLFriendsManager.h"
#include "pellor/friends/detail/PLPersonForm.h"
#include "pellor/friends/internal/PLListMerge.h"

namespace pellor {
namespace {

const std::string ListKey(PLFriendListKey), TitlesKey(PLGroupTitlesKey);

Dictionary writtenForm(const Dictionary& stored) {
  if (stored.empty()) return stored;
  return PLPersonForm(stored).written();
}

PLTitledList titledList(const Dictionary& values) {
  PLTitledList titled;
  const Value* list = valueForKey(values, ListKey);
  if (list && list->longArray()) {
    titled.list = *list->longArray();
  } else if (list && list->array()) {
    titled.list = LongArray(*list->array());
  }
  const Value* titles = valueForKey(values, TitlesKey);
  if (titles && titles->array()) titled.titles = *titles->array();
  return titled;
}

PLListMergeOptions optionsOf(PreferencesStore& preferences, const std::string& domain) {
  const std::vector<std::string> keys{std::string(PLGroupSizeKey), std::string(PLMaxGroupCountKey)};
  const auto answer = preferences.read(keys, domain);
  const auto integer = [&](std::string_view key) -> std::optional<std::int64_t> {
    if (!answer.isReadable()) return std::nullopt;
    const auto found = answer.value()->find(key);
    if (found == answer.value()->end() || !found->second.value) return std::nullopt;
    return found->second.value->integer();
  };
  PLListMergeOptions options;
  const std::int64_t size = integer(PLGroupSizeKey).value_or(0);
  options.groupSize = size >= 1 && size <= PLLargestGroupSize ? static_cast<std::uint64_t>(size) : PLDefaultGroupSize;
  options.maxGroupCount = static_cast<std::uint64_t>(
      integer(PLMaxGroupCountKey).value_or(static_cast<std::int64_t>(PLDefaultMaxGroupCount)));
  options.writtenForm = writtenForm;
  return options;
}

bool areEqual(const Value* left, const Value* right) { return left && right ? *left == *right : left == right; }

// The value that is not base's; theirs, when neither is.
void mergeValue(const std::string& key, const Dictionary& base, const Dictionary& theirs, const Dictionary& ours,
                Dictionary& merged) {
  const bool isOurs = areEqual(valueForKey(theirs, key), valueForKey(base, key));
  if (const Value* value = valueForKey(isOurs ? ours : theirs, key)) merged.emplace(key, *value);
}

}  // namespace

SyncedValues mergeSynced(PreferencesStore& preferences, const std::string& domain, const Dictionary& base,
                         const Dictionary& theirs, const Dictionary& ours) {
  SyncedValues merged;
  std::set<std::string> keys;
  for (const Dictionary* side : {&theirs, &ours}) {
    for (const auto& [key, value] : *side) keys.insert(key);
  }
  const bool hasList = keys.erase(ListKey) > 0, hasTitles = keys.erase(TitlesKey) > 0;
  for (const std::string& key : keys) mergeValue(key, base, theirs, ours, merged.values);
  PLMergedList list =
      mergedLists(titledList(base), titledList(theirs), titledList(ours), optionsOf(preferences, domain));
  if (hasList) merged.values.emplace(ListKey, std::move(list.merged.list));
  if (hasTitles) merged.values.emplace(TitlesKey, std::move(list.merged.titles));
  merged.leftOut = list.leftOutCount;
  return merged;
}

}  // namespace pellor
