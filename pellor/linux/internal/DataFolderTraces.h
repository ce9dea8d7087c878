// What the files of the user's data folder tell of people, beside the store's values.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/linux/preferences/SharedPreferences.h"
#include "pellor/platform/PersonalTraces.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Queue.h"

namespace pellor {

class Mentions;

struct DataFolderTracesOptions {
  std::filesystem::path folder;
  std::filesystem::path favorites;  ///< the file beside the contacts; empty: there is none
  std::shared_ptr<SharedPreferences> store;
  /// Brings the index of the contacts in step with them. Main queue.
  std::function<void()> updateContacts;
};

/// Erases people from copies, memories of numbers and of answers, values and files that were put aside, drafts that a
/// killed program left, the index of the contacts, and the unused space of store and index. Copies go last: from them
/// it learns, when it is called again, whom an interrupted call was about.
///
/// What belongs to the user or to others stays and is named: contacts, favorites, what a paired device has not taken
/// over yet, the files of a server.
class DataFolderTraces final : public PersonalTraces, public std::enable_shared_from_this<DataFolderTraces> {
 public:
  DataFolderTraces(Process& process, DataFolderTracesOptions options);

  void erase(std::shared_ptr<ForgottenTraits> person, ErasedHandler erased) override;
  std::vector<std::string> find(ForgottenTraits& person) override;

 private:
  enum class Purpose { find, erase };
  /// One pass over all files.
  class Pass;

  Process& _process;
  const DataFolderTracesOptions _options;
  const std::shared_ptr<LockPatience> _patience;
  const std::shared_ptr<SerialQueue> _queue;
};

}  // namespace pellor
