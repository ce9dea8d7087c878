// One run of the program: the process, its platform, the friend list, and the answer to the user.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "cli/Output.h"
#include "pellor/linux/Configuration.h"
#include "pellor/linux/LinuxPlatform.h"
#include "pellor/linux/preferences/SharedPreferences.h"
#include "pellor/list/FriendList.h"
#include "pellor/platform/AddressBookStore.h"
#include "pellor/runtime/Process.h"

namespace pellor::cli {

using Json = nlohmann::ordered_json;

/// The options that every command has.
struct CommonOptions {
  Configuration configuration;
  bool json = false;
  bool verbose = false;
  bool isDry = false;          ///< whether a command that changes something only tells what it would do
  bool noticesChanges = true;  ///< while it runs; false for a command that only reads

  std::string domain() const { return *configuration.text("domain"); }
};

/// Used on the main thread alone. What fails throws CommandError.
class Session {
 public:
  explicit Session(const CommonOptions& options);
  /// Makes the platform and opens the store; throws when it belongs to another region than the one asked for. Before
  /// anything else, but for commands that only look at the configuration.
  void open();
  /// Writes what is still to be written, unless it was dropped.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  const CommonOptions& options() const { return _options; }
  /// Whether nothing is to be changed: what a command writes to the store is seen by itself alone.
  bool isDry() const { return _options.isDry; }
  Process& process() { return _process; }
  LinuxPlatform& platform() { return *_platform; }

  /// The friend list, loaded at the first call, which calls `beforeLoad` with it first. Throws when the store cannot be
  /// read.
  FriendList& list(const std::function<void(FriendList&)>& beforeLoad = {});
  /// Runs `work` with the address book; where there is no contacts folder it is an empty one.
  void withAddressBook(const std::function<void(AddressBook&)>& work);

  /// Throws when there is no contacts folder, or nobody can tell what is in it.
  void requireContacts();
  /// Throws when nothing can be written to the store: called by commands that change something before they do.
  void requireWritableStore();
  /// Throws what is known of a change that was not stored, or of which nobody can tell.
  [[noreturn]] void throwNotSaved();
  /// Returns when all changes are on the disk, tried again for 30 seconds while other programs change the list. Throws
  /// when that does not work.
  void commit();
  /// Drops every change that is not saved yet: a command that fails changes nothing.
  void drop() { _isDropped = true; }
  /// Runs what is queued for a while, so that the list is at rest; whether it is, with everything written.
  bool settle();

  /// What is wrong with the store, for the user.
  std::string storeProblem();
  SharedPreferences& store() const { return _platform->preferences(); }

  /// "would have " before what a command did, where it was told to do nothing; else empty.
  std::string would() const { return isDry() ? "would have " : ""; }

  /// Sets the answer: the text, or with --json the object, which says so with "dryRun" where nothing was changed.
  /// Printed by the program after the command.
  void answer(const std::function<std::string()>& text, const std::function<Json()>& json);
  /// Likewise, of a command that shows what it may have changed, as it is now or in a dry run would be.
  void answerNow(bool isChanged, const std::function<std::string()>& text, const std::function<Json()>& json);
  /// Sets an answer that is text with --json too.
  void answerText(const std::function<std::string()>& text) { _answer = text(); }
  const std::string& answer() const { return _answer; }

 private:
  const CommonOptions _options;
  ProgressLine _progress;
  Process _process;
  std::optional<LinuxPlatform> _platform;
  std::unique_ptr<FriendList> _list;
  bool _isDropped = false;
  SharedPreferences::WriteCounts _before;  ///< the change
  std::string _answer;
};

/// An object as a JSON text on one line, with the version of what its members mean as the first one. Text that is no
/// UTF-8 is repaired; characters that could not be seen are escaped.
std::string textOf(const Json& object);

}  // namespace pellor::cli
