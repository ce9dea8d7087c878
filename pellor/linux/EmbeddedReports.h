// How the parts of the embedded platform are, without using or making anything.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "pellor/linux/ServiceReport.h"

namespace pellor {

class Configuration;
class StoreCopies;
struct UserFolders;

/// Adds to the report of contacts that work, of which there are so many now, that friends are not refreshed against
/// them. `source` names them.
ServiceReport withHeldRefresh(ServiceReport report, const std::filesystem::path& dataFolder, std::string_view source,
                              std::uint64_t cards);

/// Adds to the report of a store which copies there are of it, and to that of one that fails how to take one back.
ServiceReport withCopies(ServiceReport report, const StoreCopies& copies);

/// Adds to the report of a store that works the region by which it reads national numbers; absent: it has none yet.
ServiceReport withRegion(ServiceReport report, const std::optional<std::string>& region);

/// Of the folder of vCards, and whether friends are refreshed against it. One that is missing fails.
ServiceReport reportOnContactsFolder(const std::filesystem::path& contactsFolder,
                                     const std::filesystem::path& dataFolder);

/// Of the store in the data folder, and the region by which it reads national numbers. One that nobody has made yet
/// works if it can be made; it would be given `region`, or else that of the user's locale.
ServiceReport reportOnStoreFile(const UserFolders& folders, const std::optional<std::string>& region = std::nullopt);

/// Of the folder through which programs hear of each other.
ServiceReport reportOnNotifyFolder(const UserFolders& folders);

/// A report on the choice of the configuration for that part; absent where it is a service of the user's own.
std::optional<ServiceReport> reportOnEmbedded(std::string_view part, const Configuration& configuration);

}  // namespace pellor
