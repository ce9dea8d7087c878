// Who has to know when a person answers to other identifiers than before.
#pragma once

#include <vector>

namespace pellor {

class PLPerson;

/// Told of persons whose GUID or set of destinations is another one now.
class PLPersonIdentityObserver {
 public:
  virtual ~PLPersonIdentityObserver() = default;
  /// The person's record still shows the old identity. It must not edit persons either.
  virtual void personIdentityWillChange(PLPerson& person) = 0;
  /// The person shows the new identity already. Called inside the operation that changed it, so it must not edit
  /// persons.
  virtual void personIdentityDidChange(PLPerson& person) = 0;
};

/// The observers of one process: `process.local<PLPersonIdentityChanges>()`. Indexes by GUID or destination stay true
/// through this, whoever edits a person. New persons are not announced: nobody can have filed them yet. Main queue.
class PLPersonIdentityChanges {
 public:
  /// The observer is not owned; it removes itself before it goes.
  void addObserver(PLPersonIdentityObserver& observer);
  /// The observer is never called again, not even by an announcement that is under way.
  void removeObserver(PLPersonIdentityObserver& observer);

  /// Tell all observers, in the order of their registration.
  void announceWillChange(PLPerson& person);
  void announceDidChange(PLPerson& person);

 private:
  void announce(PLPerson& person, void (PLPersonIdentityObserver::*change)(PLPerson&));

  std::vector<PLPersonIdentityObserver*> _observers;
};

}  // namespace pellor
