#include "tests/e2e/RaceList.h"

#include <nlohmann/json.hpp>

namespace pellor {
namespace {

using Json = nlohmann::json;

std::string textIn(const Json& value) { return value.is_null() ? std::string() : value.get<std::string>(); }

RaceFriend friendIn(const Json& json) {
  RaceFriend found;
  found.contact = {textIn(json.at("name")), json.at("destinations")};
  found.key = textIn(json.at("guid"));
  if (found.key.empty() && !found.contact.destinations.empty()) found.key = found.contact.destinations.front();
  if (!json.at("replyAs").is_null()) found.fields[ReplyField] = json.at("replyAs");
  for (const auto& [key, value] : json.at("metadata").items()) found.fields[metadataField(key)] = value;
  return found;
}

RacePage pageIn(const Json& json) {
  RacePage page{textIn(json.at("title")), {}};
  for (const Json& slot : json.at("slots")) {
    page.slots.push_back(slot.is_null() ? std::nullopt : std::optional(friendIn(slot)));
  }
  return page;
}

}  // namespace

std::string textOf(const RacePlace& place) {
  return std::to_string(place.page + 1) + ":" + std::to_string(place.slot + 1);
}

std::optional<RaceList> raceListIn(const std::string& text) {
  try {
    const Json json = Json::parse(text);
    RaceList list{json.at("pageSize"), {}};
    for (const Json& page : json.at("pages")) list.pages.push_back(pageIn(page));
    return list;
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

std::vector<RacePlace> placesOf(const RaceList& list, const std::string& key) {
  std::vector<RacePlace> places;
  for (std::size_t page = 0; page < list.pages.size(); ++page) {
    for (std::size_t slot = 0; slot < list.pages[page].slots.size(); ++slot) {
      const RaceFriend* found = friendAt(list, {page, slot});
      if (found && found->key == key) places.push_back({page, slot});
    }
  }
  return places;
}

const RaceFriend* friendAt(const RaceList& list, const RacePlace& place) {
  if (place.page >= list.pages.size() || place.slot >= list.pages[place.page].slots.size()) return nullptr;
  const auto& slot = list.pages[place.page].slots[place.slot];
  return slot ? &*slot : nullptr;
}

std::string metadataField(const std::string& key) { return "meta " + key; }

}  // namespace pellor
