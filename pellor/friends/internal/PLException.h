// A decision of a manager that a user took back, and that is not to be made again.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "pellor/friends/PLStepClient.h"
#include "pellor/runtime/Value.h"

namespace pellor {

/// What tells a friend, or a record, from others.
struct PLCardIdentity {
  std::string guid = {};                       ///< empty without one
  std::string name = {};                       ///< empty without one
  std::vector<std::string> destinations = {};  ///< ascending
  friend bool operator==(const PLCardIdentity&, const PLCardIdentity&) = default;
};

/// Of a friend's stored form.
PLCardIdentity cardIdentityOf(const Dictionary& form);

/// An exception holds as long as its evidence is what it was, which is for each kind:
///
/// - relinked: the record is not for the friend, while its card is as `record` tells, if there is one, and the friend
///   has the link, the name and the destinations of `person`. Meanwhile the friend keeps that link, unless another
///   record fits.
/// - unlinked: the friends with the GUID of `person` keep it, while no record has it.
/// - deduplicated: one friend more than one may have the GUID of `person`, while that many friends have it.
/// - cleanedUp: the friend with the GUID of `person`, or without one with its name, stays, while it is in the list and
///   has no destinations.
struct PLException {
  std::string id = {};  ///< of the step that was taken back
  PLDecisionKind kind = PLDecisionKind::relinked;
  PLCardIdentity person = {};
  PLCardIdentity record = {};  ///< of relinked
};

/// As it is stored, an element of an array that is attached to the list.
Dictionary dictionaryOf(const PLException& exception);
/// Absent for a value that is none, or one of a later version.
std::optional<PLException> exceptionOf(const Value& value);

}  // namespace pellor
