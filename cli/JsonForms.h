// The objects of which answers in JSON are made. docs/json.md describes them.
#pragma once

#include <string>

#include "cli/ContactSearch.h"
#include "cli/FriendSearch.h"
#include "cli/Session.h"
#include "pellor/list/Snapshot.h"
#include "pellor/runtime/Value.h"

namespace pellor::cli {

/// Null for an empty text.
Json textOrNull(const std::string& text);
Json jsonOf(const std::optional<std::string>& text);
Json jsonOf(const Place& place);
/// A date is its time in UTC, data are base64; the other kinds are what they are.
Json jsonOf(const Value& value);
Json jsonOf(const Friend& person);
/// The friend with its place.
Json jsonOf(const FriendAt& found);
Json jsonOf(const ContactEntry& contact, bool isFriend);
Json jsonOf(const std::optional<ContactPhoto>& photo);

/// What `--photos` of a command says.
constexpr const char* PhotosMeaning = "With --json: the pictures too";

/// The answer, with "photo" in each contact and each friend of it if `hasPhotos`; null where the card has none.
Json withPhotos(Session& session, Json answer, bool hasPhotos);

}  // namespace pellor::cli
