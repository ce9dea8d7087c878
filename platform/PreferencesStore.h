// Per-domain key/value preferences, shared by all processes of the user.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

#include "runtime/Value.h"

namespace pellor {

/// The three answers of a store that is asked for a value.
template <class T>
class PreferenceAnswer {
 public:
  static PreferenceAnswer some(T value) { return PreferenceAnswer(std::move(value), true); }
  static PreferenceAnswer none() { return PreferenceAnswer(std::nullopt, true); }
  static PreferenceAnswer unreadable() { return PreferenceAnswer(std::nullopt, false); }

  /// Whether the store answered at all: with a value or with "there is none".
  bool isReadable() const { return _readable; }
  /// The value; absent when there is none and when the store cannot be read.
  const std::optional<T>& value() const { return _value; }

 private:
  PreferenceAnswer(std::optional<T> value, bool readable) : _value(std::move(value)), _readable(readable) {}
  std::optional<T> _value;
  bool _readable;
};

/// What became of a value that was put aside.
struct PutAside {
  bool kept = false;              ///< a dated copy of the damaged value exists; only then may it be written over
  std::optional<Value> lastGood;  ///< the store's last good copy of the key; absent when there is none
};

/// The store. May be called from the main thread and save queues at once; each call is atomic. A process sees its own
/// values and those of other processes as of its last `synchronize` of the domain (or of its first read of it); others
/// see nothing of what it set before `synchronize` has succeeded.
class PreferencesStore {
 public:
  virtual ~PreferencesStore() = default;

  /// The stored value, none, or the answer that the store cannot be read. A stored value whose bytes do not decode
  /// reads as a value of kind data that holds those bytes.
  virtual PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) = 0;
  /// The value when it is an integer; none for a value of another kind.
  virtual PreferenceAnswer<std::int64_t> integerValue(std::string_view key, std::string_view domain) = 0;
  /// The value when it is a boolean; none for a value of another kind.
  virtual PreferenceAnswer<bool> booleanValue(std::string_view key, std::string_view domain) = 0;

  /// Keeps the value for the next `synchronize`, in place of one that was kept for the same key; absent removes the
  /// key.
  virtual void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) = 0;

  /// Writes what was set for the domain, all of it or nothing, and reads again what other processes wrote. True when
  /// nothing remains unwritten and the domain could be read. After a failure what was set stays to be written by the
  /// next call, and `copyValue` gives what is stored. True means that it survives the end of the process and of the
  /// system.
  virtual bool synchronize(std::string_view domain) = 0;

  /// Puts a damaged value aside: makes a dated copy of its bytes beside the store and gives the last value of the key
  /// that was written whole, none after its removal. The value itself stays until it is written over.
  virtual PutAside putAside(std::string_view key, std::string_view domain) = 0;

  /// One value of the process's own defaults for a domain, which are not shared and not synchronised; absent when
  /// unset.
  virtual std::optional<Value> persistentValueForKey(std::string_view key, std::string_view domain) = 0;
};

}  // namespace pellor
