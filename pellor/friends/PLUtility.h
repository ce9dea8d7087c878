// Helpers for names, numbers and digests that clients may use as well.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "pellor/platform/AddressBookStore.h"
#include "pellor/platform/PersonNameFormatter.h"

namespace pellor {

class PLFriendsManager;

/// Destination counts by record identifier: what the add checks remember between calls. Owned by the caller, never
/// refreshed by the library, not shared between threads.
using PersonValueCache = std::map<std::int32_t, std::uint64_t>;

/// Operations without state of their own. What takes a record or a handle is used on the main queue; the rest on any
/// thread that has a current process.
class PLUtility {
 public:
  PLUtility() = delete;

  /// Whether the record is linked with others. False for no record.
  static bool personHasLinkages(const RecordRef& record);

  /// The initials of a person, in the upper case of the user's locale, from the linked record whose name is to be
  /// shown. Absent for no record, for an organisation, when no linked record has a name, and for a name that cannot be
  /// abbreviated.
  static std::optional<std::string> initialsForPerson(const RecordRef& record);

  /// The first letter of a Latin text in the upper case of the user's locale, which may be longer ("ß" gives "SS"). A
  /// combining mark counts as a letter, a character beyond U+FFFF does not. Absent for an absent or empty text, one
  /// that holds letters of other scripts or any emoji, and one that begins with something else than a letter.
  static std::optional<std::string> initialForString(const std::optional<std::string>& text);

  /// Whether the text holds neither letters of other scripts than Latin nor emoji. True for an absent text.
  static bool isRomanString(const std::optional<std::string>& text);

  /// The SHA-1 digest of the bytes in base64: 28 characters. Not for anything that must withstand an attacker.
  static std::string hashFromData(std::span<const std::uint8_t> data);

  /// A short form of a phone number for display: without the country code for numbers of the home country. A text that
  /// is no number is given back unchanged.
  static std::string compressPhoneNumberString(std::string_view number);

  /// `shouldAllowAddingFriendWithRecordID:withFriendListManager:addressBook:personValueCache:`. Whether a record may be
  /// offered as a new friend: it is no friend of `manager`, and it has a destination. With no manager only the
  /// destinations decide. With no handle the record is nobody's, and the answer true. The count of destinations is
  /// taken from `cache`, and entered there when it is missing.
  static bool shouldAllowAddingFriendWithRecordIDWithFriendListManagerAddressBookPersonValueCache(
      std::int32_t recordID, PLFriendsManager* manager, AddressBook* addressBook, PersonValueCache& cache);

 private:
  /// The process's formatter of initials.
  static PersonNameFormatter& _nameFormatter();
};

}  // namespace pellor
