#include "cli/JsonForms.h"

#include <array>
#include <cmath>
#include <ctime>
#include <nlohmann/json.hpp>

#include "cli/Base64.h"
#include "pellor/runtime/WallClock.h"

namespace pellor::cli {
namespace {

std::string utc(const Date& date) {
  const double seconds = std::floor(date.seconds + SecondsFrom1970To2001);
  // A time that no calendar has is given as it is stored.
  if (!(std::abs(seconds) < 1e11)) return std::to_string(date.seconds);
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  std::array<char, 32> text{};
  ::gmtime_r(&time, &parts);
  std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text.data();
}

Json jsonOfEach(const Array& values) {
  Json result = Json::array();
  for (const Value& value : values) result.push_back(jsonOf(value));
  return result;
}

Json jsonOfEach(const Dictionary& values) {
  Json result = Json::object();
  for (const auto& [key, value] : values) result[key] = jsonOf(value);
  return result;
}

// Contacts and friends are the objects with a GUID and destinations.
void addPhotos(AddressBook& addressBook, Json& json) {
  if (!json.is_object() || !json.contains("guid") || !json.contains("destinations")) {
    for (Json& part : json) {
      if (part.is_structured()) addPhotos(addressBook, part);
    }
    return;
  }
  const Json& guid = json["guid"];
  const RecordRef record = guid.is_string() ? addressBook.copyPersonMatchingGUID(guid.get<std::string>()) : nullptr;
  json["photo"] = jsonOf(record ? record->photo() : std::nullopt);
}

}  // namespace

Json textOrNull(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

Json jsonOf(const std::optional<std::string>& text) { return text ? Json(*text) : Json(nullptr); }

Json jsonOf(const Place& place) { return {{"page", place.page}, {"slot", place.slot}}; }

Json jsonOf(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::boolean:
      return *value.boolean();
    case Value::Kind::integer:
      return *value.integer();
    case Value::Kind::real:
      return *value.real();
    case Value::Kind::string:
      return *value.string();
    case Value::Kind::data:
      return base64(*value.data());
    case Value::Kind::date:
      return utc(*value.date());
    case Value::Kind::array:
      return jsonOfEach(*value.array());
    case Value::Kind::dictionary:
      return jsonOfEach(*value.dictionary());
  }
  return nullptr;
}

Json jsonOf(const Friend& person) {
  return {{"guid", jsonOf(person.contactGUID)},
          {"name", textOrNull(person.name)},
          {"monogram", textOrNull(person.monogram)},
          {"primaryDestination", jsonOf(primaryDestination(person))},
          {"preferredDestination", jsonOf(person.chosenNumber)},
          {"shownDestination", textOrNull(person.destination)},
          {"destinations", person.destinations},
          {"replyAs", jsonOf(person.replyAs)},
          {"metadata", jsonOfEach(person.metadata)}};
}

Json jsonOf(const FriendAt& found) {
  Json result = jsonOf(found.place);
  result["friend"] = jsonOf(*found.person);
  return result;
}

Json jsonOf(const ContactEntry& contact, bool isFriend) {
  Json linked = Json::array();
  for (const std::string& guid : *contact.personGuids) {
    if (guid != contact.guid) linked.push_back(guid);
  }
  return {{"guid", contact.guid},
          {"name", jsonOf(contact.name)},
          {"destinations", contact.destinations},
          {"linkedGuids", std::move(linked)},
          {"isFriend", isFriend}};
}

Json jsonOf(const std::optional<ContactPhoto>& photo) {
  if (!photo) return nullptr;
  const std::optional<std::string> type = photo->type.empty() ? std::nullopt : std::optional(photo->type);
  if (photo->bytes.empty()) return {{"type", jsonOf(type)}, {"location", photo->location}};
  return {{"type", jsonOf(type)}, {"base64", base64(photo->bytes)}};
}

Json withPhotos(Session& session, Json answer, bool hasPhotos) {
  // Within one look at the contacts a file of many cards is read once.
  if (hasPhotos) session.withAddressBook([&](AddressBook& addressBook) { addPhotos(addressBook, answer); });
  return answer;
}

}  // namespace pellor::cli
