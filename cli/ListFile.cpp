#include "cli/ListFile.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "cli/Output.h"
#include "cli/ValueForm.h"
#include "pellor/linux/text/TerminalText.h"
#include "pellor/linux/text/TextLimits.h"

namespace pellor::cli {
namespace {

constexpr const char* Format = "pellor friend list";
constexpr int FormatVersion = 1;
constexpr std::uint64_t MostPages = 65536;
// What the store has around a value of a friend, and what a friend may take of a row that 32 share.
constexpr ValueLimits FriendLimits{.depth = 125, .length = std::size_t{4} << 20};
// Deeper than any file that is read.
constexpr std::size_t DeepestFile = 160;

using OptionalText = std::optional<std::string> ExportedFriend::*;

/// A member of a friend that is a text, and what it stands for.
struct TextMember {
  std::string_view name;
  OptionalText text;
};
constexpr std::array TextMembers = {
    TextMember{"name", &ExportedFriend::name},
    TextMember{"monogram", &ExportedFriend::monogram},
    TextMember{"preferredDestination", &ExportedFriend::chosenNumber},
    TextMember{"replyAs", &ExportedFriend::replyAs},
    TextMember{"guid", &ExportedFriend::contactGUID},
};
constexpr std::string_view DestinationsMember = "destinations";
constexpr std::string_view MetadataMember = "metadata";

const TextMember* textMemberNamed(std::string_view name) {
  const auto* found = std::ranges::find(TextMembers, name, &TextMember::name);
  return found == TextMembers.end() ? nullptr : found;
}

bool isMember(std::string_view name) {
  return textMemberNamed(name) || name == DestinationsMember || name == MetadataMember;
}

// --- Writing ---

Json jsonOf(const ExportedFriend& person) {
  Json result = Json::object();
  const auto put = [&](const char* name) {
    if (const auto& text = person.*textMemberNamed(name)->text) result[name] = valueFormOf(Value(*text));
  };
  put("name");
  put("monogram");
  if (!person.destinations.empty()) result[DestinationsMember] = person.destinations;
  put("preferredDestination");
  put("replyAs");
  put("guid");
  if (!person.metadata.empty()) result[MetadataMember] = valueFormOf(Value(person.metadata));
  for (const auto& [key, value] : person.otherEntries)
    result[isMember(key) ? "$" + key : keyFormOf(key)] = valueFormOf(value);
  return result;
}

Json jsonOf(const ExportedPage& page) {
  Json people = Json::array();
  for (const auto& each : page.friends) people.push_back(each ? jsonOf(*each) : Json(nullptr));
  return {{"title", page.title.empty() ? Json(nullptr) : Json(page.title)}, {"slots", std::move(people)}};
}

// --- Reading ---

std::string lineAndColumn(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  const auto lineStart = before.rfind('\n');
  const std::size_t column = lineStart == std::string_view::npos ? offset : offset - lineStart - 1;
  return "line " + std::to_string(std::ranges::count(before, '\n') + 1) + ", column " + std::to_string(column + 1);
}

/// Looks at a text while it is parsed: members that an object has twice, and nesting that is too deep.
class ParseWatch {
 public:
  bool operator()(int depth, Json::parse_event_t event, const Json& parsed) {
    if (static_cast<std::size_t>(depth) > DeepestFile) throw ListFileError("nested deeper than a friend list may be");
    if (event == Json::parse_event_t::object_start) _keys.emplace_back();
    if (event == Json::parse_event_t::object_end) _keys.pop_back();
    if (event == Json::parse_event_t::key && !_keys.back().insert(parsed.get<std::string>()).second)
      throw ListFileError("the member " + inQuotes(parsed.get<std::string>()) + " is there twice");
    return true;
  }

 private:
  std::vector<std::set<std::string>> _keys;  // of the objects that are open
};

/// Characters of the text up to there were taken by the parser.
class CountingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = const char&;

  CountingIterator(const char* at, std::size_t* taken) : _at(at), _taken(taken) {}
  const char& operator*() const { return *_at; }
  CountingIterator& operator++() {
    ++_at;
    ++*_taken;
    return *this;
  }
  bool operator==(const CountingIterator& other) const { return _at == other._at; }
  bool operator!=(const CountingIterator& other) const { return _at != other._at; }

 private:
  const char* _at;
  std::size_t* _taken;
};

// Of what the parser says, what stands behind the place.
std::string reasonIn(const Json::parse_error& error) {
  const std::string text = error.what();
  const auto place = text.find("column ");
  const auto reason = place == std::string::npos ? place : text.find(": ", place);
  return "it is no JSON: " + printable(reason == std::string::npos ? text : text.substr(reason + 2));
}

Json parse(std::string_view text) {
  if (text.starts_with("BEGIN:VCARD")) throw ListFileError("it has contacts: pellor contacts import takes them");
  std::size_t taken = 0;
  try {
    return Json::parse(CountingIterator(text.data(), &taken), CountingIterator(text.data() + text.size(), &taken),
                       ParseWatch());
  } catch (const Json::parse_error& error) {
    throw ListFileError(lineAndColumn(text, error.byte > 0 ? error.byte - 1 : 0) + ": " + reasonIn(error));
  } catch (const Json::out_of_range&) {
    throw ListFileError(lineAndColumn(text, taken > 0 ? taken - 1 : 0) + ": a number that is too large");
  } catch (const ListFileError& error) {
    throw ListFileError(lineAndColumn(text, taken > 0 ? taken - 1 : 0) + ": " + error.what());
  }
}

/// Reads what was parsed.
class Reader {
 public:
  ListFileReading read(const Json& json) {
    requireFormat(json);
    const Json& size = json.contains("pageSize") ? json["pageSize"] : Json(nullptr);
    const bool isSize = size.is_number_unsigned() && size.get<std::uint64_t>() >= 1 &&
                        size.get<std::uint64_t>() <= ExportedList::LargestPageSize;
    if (!isSize)
      throw ListFileError("pageSize is no number from 1 to " + std::to_string(ExportedList::LargestPageSize));
    _reading.list.pageSize = size.get<std::uint64_t>();
    readPages(json.contains("pages") ? json["pages"] : Json(nullptr));
    nameOthers(json, {"format", "version", "pageSize", "pages"}, "");
    return std::move(_reading);
  }

 private:
  static void requireFormat(const Json& json) {
    if (!json.is_object() || !json.contains("format") || json["format"] != Format)
      throw ListFileError("it is no exported friend list: \"pellor export\" makes one");
    const Json& version = json.contains("version") ? json["version"] : Json(nullptr);
    if (version == FormatVersion) return;
    if (!version.is_number_unsigned() || version.get<std::uint64_t>() == 0)
      throw ListFileError("version is no number from 1 on");
    throw ListFileError("a later version of pellor made it: it has version " + version.dump() +
                        ", and this one reads version " + std::to_string(FormatVersion));
  }

  void readPages(const Json& pages) {
    if (!pages.is_array()) throw ListFileError("pages is no array");
    if (pages.size() > MostPages) throw ListFileError("there are more than " + std::to_string(MostPages) + " pages");
    for (const Json& page : pages) readPage(page, "page " + std::to_string(_reading.list.pages.size() + 1));
  }

  void readPage(const Json& json, const std::string& where) {
    if (!json.is_object()) throw ListFileError(where + ": it is no object");
    ExportedPage page;
    if (json.contains("title") && !json["title"].is_null()) page.title = textIn(json["title"], where + ": title");
    const Json slots = json.contains("slots") ? json["slots"] : Json::array();
    if (!slots.is_array()) throw ListFileError(where + ": slots is no array");
    if (slots.size() > _reading.list.pageSize)
      throw ListFileError(where + ": it has " + std::to_string(slots.size()) + " slots, and pageSize is " +
                          std::to_string(_reading.list.pageSize));
    for (const Json& slot : slots)
      page.friends.push_back(slotIn(slot, where + ", slot " + std::to_string(page.friends.size() + 1)));
    nameOthers(json, {"title", "slots"}, where + ": ");
    _reading.list.pages.push_back(std::move(page));
  }

  std::optional<ExportedFriend> slotIn(const Json& json, const std::string& where) {
    if (json.is_null()) return std::nullopt;
    if (!json.is_object()) throw ListFileError(where + ": it is neither a friend nor null");
    ExportedFriend person;
    ValueLimits limits = FriendLimits;
    for (const auto& [name, content] : json.items()) {
      if (content.is_null()) continue;
      const std::string of = where + ": " + printable(name);
      if (isMember(name)) {
        readMember(person, name, content, limits, of);
      } else if (const std::string key = otherKey(name); isOtherEntry(key)) {
        person.otherEntries.insert_or_assign(key, valueFrom(content, limits, of));
      } else {
        _reading.leftOut.push_back(where + ": member " + inQuotes(name));
      }
    }
    requireSomebody(person, where);
    return person;
  }

  static void readMember(ExportedFriend& person, const std::string& name, const Json& content, ValueLimits& limits,
                         const std::string& of) {
    const TextMember* member = textMemberNamed(name);
    if (member) requireName(name, textIn(content, of), of);
    if (name == DestinationsMember) requireTexts(content, of);
    const Value value = valueFrom(content, limits, of);
    if (member) {
      person.*member->text = *value.string();
    } else if (name == DestinationsMember) {
      for (const Value& each : *value.array()) person.destinations.push_back(*each.string());
    } else if (value.dictionary()) {
      person.metadata = *value.dictionary();
    } else {
      throw ListFileError(of + " is no object");
    }
  }

  // Of a member that is none of those above: a key that is called like one of them, or begins with "$", has one more.
  static std::string otherKey(const std::string& name) { return name.starts_with('$') ? name.substr(1) : name; }

  static void requireSomebody(const ExportedFriend& person, const std::string& where) {
    const bool isSomebody =
        !person.destinations.empty() || !person.name.value_or("").empty() || !person.contactGUID.value_or("").empty();
    if (!isSomebody) throw ListFileError(where + ": the friend has neither a name nor a destination nor a guid");
  }

  static Value valueFrom(const Json& json, ValueLimits& limits, const std::string& where) {
    try {
      return valueIn(json, limits);
    } catch (const ValueFormError& error) {
      throw ListFileError(where + " " + printable(error.what()));
    }
  }

  static void requireName(const std::string& member, const std::string& text, const std::string& where) {
    if (member == "name" && nameWithinLimit(text).size() < text.size())
      throw ListFileError(where + " has more than " + std::to_string(LongestName) + " characters");
  }

  static void requireTexts(const Json& json, const std::string& where) {
    if (!json.is_array()) throw ListFileError(where + " is no array");
    for (const Json& each : json) {
      const std::string text = textIn(each, where);
      if (isTooLongForDestination(text)) throw ListFileError(where + " has one that is too long");
    }
  }

  static std::string textIn(const Json& json, const std::string& where) {
    if (!json.is_string()) throw ListFileError(where + " is no text");
    return json.get<std::string>();
  }

  void nameOthers(const Json& json, std::initializer_list<std::string_view> known, const std::string& where) {
    for (const auto& [name, content] : json.items()) {
      if (std::ranges::find(known, name) == known.end()) _reading.leftOut.push_back(where + "member " + inQuotes(name));
    }
  }

  ListFileReading _reading;
};

}  // namespace

ListFileReading readListFile(std::string_view text) {
  if (text.size() > LongestListFile) throw ListFileError("it is larger than 64 MB");
  return Reader().read(parse(text));
}

ListFileText textOf(const ExportedList& list) {
  Json pages = Json::array();
  for (const ExportedPage& page : list.pages) pages.push_back(jsonOf(page));
  const Json json = {
      {"format", Format}, {"version", FormatVersion}, {"pageSize", list.pageSize}, {"pages", std::move(pages)}};
  const auto dumped = [&](Json::error_handler_t handler) {
    return visibleJson(json.dump(2, ' ', false, handler)) + "\n";
  };
  try {
    return {dumped(Json::error_handler_t::strict), false};
  } catch (const Json::type_error&) {
    return {dumped(Json::error_handler_t::replace), true};
  }
}

}  // namespace pellor::cli
