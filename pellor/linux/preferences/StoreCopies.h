// Copies of the store's values, in files of their own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "pellor/linux/preferences/StoredChunks.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// All that a store held at one moment. Values are as the store encodes them: nothing is decoded to keep them.
struct StoreCopy {
  /// A value's bytes, or the chunks of a long array.
  struct Content {
    Data bytes;
    Chunks chunks;
    std::uint64_t count = 0;  ///< of the value's version

    /// Absent when it does not decode.
    std::optional<Value> value() const;
  };
  /// A domain and a key.
  using Name = std::pair<std::string, std::string>;

  std::uint64_t store = 0;    ///< the store's number
  double date = 0;            ///< wall clock, in seconds since 2001
  std::uint64_t friends = 0;  ///< how many the list has
  std::uint64_t removed = 0;  ///< no value that was removed had a version of a larger count
  std::map<Name, Content> values;

  /// Null without one.
  const Content* find(const Name& name) const;
};

/// What a copy tells without its values.
struct StoreCopyHead {
  std::uint64_t store = 0;
  double date = 0;
  std::uint64_t friends = 0;
  std::uint64_t removed = 0;
  std::map<StoreCopy::Name, std::uint64_t> counts;  ///< of the versions

  static StoreCopyHead of(const StoreCopy& copy);
  /// Whether the store had values in this copy that are newer than those in the other one.
  bool isLaterThan(const StoreCopyHead& other) const;
};

/// The folder of the copies. Each is a file for the owner alone, with a checksum: one that is damaged is none. The
/// newest is kept, the first of each of the last 5 hours and the first of each of the last 7 days in which there were
/// any, and the last 5 that a copy took the place of, or that knew more than the one after them: of later values, or of
/// another store. Any thread;
/// several processes may use it at once.
class StoreCopies {
 public:
  /// What a copy is called and what it was made of.
  struct Entry {
    std::string name;
    std::string purpose;  ///< for the user
    double date = 0;
    std::uint64_t friends = 0;
    bool isWhole = true;  ///< false: nothing else is known of it
  };

  /// In the data folder.
  static constexpr const char* FolderName = "copies";

  explicit StoreCopies(std::filesystem::path folder) : _folder(std::move(folder)) {}

  /// Keeps it as the newest, and of its hour and day where there is none yet; not when another program has kept a later
  /// copy of this store. What went wrong, if anything did.
  std::optional<std::string> keep(const StoreCopy& copy) const;
  /// Keeps it as one that another one takes the place of.
  std::optional<std::string> keepReplaced(const StoreCopy& copy) const;

  /// Puts another content in the place of a copy, with the date of that content. What went wrong, if anything did.
  std::optional<std::string> replace(std::string_view name, const StoreCopy& copy) const;
  std::optional<std::string> remove(std::string_view name) const;

  /// Of all copies, in any order.
  std::vector<std::string> names() const;
  /// Newest first.
  std::vector<Entry> list() const;
  std::optional<StoreCopy> read(std::string_view name) const;
  /// The newest that is whole.
  std::optional<StoreCopy> newest() const;
  /// Of the file that was written last, if it is whole so far: its values are not looked at.
  std::optional<StoreCopyHead> headOfNewest() const;
  /// When the newest was made; absent without one.
  std::optional<double> dateOfNewest() const;
  std::filesystem::path fileOf(std::string_view name) const;

 private:
  void prune(std::string_view prefix, std::size_t count) const;

  const std::filesystem::path _folder;
};

/// A date of the wall clock for people, in the user's time zone: "2026-11-22 12:30".
std::string dateText(double date);
/// "1 friend", "2 friends".
std::string friendsText(std::uint64_t friends);

}  // namespace pellor
