#include "pellor/linux/Configuration.h"

namespace pellor {
namespace {
// What the parser takes for granted of a text, and what not every text keeps.
struct UnmetAssumption {};
[[noreturn]] void assumptionIsUnmet() { throw UnmetAssumption(); }
}  // namespace
}  // namespace pellor

// In a release build it would go on as if it were so.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#define TOML_ASSERT(assumption) ((assumption) ? void() : pellor::assumptionIsUnmet())
#include <toml++/toml.h>
#pragma pop_macro("NDEBUG")

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <sstream>
#include <utility>

#include "pellor/linux/files/internal/RegularFile.h"
#include "pellor/linux/internal/UnquotedLetter.h"
#include "pellor/linux/preferences/StoreRegion.h"
#include "pellor/runtime/Fatal.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using Kind = ConfigurationKind;

constexpr std::array Keys = {
    ConfigurationKey{"contacts", Kind::path, "", "",
                     "the folder of vCard files, or one such file; unset: \"contacts\" in the data folder"},
    ConfigurationKey{"data", Kind::path, "", "", "the data folder; unset: $XDG_DATA_HOME/pellor"},
    ConfigurationKey{"domain", Kind::text, "org.tapnote.TN", "", "the preferences domain of the friend list"},
    ConfigurationKey{"region", Kind::region, "", "", "the region of a new store, by which numbers are read"},
    ConfigurationKey{"service", Kind::text, "", "",
                     "the messaging service whose users are reachable; unset: what reachability chooses"},
    ConfigurationKey{"address-book", Kind::choice, "vdir", "vdir eds", "where the contacts are"},
    ConfigurationKey{"store", Kind::choice, "sqlite", "sqlite postgresql", "where the list is kept"},
    ConfigurationKey{"bus", Kind::choice, "folder", "folder session postgresql",
                     "how programs hear of each other; unset, with store = \"postgresql\": by that too"},
    ConfigurationKey{"log", Kind::choice, "none", "none journal", "where the log goes"},
    ConfigurationKey{"reachability", Kind::choice, "none", "none matrix ldap",
                     "who tells whether somebody is reachable"},
    ConfigurationKey{"paired-device", Kind::choice, "none", "none mqtt", "how changes get to the paired device"},
    ConfigurationKey{"eds.source", Kind::text, "", "", "the UID of the address book; unset: the default one"},
    ConfigurationKey{"eds.wait", Kind::seconds, "2", "", "how long the first look at the contacts waits for an answer"},
    ConfigurationKey{"postgresql.connection", Kind::text, "", "", "\"host=... dbname=... user=...\", or a URI"},
    ConfigurationKey{"session-bus.address", Kind::text, "", "", "the address of the bus; unset: the user's own"},
    ConfigurationKey{"journal.debug", Kind::flag, "false", "",
                     "whether names and numbers go there too, as debug entries"},
    ConfigurationKey{"matrix.url", Kind::text, "", "", "the identity service: https://id.example.org"},
    ConfigurationKey{"matrix.token-file", Kind::path, "", "", "a file with the access token of your account there"},
    ConfigurationKey{"matrix.ca-file", Kind::path, "", "", "authorities to trust in place of the system's, in PEM"},
    ConfigurationKey{"matrix.plain-http", Kind::flag, "false", "", "whether to speak http to other machines"},
    ConfigurationKey{"matrix.plain-addresses", Kind::flag, "false", "",
                     "whether to send addresses that are not hashed"},
    ConfigurationKey{"ldap.url", Kind::text, "", "", "the directory: ldaps://ldap.example.org"},
    ConfigurationKey{"ldap.base", Kind::text, "", "", "where people are: ou=people,dc=example,dc=org"},
    ConfigurationKey{"ldap.bind-name", Kind::text, "", "", "as whom to log in; unset: as nobody"},
    ConfigurationKey{"ldap.password-file", Kind::path, "", "", "a file with the password of that name"},
    ConfigurationKey{"ldap.start-tls", Kind::flag, "false", "", "whether a connection of ldap: is to be encrypted"},
    ConfigurationKey{"ldap.plain", Kind::flag, "false", "", "whether to speak ldap: to other machines without that"},
    ConfigurationKey{"ldap.ca-file", Kind::path, "", "", "authorities to trust in place of the system's, in PEM"},
    ConfigurationKey{"ldap.condition", Kind::text, "", "", "what else entries have to meet: (objectClass=person)"},
    ConfigurationKey{"ldap.email-attributes", Kind::text, "mail", "", "where addresses are, separated by spaces"},
    ConfigurationKey{"ldap.phone-attributes", Kind::text, "telephoneNumber mobile", "", "the same for numbers"},
    ConfigurationKey{"mqtt.host", Kind::text, "localhost", "",
                     "the broker, by a name that its certificate is valid for"},
    ConfigurationKey{"mqtt.port", Kind::count, "8883", "", "the broker's port for TLS"},
};

constexpr std::array<std::string_view, 6> Parts = {"address-book", "store",        "bus",
                                                   "log",          "reachability", "paired-device"};

/// What the adapter of a choice is built with, as Debian's packages are called.
struct AdapterPackages {
  std::string_view choice;
  std::string_view packages;
};

constexpr std::array<AdapterPackages, 7> Packages = {{{"eds", "libebook1.2-dev"},
                                                      {"journal", "libsystemd-dev"},
                                                      {"ldap", "libldap-dev libssl-dev"},
                                                      {"matrix", "libcurl4-openssl-dev"},
                                                      {"mqtt", "libmosquitto-dev libsodium-dev libssl-dev"},
                                                      {"postgresql", "libpq-dev"},
                                                      {"session", "libsystemd-dev"}}};

constexpr int LargestCount = 65535;
constexpr double LongestTime = 3600;

const ConfigurationKey* keyNamed(std::string_view name) {
  const auto found = std::ranges::find(Keys, name, &ConfigurationKey::name);
  return found == Keys.end() ? nullptr : &*found;
}

const ConfigurationKey& knownKey(std::string_view name) {
  const ConfigurationKey* key = keyNamed(name);
  require(key != nullptr, "a key of the configuration");
  return *key;
}

template <class Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

bool isOneOf(std::string_view text, std::string_view choices) {
  return !text.empty() && text.find(' ') == std::string_view::npos &&
         (" " + std::string(choices) + " ").find(" " + std::string(text) + " ") != std::string::npos;
}

bool fits(const ConfigurationKey& key, std::string_view text) {
  switch (key.kind) {
    case Kind::text:
    case Kind::path:
      return !text.empty();
    case Kind::choice:
      return isOneOf(text, key.choices);
    case Kind::count: {
      const auto number = numberIn<int>(text);
      return number && *number >= 1 && *number <= LargestCount;
    }
    case Kind::seconds: {
      const auto number = numberIn<double>(text);
      return number && *number >= 0 && *number <= LongestTime;
    }
    case Kind::flag:
      return text == "true" || text == "false";
    case Kind::region:
      return isRegion(text);
  }
  return false;
}

std::string listOf(std::string_view choices) {
  std::string list = "one of ";
  for (const char character : choices) list += character == ' ' ? ", " : std::string(1, character);
  return list;
}

std::string expectation(const ConfigurationKey& key) {
  switch (key.kind) {
    case Kind::text:
      return "a text that is not empty";
    case Kind::path:
      return "a path";
    case Kind::choice:
      return listOf(key.choices);
    case Kind::count:
      return "a whole number from 1 to " + std::to_string(LargestCount);
    case Kind::seconds:
      return "a number of seconds from 0 to 3600";
    case Kind::flag:
      return "true or false";
    case Kind::region:
      return "a region such as DE";
  }
  return {};
}

std::string upperCase(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
  return text;
}

// What a user may write where: a text for words and paths, the language's own for the rest.
std::optional<std::string> textOf(const toml::node& node, Kind kind) {
  std::ostringstream number;
  switch (kind) {
    case Kind::flag:
      if (const auto value = node.value_exact<bool>()) return *value ? "true" : "false";
      return std::nullopt;
    case Kind::count:
      if (const auto value = node.value_exact<std::int64_t>()) return std::to_string(*value);
      return std::nullopt;
    case Kind::seconds:
      if (!node.is_number()) return std::nullopt;
      number.imbue(std::locale::classic());
      number << *node.value<double>();
      return number.str();
    default:
      return node.value_exact<std::string>();
  }
}

std::string placeOf(const fs::path& file, const toml::source_region& source) {
  return file.string() + ":" + std::to_string(source.begin.line) + ": ";
}

using Leaves = std::map<std::string, const toml::node*, std::less<>>;

// Sections are one level deep.
void collect(const toml::table& table, const std::string& prefix, Leaves& found) {
  for (const auto& [key, node] : table) {
    const std::string name = prefix + std::string(key.str());
    if (const toml::table* section = prefix.empty() ? node.as_table() : nullptr) {
      collect(*section, name + ".", found);
    } else {
      found.emplace(name, &node);
    }
  }
}

toml::table parsed(const fs::path& file, const std::string& content) {
  if (const auto line = lineOfUnquotedLetter(content))
    throw ConfigurationError(file.string() + ":" + std::to_string(*line) +
                             ": a letter beyond A to Z has to stand between quotes");
  try {
    return toml::parse(content);
  } catch (const toml::parse_error& error) {
    throw ConfigurationError(placeOf(file, error.source()) + std::string(error.description()));
  } catch (const UnmetAssumption&) {
    throw ConfigurationError(file.string() + ": it is no TOML: something is missing behind a bracket or a sign");
  }
}

// Absent where there is no such file.
std::optional<std::string> contentOf(const fs::path& file) {
  FileContent content = readRegularFile(file);
  if (content.isMissing) return std::nullopt;
  if (!content.text) throw ConfigurationError("the configuration cannot be read: " + content.problem);
  return std::move(content.text);
}

}  // namespace

std::string adapterAdvice(std::string_view choice) {
  const auto found = std::ranges::find(Packages, choice, &AdapterPackages::choice);
  require(found != Packages.end(), "a choice that needs an adapter");
  return "install " + std::string(found->packages) + " and build Pellor again";
}

std::span<const ConfigurationKey> configurationKeys() { return Keys; }

std::span<const std::string_view> configurationParts() { return Parts; }

Configuration Configuration::read(const fs::path& file) {
  Configuration configuration;
  const auto content = contentOf(file);
  if (!content) return configuration;
  const toml::table table = parsed(file, *content);
  Leaves found;
  collect(table, {}, found);
  for (const auto& [name, node] : found) {
    const std::string place = placeOf(file, node->source());
    const ConfigurationKey* key = keyNamed(name);
    if (!key) throw ConfigurationError(place + "there is no key \"" + name + "\" (pellor doctor lists the keys)");
    const auto text = textOf(*node, key->kind);
    if (!text) throw ConfigurationError(place + name + " has to be " + expectation(*key));
    try {
      configuration.set(*key, *text, fs::absolute(file).parent_path());
    } catch (const ConfigurationError& error) {
      throw ConfigurationError(place + error.what());
    }
  }
  return configuration;
}

void Configuration::set(std::string_view name, std::string_view text) {
  std::error_code error;
  const fs::path base = fs::current_path(error);
  const ConfigurationKey& key = knownKey(name);
  if (error && key.kind == Kind::path && fs::path(text).is_relative())
    throw ConfigurationError(std::string(key.name) + " has to be an absolute path: the current folder is gone");
  set(key, std::string(text), base);
}

void Configuration::set(const ConfigurationKey& key, std::string text, const fs::path& base) {
  if (key.kind == Kind::region) text = upperCase(std::move(text));
  if (!fits(key, text)) throw ConfigurationError(std::string(key.name) + " has to be " + expectation(key));
  if (key.kind == Kind::path) text = (base / text).lexically_normal().string();
  _values.insert_or_assign(std::string(key.name), std::move(text));
}

bool Configuration::isSet(std::string_view name) const { return _values.contains(knownKey(name).name); }

std::optional<std::string> Configuration::text(std::string_view name) const {
  const ConfigurationKey& key = knownKey(name);
  if (const auto set = _values.find(key.name); set != _values.end()) return set->second;
  // Programs of other machines are heard by nothing else.
  if (key.name == "bus" && text("store") == "postgresql") return "postgresql";
  // Without the name of a service nobody is checked.
  if (key.name == "service" && choosesService("reachability")) return text("reachability");
  if (key.unset.empty()) return std::nullopt;
  return std::string(key.unset);
}

std::optional<fs::path> Configuration::path(std::string_view name) const {
  const auto value = text(name);
  if (!value) return std::nullopt;
  return fs::path(*value);
}

int Configuration::count(std::string_view name) const { return numberIn<int>(text(name).value_or("")).value_or(0); }

double Configuration::seconds(std::string_view name) const {
  return numberIn<double>(text(name).value_or("")).value_or(0);
}

bool Configuration::flag(std::string_view name) const { return text(name) == "true"; }

bool Configuration::choosesService(std::string_view part) const { return text(part) != knownKey(part).unset; }

bool Configuration::choosesServices() const {
  return std::ranges::any_of(Parts, [this](std::string_view part) { return choosesService(part); });
}

}  // namespace pellor
