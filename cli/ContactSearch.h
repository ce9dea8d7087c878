// Finds contacts by what the user calls them.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Choice.h"
#include "cli/FriendSearch.h"
#include "cli/Session.h"
#include "pellor/platform/ContactSearch.h"

namespace pellor::cli {

/// One record of the address book: plain values, which outlive the handle.
struct ContactEntry {
  std::string guid;
  std::optional<std::string> name;
  std::vector<std::string> destinations;  ///< of this record, numbers first, as they are written
  /// The GUIDs of all records of the same person, this one's included. Records of one person share them.
  std::shared_ptr<const std::vector<std::string>> personGuids;
};

/// What to call a contact: its name, else its first number or address, else its GUID.
std::string nameOf(const ContactEntry& contact);

/// The records of the people whom a search for the pattern finds, the best fit first, and behind them by name all
/// others whose name, number or address contains it, or from four characters on whose GUID. All by name for an absent
/// one.
std::vector<ContactEntry> contactsMatching(Session& session, const std::optional<std::string>& pattern);

/// The persons that have the number or address, one record each.
std::vector<ContactEntry> contactsWithDestination(Session& session, const std::string& destination);

/// Finds contacts.
class ContactFinder {
 public:
  explicit ContactFinder(Session& session);

  /// The one person that `who` names (`contactsNamed`); of several the one whom the user chooses, or who has the number
  /// N of WHO#N. Absent when nobody fits; throws CommandError when nobody is chosen, AmbiguousError where the user
  /// cannot be asked.
  std::optional<ContactEntry> named(const std::string& who);
  /// As `named`; a text that may be added itself, as a number or an address of nobody's, is no part of one.
  std::optional<ContactEntry> namedToAdd(const std::string& who);
  /// The name that is nearest to what was typed; empty when none is near.
  std::string nearestName(const std::string& who);
  /// Whether `who` is the GUID of a contact.
  bool isGuid(const std::string& who);

 private:
  std::vector<FoundContact> fitting(const std::string& who, ContactFit worst);
  bool isCalled(const std::string& who, const NumberedWho& numbered);
  std::optional<ContactEntry> named(const std::string& who, ContactFit worst);
  std::optional<ContactEntry> entryFor(const std::string& guid);
  static Choice choiceAmong(const std::string& who, const std::vector<FoundContact>& found);

  Session& _session;
};

/// What is wrong with a text that names nobody to add: it may have been mistyped, else it is no number either.
std::string nobodyCalled(ContactFinder& contacts, const std::string& who);

/// The friend that the contact is, by its GUID or that of a linked record; absent when it is none.
std::optional<FriendAt> friendThatIs(FriendFinder& friends, const ContactEntry& contact);

}  // namespace pellor::cli
