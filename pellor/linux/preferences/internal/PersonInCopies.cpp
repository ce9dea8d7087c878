#include "pellor/linux/preferences/internal/PersonInCopies.h"

#include <utility>

#include "pellor/linux/files/internal/Mentions.h"
#include "pellor/linux/files/internal/PrivatePlace.h"
#include "pellor/linux/preferences/StoredChunks.h"
#include "pellor/linux/preferences/internal/CopiedDomain.h"

namespace pellor {
namespace {

Dictionary valuesIn(const StoreCopy& copy, const std::string& domain) {
  Dictionary values;
  for (const auto& [name, content] : copy.values) {
    if (name.first != domain) continue;
    if (auto value = content.value()) values.emplace(name.second, *std::move(value));
  }
  return values;
}

// Each in the place of what the copy has, with its version.
bool put(const Dictionary& values, const std::string& domain, StoreCopy& copy) {
  for (const auto& [key, value] : values) {
    auto encoded = EncodedValue::encode(value);
    if (!encoded) return false;
    StoreCopy::Content& content = copy.values.at({domain, key});
    content.chunks = encoded->list ? encoded->list->chunks : Chunks();
    content.bytes = encoded->bytes.value_or(Data());
  }
  countFriends(copy);
  return true;
}

bool isMentionedIn(const StoreCopies& copies, const std::string& name, const ForgottenTraits& person) {
  const FileContent content = PrivateFile(copies.fileOf(name)).read();
  return content.text && Mentions(person).areIn(*content.text);
}

}  // namespace

ToldCopies learnFromCopies(const StoreCopies& copies, ForgottenTraits& person) {
  ToldCopies told;
  for (const std::string& name : copies.names())
    if (const auto copy = copies.read(name)) person.learn(valuesIn(*copy, person.domain()));
  for (const std::string& name : copies.names()) {
    const auto copy = copies.read(name);
    const bool tells =
        copy ? !person.without(valuesIn(*copy, person.domain())).empty() : isMentionedIn(copies, name, person);
    if (tells) ++told.count;
  }
  return told;
}

ToldCopies takeOutOfCopies(const StoreCopies& copies, const ForgottenTraits& person) {
  ToldCopies told;
  for (const std::string& name : copies.names()) {
    auto copy = copies.read(name);
    const Dictionary changed = copy ? person.without(valuesIn(*copy, person.domain())) : Dictionary();
    if (copy ? changed.empty() : !isMentionedIn(copies, name, person)) continue;
    ++told.count;
    const bool isRest = copy && put(changed, person.domain(), *copy);
    const auto error = isRest ? copies.replace(name, *copy) : copies.remove(name);
    if (error) told.problem = *error;
  }
  return told;
}

}  // namespace pellor
