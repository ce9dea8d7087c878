// The observers to be told when a person answers to other identifiers than before.
#pragma once

#include <vector>

namespace pellor {

class PLPerson;

/// Told of persons whose GUID or set of destinations becomes another one. Called inside the operation that changes it,
/// so an observer must not edit persons.
class PLPersonIdentityObserver {
 public:
  virtual ~PLPersonIdentityObserver() = default;
  /// The person still shows the old identity.
  virtual void personIdentityWillChange(PLPerson& person) = 0;
  /// The person shows the new identity. Follows each `personIdentityWillChange`, with nothing in between.
  virtual void personIdentityDidChange(PLPerson& person) = 0;
};

/// The observers of one process: `process.local<PLPersonIdentityChanges>()`. Indexes by GUID or destination stay true
/// through this, whatever code edits a person. New persons are not announced: nobody can have filed them yet. Main
/// queue.
class PLPersonIdentityChanges {
 public:
  /// The observer is not owned; it removes itself before it goes. Not while an announcement is under way.
  void addObserver(PLPersonIdentityObserver& observer);
  /// The observer is never called again.
  void removeObserver(PLPersonIdentityObserver& observer);

  // Tell all observers, in the order of their registration.
  void announceWillChange(PLPerson& person);
  void announceDidChange(PLPerson& person);

 private:
  std::vector<PLPersonIdentityObserver*> _observers;
};

}  // namespace pellor
