// The pictures of contacts, read from their cards when they are asked for.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "pellor/linux/contacts/CardSource.h"
#include "pellor/platform/ContactPhoto.h"

namespace pellor {

/// The index holds no picture: it would be as large as the contacts. One thread at a time, the source's.
class CardPhotos {
 public:
  explicit CardPhotos(std::shared_ptr<CardSource> source) : _source(std::move(source)) {}

  /// The picture in the card of that file with that hash of its text (`contentHash`). Absent without one, and when the
  /// card cannot be read or is another one by now. The file is kept for the next question.
  std::optional<ContactPhoto> photo(const std::string& file, std::int64_t textHash);
  /// Drops the file that is kept.
  void forget() { _file.reset(); }

 private:
  struct File {
    std::string name;
    CardSignature signature;
    std::string text;
    std::unordered_map<std::int64_t, std::string_view> cards;  ///< by the hash of their texts
  };

  bool take(const std::string& file);

  const std::shared_ptr<CardSource> _source;
  std::unique_ptr<File> _file;
};

}  // namespace pellor
