#include "pellor/friends/internal/PLMergeFields.h"

#include <algorithm>
#include <array>

#include "pellor/friends/detail/PLPersonForm.h"

namespace pellor {
namespace {

constexpr std::array Block{PLPersonRecordIDKey, PLPersonRecordGUIDKey, PLPersonDatabaseUIDKey,
                           PLPersonNameKey,     PLPersonAllValuesKey,  PLPersonMonogramKey};
constexpr std::array Choices{PLPersonReplyAsKey, PLPersonPreferredDestinationKey};

const Dictionary None;
const Array NoDestinations;

std::string_view textOf(const Dictionary& form, std::string_view key) {
  const Value* value = valueForKey(form, key);
  const std::string* text = value ? value->string() : nullptr;
  return text ? std::string_view(*text) : std::string_view();
}

const Array& destinationsOf(const Dictionary& form) {
  const Value* value = valueForKey(form, PLPersonAllValuesKey);
  return value && value->array() ? *value->array() : NoDestinations;
}

const Dictionary& metadataOf(const Dictionary& form) {
  const Value* value = valueForKey(form, PLPersonMetadataKey);
  return value && value->dictionary() ? *value->dictionary() : None;
}

bool areEqual(const Value* one, const Value* other) { return one && other ? *one == *other : one == other; }

bool haveSameValue(const Dictionary& one, const Dictionary& other, std::string_view key) {
  return areEqual(valueForKey(one, key), valueForKey(other, key));
}

// The value of `from`, or none.
void take(Dictionary& form, const Dictionary& from, std::string_view key) {
  const auto kept = form.find(key);
  if (const Value* value = valueForKey(from, key)) {
    form.insert_or_assign(std::string(key), *value);
  } else if (kept != form.end()) {
    form.erase(kept);
  }
}

void mergeMetadata(Dictionary& form, const Dictionary& base, const Dictionary& ours) {
  const Dictionary& before = metadataOf(base);
  const Dictionary& after = metadataOf(ours);
  if (before == after) return;
  Dictionary merged = metadataOf(form);
  for (const auto& [key, value] : before) {
    if (!after.contains(key)) merged.erase(key);
  }
  for (const auto& [key, value] : after) {
    if (!haveSameValue(before, after, key)) merged.insert_or_assign(key, value);
  }
  if (merged.empty()) {
    form.erase(std::string(PLPersonMetadataKey));
  } else {
    form.insert_or_assign(std::string(PLPersonMetadataKey), Value(std::move(merged)));
  }
}

}  // namespace

std::string_view identifyingGUID(const Dictionary& form) { return textOf(form, PLPersonRecordGUIDKey); }

std::string_view nameOf(const Dictionary& form) { return textOf(form, PLPersonNameKey); }

bool haveSameBlock(const Dictionary& one, const Dictionary& other) {
  return std::ranges::all_of(Block, [&](std::string_view key) { return haveSameValue(one, other, key); });
}

Dictionary blockOfForm(const Dictionary& form) {
  Dictionary block;
  for (const std::string_view key : Block) take(block, form, key);
  return block;
}

std::string keyOfBlock(const Dictionary& form) {
  std::string key;
  for (const std::string_view each : Block) {
    const Value* value = valueForKey(form, each);
    key += (value ? value->description() : std::string()) + '\0';
  }
  return key;
}

bool haveSameName(const Dictionary& one, const Dictionary& other) {
  return !nameOf(one).empty() && nameOf(one) == nameOf(other);
}

bool haveCommonDestination(const Dictionary& one, const Dictionary& other) {
  const Array& destinations = destinationsOf(other);
  return std::ranges::any_of(destinationsOf(one), [&](const Value& destination) {
    return std::ranges::find(destinations, destination) != destinations.end();
  });
}

bool haveSameDestinations(const Dictionary& one, const Dictionary& other) {
  return !destinationsOf(one).empty() && destinationsOf(one) == destinationsOf(other);
}

PLMergedForm mergeForms(const Dictionary& base, const Dictionary& theirsAsWritten, const Dictionary& theirs,
                        const Dictionary& ours) {
  PLMergedForm merged{theirs};
  if (!haveSameBlock(base, ours) && !haveSameBlock(theirsAsWritten, ours)) {
    merged.bothChangedBlock = !haveSameBlock(base, theirsAsWritten);
    if (!merged.bothChangedBlock) {
      for (const std::string_view key : Block) take(merged.form, ours, key);
    }
  }
  for (const std::string_view key : Choices) {
    if (!haveSameValue(base, ours, key)) take(merged.form, ours, key);
  }
  mergeMetadata(merged.form, base, ours);
  return merged;
}

}  // namespace pellor
