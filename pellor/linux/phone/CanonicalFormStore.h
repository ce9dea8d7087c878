// The canonical forms of numbers, kept beside the store for the processes that come later.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "pellor/linux/phone/CanonicalForms.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/Queue.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Goes up when this library makes other forms, to compare or to show, of the phone library's answers: what earlier
/// versions kept is then worked out anew.
inline constexpr int KeptFormsVersion = 3;

/// Where forms are kept between processes.
struct CanonicalFormFolder {
  std::filesystem::path folder;
  LogHandle log;
  /// Runs a task later, on a thread that may wait for a disk. What has not run when the process ends is lost work.
  std::function<void(Task)> later;
  /// Of the file, before the region: forms of another kind are kept under another name.
  std::string name = "canonical-forms";
};

/// The forms that one phone library makes in one region. They are a memory of forms that can be worked out again, so
/// nothing here fails: forms that cannot be read are worked out, and a write that fails is logged once and not tried
/// again.
///
/// The file is for its owner alone. Its first line names version, region and library, every other one a text, its form
/// unless it is the text itself, and a check over both. A file with another first line, or that somebody else may
/// write, is not used, and replaced by the next write. Lines that are damaged are passed over. Several processes append
/// to it.
class CanonicalFormStore : public std::enable_shared_from_this<CanonicalFormStore> {
  struct Passkey {};

 public:
  /// A file that has grown beyond this is begun anew, in bytes.
  static constexpr std::size_t LargestFile = std::size_t{16} << 20;

  /// Reads what is there. Without a folder the forms are kept in memory alone. Any thread; may wait for the disk.
  static std::shared_ptr<CanonicalFormStore> open(std::string region, std::optional<CanonicalFormFolder> folder);
  CanonicalFormStore(Passkey, std::string region, std::optional<CanonicalFormFolder> folder);

  const std::string& region() const { return _region; }

  /// The form of a text; absent when it is not known. The view is valid as long as this object. Any thread; no lock.
  std::optional<std::string_view> find(std::string_view text) const { return _forms.find(text); }

  /// Of texts and of forms.
  using IsTheirs = std::function<bool(std::string_view text)>;
  /// How many lines of a file have such a text or form, damaged ones included. Any thread.
  static std::size_t count(const std::filesystem::path& file, const IsTheirs& isTheirs);
  /// Takes these lines out of the file; programs that know them do not write them again. What went wrong, if anything
  /// did. Any thread.
  static std::optional<std::string> remove(const std::filesystem::path& file, const IsTheirs& isTheirs);

  /// Keeps the form of a text that holds a digit, is no e-mail address and not too long. Any thread; never waits for
  /// the disk.
  void add(std::string_view text, std::string_view form);

 private:
  void read();
  static std::optional<std::pair<std::string_view, std::string_view>> readLine(std::string_view line);
  void writeUnwritten();
  std::string takeUnwritten();
  bool append(const std::string& lines) const;

  const std::string _region;
  const std::optional<CanonicalFormFolder> _folder;
  const std::filesystem::path _file;
  const std::string _firstLine;
  CanonicalForms _forms;
  Mutex _mutex;
  std::string _unwritten PELLOR_GUARDED_BY(_mutex);  ///< lines
  bool _isWriteQueued PELLOR_GUARDED_BY(_mutex) = false;
  bool _hasFailed PELLOR_GUARDED_BY(_mutex) = false;
};

}  // namespace pellor
