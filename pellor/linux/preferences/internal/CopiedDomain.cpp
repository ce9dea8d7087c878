#include "pellor/linux/preferences/internal/CopiedDomain.h"

#include <string_view>
#include <utility>

#include "pellor/linux/preferences/internal/StoredList.h"
#include "pellor/runtime/CBOR.h"
#include "pellor/runtime/DictionaryView.h"

namespace pellor {
namespace {

// Whose elements are friends, or empty slots.
constexpr std::string_view ListKey = "FriendList";

std::uint64_t numberOfFriends(const Chunks& chunks) {
  std::uint64_t friends = 0;
  DictionaryView view;
  for (const auto& chunk : chunks) {
    for (std::size_t index = 0; index < chunk->size(); ++index) {
      if (chunk->view(index, view) && !view.isEmpty()) ++friends;
    }
  }
  return friends;
}

// What is neither bytes nor runs was found damaged, and there is no copy of it.
std::optional<StoreCopy::Content> contentOf(const PreferencesMemory::SnapshotValue& stored) {
  if (stored.list) return StoreCopy::Content{{}, chunksOf(stored.list.get()), stored.version.count};
  if (stored.bytes) return StoreCopy::Content{*stored.bytes, {}, stored.version.count};
  if (!stored.isGoodCopy) return std::nullopt;
  const auto encoded = EncodedValue::encode(stored.value);
  if (!encoded) return std::nullopt;
  if (encoded->list) return StoreCopy::Content{{}, encoded->list->chunks, stored.version.count};
  return StoreCopy::Content{*encoded->bytes, {}, stored.version.count};
}

}  // namespace

void addDomain(StoreCopy& copy, const std::string& domain, const PreferencesMemory::Snapshot& snapshot) {
  for (const auto& [key, stored] : snapshot) {
    auto content = contentOf(stored);
    if (!content) continue;
    copy.values.insert_or_assign({domain, key}, *std::move(content));
  }
}

void countFriends(StoreCopy& copy) {
  copy.friends = 0;
  for (const auto& [name, content] : copy.values) {
    if (name.second == ListKey) copy.friends += numberOfFriends(content.chunks);
  }
}

}  // namespace pellor
