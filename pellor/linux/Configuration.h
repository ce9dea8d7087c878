// Which parts make the platform, and the settings that they need: the user's choice, one for all programs.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace pellor {

/// Something in the configuration makes no sense. One line for the user, which says where it stands and what to do.
class ConfigurationError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// What a key's value may be.
enum class ConfigurationKind {
  text,     ///< any but the empty one
  choice,   ///< one of a few words
  path,     ///< of a file or folder; a relative one begins at the configuration file's folder
  count,    ///< a whole number from 1 to 65535
  seconds,  ///< a number from 0 to 3600
  flag,     ///< true or false
  region,   ///< such as DE
};

/// A key of the configuration.
struct ConfigurationKey {
  std::string_view name;  ///< as in the file, "section.key" or "key"; the program's flag has a dash for the dot
  ConfigurationKind kind;
  std::string_view unset;    ///< what holds where nobody says; empty where then nothing does
  std::string_view choices;  ///< of a choice, separated by spaces
  std::string_view meaning;  ///< for the user, without a full stop
};

/// All keys, in the order in which they are shown.
std::span<const ConfigurationKey> configurationKeys();

/// The keys that choose a part of the platform, each with the embedded one as its default; in the order of
/// `configurationKeys`.
std::span<const std::string_view> configurationParts();

/// How a program comes by the adapter of a choice that it was built without, such as "eds": for the user, without a
/// full stop.
std::string adapterAdvice(std::string_view choice);

/// What holds for each key: what the program's arguments say, else the file, else the key's own default. A plain value.
class Configuration {
 public:
  /// All keys unset.
  Configuration() = default;

  /// Reads a TOML file; one that is missing says nothing. Throws ConfigurationError for one that cannot be read or is
  /// no TOML, for unknown keys, and for values that their keys do not take.
  static Configuration read(const std::filesystem::path& file);
  /// The user's own: `config.toml` in the folder of their configuration.
  static std::filesystem::path fileIn(const std::filesystem::path& configFolder) {
    return configFolder / "config.toml";
  }

  /// Sets a key as if the file said so; a relative path begins at the current folder. Throws ConfigurationError.
  void set(std::string_view name, std::string_view text);

  /// Whether the file or `set` says something.
  bool isSet(std::string_view name) const;
  // What holds. Each key has to be one of configurationKeys, of a kind that fits.
  std::optional<std::string> text(std::string_view name) const;
  std::optional<std::filesystem::path> path(std::string_view name) const;
  int count(std::string_view name) const;
  double seconds(std::string_view name) const;
  bool flag(std::string_view name) const;

  /// Whether another one than the embedded platform's is chosen for that one of configurationParts, or for any.
  bool choosesService(std::string_view part) const;
  bool choosesServices() const;

 private:
  void set(const ConfigurationKey& key, std::string text, const std::filesystem::path& base);

  std::map<std::string, std::string, std::less<>> _values;  ///< of the keys that are set, by name
};

}  // namespace pellor
