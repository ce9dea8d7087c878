// A contact as a test writes it down.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pellor/platform/AddressBookStore.h"

namespace pellor {

/// A phone number or e-mail address of a contact.
struct LabelledValue {
  std::string label;
  std::string value;
  friend bool operator==(const LabelledValue&, const LabelledValue&) = default;
};

struct TestContact {
  enum class Kind { person, organization };

  std::string guid = {};  ///< empty: the database chooses one
  Kind kind = Kind::person;
  std::optional<std::string> first = {};
  std::optional<std::string> last = {};
  std::optional<std::string> nickname = {};
  std::optional<std::string> organization = {};
  std::optional<std::string> note = {};
  std::vector<LabelledValue> phones = {};   ///< empty: the property is unset
  std::vector<LabelledValue> emails = {};   ///< empty: the property is unset
  std::int32_t recordID = InvalidRecordID;  ///< InvalidRecordID: the database chooses one
  bool isPreferredForName = false;          ///< whether it names the records that it is linked with
};

}  // namespace pellor
