// What the index of the contacts has of a person.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "pellor/linux/files/internal/FileLock.h"
#include "pellor/platform/PersonalTraces.h"

namespace pellor {

struct PersonInIndex {
  bool isContact = false;     ///< there is a card with a GUID, a number or an address of the person's
  bool isRemembered = false;  ///< of a card that is gone the index knows the GUID
};

/// Looks for the person among the cards of all sources. Of an index that cannot be read there is nothing to be told;
/// the next update makes it anew. Any thread.
PersonInIndex lookInIndex(const std::filesystem::path& dataFolder, const ForgottenTraits& person,
                          const std::shared_ptr<LockPatience>& patience);

/// Takes the GUIDs of cards that are gone out of the index, which has been brought in step with its source, and
/// overwrites what its file still has of rows that are gone. What is left; absent: nothing. Any thread.
std::optional<KeptTrace> eraseFromIndex(const std::filesystem::path& dataFolder, const ForgottenTraits& person,
                                        const std::shared_ptr<LockPatience>& patience);

}  // namespace pellor
