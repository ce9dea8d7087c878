// The folders of the user, by the XDG base directory rules.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace pellor {

/// The value of an environment variable; absent when it is not set.
using Environment = std::function<std::optional<std::string>(const char* name)>;

/// The variables of this process. Not while another thread changes them.
std::optional<std::string> processEnvironment(const char* name);

/// Where Pellor keeps what belongs to the user. Nothing is made here: an adapter that writes makes its folder with
/// `PrivateFolder`, for the owner alone, and says what went wrong.
struct UserFolders {
  std::filesystem::path data;    ///< the store and what is made of it: $XDG_DATA_HOME/pellor
  std::filesystem::path config;  ///< what the user sets by hand: $XDG_CONFIG_HOME/pellor
  std::filesystem::path state;   ///< what may be lost without harm: $XDG_STATE_HOME/pellor
  /// What lives as long as the login: $XDG_RUNTIME_DIR/pellor; absent when there is no such folder that belongs to the
  /// user and is closed to others.
  std::optional<std::filesystem::path> runtime;

  /// The folder of the notification bus: below `runtime`, else below `state`.
  std::filesystem::path notify() const;

  /// With all links on the way to data, state and runtime followed: below these the library follows none.
  UserFolders behindLinks() const;

  /// Variables that are unset, empty or relative give the usual places in the home folder; without HOME that of the
  /// user database is used. Any thread.
  static UserFolders find(const Environment& environment = processEnvironment);
};

}  // namespace pellor
