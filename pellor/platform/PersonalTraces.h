// What a platform keeps of people beside the stored values, and how it goes.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "pellor/runtime/Value.h"

namespace pellor {

/// A person of whom nothing is to be kept, as the list knows people: a platform finds the person by texts, and has the
/// list take the person out of copies of its values. One thread at a time; needs no queue of the list.
class ForgottenTraits {
 public:
  virtual ~ForgottenTraits() = default;

  virtual const std::string& domain() const = 0;                  ///< of the list; others may have the person
  virtual const std::set<std::string>& guids() const = 0;         ///< of contacts
  virtual const std::set<std::string>& destinations() const = 0;  ///< numbers and addresses, in canonical form
  virtual const std::set<std::string>& names() const = 0;

  /// Takes from values of the domain, by key, what the person was called and reached by then.
  virtual void learn(const Dictionary& values) = 0;
  /// The values among them that change when the person is taken out; the others tell nothing of the person.
  virtual Dictionary without(const Dictionary& values) const = 0;
};

/// Something that is still there after a person was erased.
struct KeptTrace {
  std::string where;   ///< for the user: "the log of the store"
  std::string reason;  ///< why it is there, and what makes it go
  friend bool operator==(const KeptTrace&, const KeptTrace&) = default;
};

/// Erases people from all that is no stored value: free pages and logs of files, copies, memories of answers and of
/// numbers, indexes.
class PersonalTraces {
 public:
  /// What became of a person, for the user.
  struct Erasure {
    std::vector<std::string> found = {};  ///< where something told of the person: "2 copies of the store"
    std::vector<KeptTrace> kept = {};     ///< what is still there, or may be
  };
  using ErasedHandler = std::function<void(const Erasure&)>;

  virtual ~PersonalTraces() = default;

  /// Erases all that is kept of the person, once the stored values have nothing of the person any more. What was
  /// interrupted is made up for by another call. Never waits: the work is done on a queue of its own; `erased` is
  /// called once on the main queue, after the call, and not when the process ends before. Main queue.
  virtual void erase(std::shared_ptr<ForgottenTraits> person, ErasedHandler erased) = 0;
  /// Where something tells of the person; changes nothing. Reads files: for a user who waits for the answer. What it
  /// learns of the person it leaves with `person`. Main queue.
  virtual std::vector<std::string> find(ForgottenTraits& person) = 0;
};

}  // namespace pellor
