#include "pellor/linux/contacts/internal/PersonInIndex.h"

#include <algorithm>
#include <set>
#include <string>
#include <string_view>

#include "pellor/linux/contacts/internal/ContactIndexFile.h"
#include "pellor/linux/sqlite/UnusedSpace.h"

namespace pellor {
namespace {

constexpr std::string_view CardsWithGUID = "SELECT count(*) FROM cards WHERE guid=?";
constexpr std::string_view CardsWithDestination = "SELECT count(*) FROM destinations WHERE destination=?";
// A friend's link goes by the GUID: a card that comes back gets another number.
constexpr std::string_view GoneIdentities =
    " FROM identities WHERE guid=? AND NOT EXISTS"
    " (SELECT 1 FROM cards WHERE cards.folder=identities.folder AND cards.guid=identities.guid)";

bool isThere(const std::filesystem::path& dataFolder) {
  std::error_code ignored;
  return std::filesystem::exists(contactIndexIn(dataFolder), ignored);
}

bool hasAny(const SQLiteDatabase& database, std::string_view query, const std::set<std::string>& texts) {
  return std::ranges::any_of(texts, [&](const std::string& text) {
    SQLiteStatement statement = database.prepare(query);
    return statement.bind(1, text).step() && statement.integer(0) > 0;
  });
}

SQLiteDatabase openIndex(const std::filesystem::path& dataFolder, const std::shared_ptr<LockPatience>& patience) {
  return {contactIndexIn(dataFolder), SQLiteDatabase::Access::readWrite, patience};
}

}  // namespace

PersonInIndex lookInIndex(const std::filesystem::path& dataFolder, const ForgottenTraits& person,
                          const std::shared_ptr<LockPatience>& patience) {
  if (!isThere(dataFolder)) return {};
  try {
    const SQLiteDatabase database = openIndex(dataFolder, patience);
    const std::string gone = std::string("SELECT count(*)").append(GoneIdentities);
    return {hasAny(database, CardsWithGUID, person.guids()) ||
                hasAny(database, CardsWithDestination, person.destinations()),
            hasAny(database, gone, person.guids())};
  } catch (const SQLiteError&) {
    return {};
  }
}

std::optional<KeptTrace> eraseFromIndex(const std::filesystem::path& dataFolder, const ForgottenTraits& person,
                                        const std::shared_ptr<LockPatience>& patience) {
  if (!isThere(dataFolder)) return std::nullopt;
  try {
    const SQLiteDatabase database = openIndex(dataFolder, patience);
    for (const std::string& guid : person.guids())
      database.prepare(std::string("DELETE").append(GoneIdentities)).bind(1, guid).run();
    overwriteUnusedSpace(database);
    if (emptyLog(database)) return std::nullopt;
    return KeptTrace{"the log of the contact index", "another program is reading it; forget again when it has ended"};
  } catch (const SQLiteError& error) {
    return KeptTrace{"the contact index", std::string(error.what()) + "; forget again later"};
  }
}

}  // namespace pellor
