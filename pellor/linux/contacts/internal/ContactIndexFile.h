// The file of the contact index: making it, its tables, and what to do with a damaged one.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "pellor/linux/sqlite/SQLiteStatements.h"

namespace pellor {

struct OpenedContactIndex {
  std::unique_ptr<SQLiteStatements> statements;
  bool isInMemory = false;
  std::vector<std::string> remarks;  ///< what the user should know: put aside, in memory
};

enum class IndexCheck {
  quick,    ///< whether the file can be opened as an index
  thorough  ///< the whole file, after damage was met
};

/// `contacts-index.sqlite`; files that were put aside have longer names.
std::filesystem::path contactIndexIn(const std::filesystem::path& dataFolder);

/// Opens the index of the data folder, for its owner alone; makes folder and file where they are missing.
/// A damaged file, or one of an unknown layout, is put aside under a dated name and a new one is made. Where no file
/// can be written the index is in memory. Several processes may do this at once. Throws SQLiteError when not even that
/// works, and when others hold a lock for as long as the patience lasts.
OpenedContactIndex openContactIndex(const std::filesystem::path& dataFolder, IndexCheck check,
                                    const std::shared_ptr<LockPatience>& patience);

}  // namespace pellor
