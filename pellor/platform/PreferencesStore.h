// Per-domain key/value preferences, shared by all processes of the user.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/platform/Answer.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// How deep arrays and dictionaries of a value may be nested, and how many bytes it may take as a store writes it. A
/// store holds every value within these limits; one beyond them it need not write.
inline constexpr std::size_t DeepestPreference = 128;
inline constexpr std::size_t LongestPreference = std::size_t{256} << 20;

/// The answer of a store that is asked for a value.
template <class T>
using PreferenceAnswer = Answer<T>;

/// What became of a value that was put aside.
struct PutAside {
  bool kept = false;              ///< a dated copy of the damaged value exists; only then may it be written over
  std::optional<Value> lastGood;  ///< the store's last good copy of the key; absent when there is none
};

/// Names one write. A writer chooses a random `writer` once, and counts its writes: so it recognises its own write when
/// the store could not tell what became of it. Writer 0 stands for no writer.
struct PreferenceWriteID {
  std::uint64_t writer = 0;
  std::uint64_t number = 0;
  friend bool operator==(const PreferenceWriteID&, const PreferenceWriteID&) = default;
};

/// Which version of a key's value is stored. Each write of a key makes a version that the key never had before, in this
/// store or another (a `synchronize` of an equal value may write nothing). A key without a value has one without count.
struct PreferenceVersion {
  std::uint64_t store = 0;  ///< a random number that the store was given when it was made, never 0
  std::uint64_t count = 0;  ///< larger than that of any earlier version of the key in this store; 0: no value
  PreferenceWriteID write;  ///< which write made it; nobody's for one that was made without a name
  friend bool operator==(const PreferenceVersion&, const PreferenceVersion&) = default;
};

/// A stored value with its version.
struct VersionedPreference {
  std::optional<Value> value;  ///< absent when the key has none
  PreferenceVersion version;
};
/// By key.
using VersionedPreferences = std::map<std::string, VersionedPreference, std::less<>>;

/// What one `write` does with a key.
struct PreferenceChange {
  enum class Kind {
    set,     ///< stores `value`, as a new version
    remove,  ///< removes the key
    keep,    ///< leaves it alone: the write depends on its version only
  };
  Kind kind = Kind::keep;
  std::optional<Value> value;                 ///< for `set`
  std::optional<PreferenceVersion> madeFrom;  ///< the version that has to be stored; absent: any
};
/// By key.
using PreferenceChanges = std::map<std::string, PreferenceChange, std::less<>>;

/// What became of a `write`.
enum class PreferenceWriteOutcome {
  written,    ///< all of it is stored, and survives the end of the process and of the system
  overtaken,  ///< nothing was changed: a key has another version than the one that it was to be made from
  failed,     ///< nothing was changed, and will not be
  unknown,    ///< nobody can tell whether it was or still will be written, whole: its name in a later version tells
};
struct PreferenceWriteAnswer {
  PreferenceWriteOutcome outcome = PreferenceWriteOutcome::failed;
  VersionedPreferences written;  ///< when it was: the keys that were set or removed, as the store has them now
};

/// The store. May be called from the main thread and save queues at once; each call is atomic. A process sees its own
/// values and those of other processes as of its last `synchronize` of the domain (or of its first read of it); others
/// see no value that it set before `synchronize` has succeeded.
class PreferencesStore {
 public:
  virtual ~PreferencesStore() = default;

  /// The stored value, none, or the answer that the store cannot be read. A stored value whose bytes do not decode
  /// reads as a value of kind data that holds those bytes.
  virtual PreferenceAnswer<Value> copyValue(std::string_view key, std::string_view domain) = 0;
  /// The value when it is an integer; none for a value of another kind.
  PreferenceAnswer<std::int64_t> integerValue(std::string_view key, std::string_view domain) {
    return copyValue(key, domain).converted([](const Value& value) { return value.integer(); });
  }
  /// The value when it is a boolean; none for a value of another kind.
  PreferenceAnswer<bool> booleanValue(std::string_view key, std::string_view domain) {
    return copyValue(key, domain).converted([](const Value& value) { return value.boolean(); });
  }

  /// Keeps the value for the next `synchronize`, in place of an earlier value of this key that still waits; absent
  /// removes the key.
  virtual void setValue(std::string_view key, std::optional<Value> value, std::string_view domain) = 0;

  /// Writes what was set for the domain, all of it or nothing, whatever is stored, and reads again what other processes
  /// wrote. True when it was written and the domain could be read; that means that it survives the end of the process
  /// and of the system. After a failure what was set is dropped, and `copyValue` gives what is stored: a value that
  /// waited could go over a newer one.
  virtual bool synchronize(std::string_view domain) = 0;

  /// What is stored under each of the keys at one moment, now, with its version; what was set and not synchronised does
  /// not show. A long array has the very chunk objects of its last reading or writing, as far as they did not change.
  /// The answer that the store cannot be read counts for all keys.
  virtual PreferenceAnswer<VersionedPreferences> read(std::span<const std::string> keys, std::string_view domain) = 0;

  /// Stores all changes or none, as write `id`, when every key has the version that its change was made from, and
  /// returns when that is certain. Takes no part in what was set and not synchronised. After `written`, `copyValue` and
  /// `read` of this process give what was written or something later; before, they do not. The store remembers no
  /// version for the caller.
  virtual PreferenceWriteAnswer write(const PreferenceChanges& changes, PreferenceWriteID id,
                                      std::string_view domain) = 0;

  /// Puts a damaged value aside: makes a dated copy of its bytes beside the store and gives the last value of the key
  /// that was written whole, none after its removal. The value itself stays until it is written over.
  virtual PutAside putAside(std::string_view key, std::string_view domain) = 0;

  /// Whether the store may only be read, as far as that is known since it was read or written last: then every write
  /// fails until somebody changes that. False for a store that is away or fails, where trying again is of use. Waits,
  /// if at all, where it was read-only and may be so no longer.
  virtual bool isReadOnly() { return false; }
  /// What went wrong last and has not worked since, in one line for the user; empty when all is well, and for a store
  /// that cannot tell. Never waits.
  virtual std::string lastError() const { return {}; }

  /// One value of the process's own defaults for a domain, which are not shared and not synchronised; absent when
  /// unset. A store without such defaults leaves this as it is.
  virtual std::optional<Value> persistentValueForKey(std::string_view /*key*/, std::string_view /*domain*/) {
    return std::nullopt;
  }
};

}  // namespace pellor
