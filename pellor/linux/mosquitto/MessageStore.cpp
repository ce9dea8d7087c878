#include "pellor/linux/mosquitto/MessageStore.h"

#include <set>

#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/mosquitto/SealingKeys.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view FilePrefix = "exchanged-";

std::string hexadecimal(const Data& bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

Data messageIn(const fs::path& file) {
  const std::string content = PrivateFile(file).read().text.value_or("");
  return {content.begin(), content.end()};
}

}  // namespace

fs::path MessageStore::fileOf(const Data& digest) const {
  return _folder / (std::string(FilePrefix) + hexadecimal(digest));
}

bool MessageStore::keep(std::span<const std::uint8_t> message) const {
  const Data digest = digestOf(message);
  const fs::path file = fileOf(digest);
  if (PrivateFolder(_folder).make()) return false;
  const FileCreation creation = PrivateFile(file).create(message);
  if (creation != FileCreation::exists) return creation == FileCreation::created;
  if (digestOf(messageIn(file)) == digest) return true;
  // A loss of power may have left a part of it.
  static_cast<void>(PrivateFile(file).remove());
  return PrivateFile(file).create(message) == FileCreation::created;
}

std::optional<KeyMessage> MessageStore::find(const Data& digest) const {
  const Data message = messageIn(fileOf(digest));
  return digestOf(message) == digest ? decodeKeyMessage(message) : std::nullopt;
}

void MessageStore::retain(const std::vector<Data>& digests) const {
  std::set<fs::path> retained;
  for (const Data& digest : digests) retained.insert(fileOf(digest));
  for (const std::string& name : namesIn(_folder)) {
    if (!name.starts_with(FilePrefix) || retained.contains(_folder / name)) continue;
    static_cast<void>(PrivateFile(_folder / name).remove());
  }
}

}  // namespace pellor
