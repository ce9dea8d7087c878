// Finds contacts by what the user calls them.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Choice.h"
#include "cli/FriendSearch.h"
#include "cli/Session.h"
#include "cli/WordBeginnings.h"

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

/// Every record whose name, number, address or GUID contains the pattern; all for an absent one. By name.
std::vector<ContactEntry> contactsMatching(Session& session, const std::optional<std::string>& pattern);

/// The persons that have the number or address, one record each.
std::vector<ContactEntry> contactsWithDestination(Session& session, const std::string& destination);

/// Whether the person can be reached by any number or address, linked records included.
bool isReachable(Session& session, const ContactEntry& contact);

/// Finds contacts; what names begin with is put together when it is needed first.
class ContactFinder {
 public:
  explicit ContactFinder(Session& session);
  ~ContactFinder();

  /// The one person that `who` names: by GUID, number or address, whole name, or the beginning of the name. The first
  /// of these that fits anybody decides; of several it is the one whom the user chooses, or who has the number N of
  /// WHO#N. Absent when nobody fits; throws CommandError when nobody is chosen, AmbiguousError where the user cannot be
  /// asked.
  std::optional<ContactEntry> named(const std::string& who);
  /// Whether `who` is the GUID of a contact.
  bool isGuid(const std::string& who);

 private:
  std::vector<RecordRef> search(AddressBook& addressBook, const std::string& who);
  std::vector<ContactEntry> fitting(const std::string& who);
  bool isCalled(const std::string& who, const NumberedWho& numbered);
  Choice choiceAmong(const std::string& who, std::vector<ContactEntry> found);
  std::vector<RecordRef> withBeginning(AddressBook& addressBook, const std::string& who);

  Session& _session;
  std::unique_ptr<WordBeginnings> _beginnings;  ///< of names, by record identifier
};

/// `ContactFinder::named`, for one search.
std::optional<ContactEntry> contactNamed(Session& session, const std::string& who);

/// The friend that the contact is, by its GUID or that of a linked record; absent when it is none.
std::optional<FriendAt> friendThatIs(FriendFinder& friends, const ContactEntry& contact);

}  // namespace pellor::cli
