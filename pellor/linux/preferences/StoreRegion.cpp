#include "pellor/linux/preferences/StoreRegion.h"

#include <array>
#include <initializer_list>
#include <utility>

#include "pellor/linux/phone/LibPhoneNumber.h"
#include "pellor/runtime/BundleIdentifier.h"

namespace pellor {
namespace {

constexpr std::string_view Domain = BundleIdentifier;
constexpr std::string_view RegionKey = "Region";
constexpr std::string_view LocaleKey = "Locale";
constexpr std::string_view FallbackRegion = "US";
constexpr std::string_view FallbackLanguage = "en";

// A locale is written language_TERRITORY.encoding@variant; each part but the first may be missing.
std::string languageOf(const std::string& locale) {
  const std::string language = locale.substr(0, locale.find_first_of("_.@"));
  return language == "C" || language == "POSIX" ? "" : language;
}

std::string territoryOf(const std::string& locale) {
  const std::string name = locale.substr(0, locale.find_first_of(".@"));
  const std::size_t separator = name.find('_');
  const std::string territory = separator == std::string::npos ? "" : name.substr(separator + 1);
  return isRegion(territory) ? territory : "";
}

// Empty when none does.
std::string firstNamed(const Environment& environment, std::initializer_list<const char*> variables,
                       std::string (*part)(const std::string&)) {
  for (const char* variable : variables) {
    std::string named = part(environment(variable).value_or(""));
    if (!named.empty()) return named;
  }
  return "";
}

Dictionary dictionaryOf(const RegionAndLocale& chosen) {
  return {{std::string(RegionKey), chosen.region}, {std::string(LocaleKey), chosen.locale}};
}

std::string textOf(const PreferenceAnswer<Value>& answer) {
  const std::string* text = answer.value() ? answer.value()->string() : nullptr;
  return text ? *text : "";
}

}  // namespace

RegionProposal proposedRegion(const std::optional<std::string>& region, const Environment& environment) {
  RegionProposal proposal;
  proposal.region = region ? *region : firstNamed(environment, {"LC_ALL", "LC_TELEPHONE", "LANG"}, territoryOf);
  proposal.isAssumed = proposal.region.empty();
  if (proposal.isAssumed) proposal.region = FallbackRegion;
  std::string language = firstNamed(environment, {"LC_ALL", "LC_MESSAGES", "LANG"}, languageOf);
  if (language.empty()) language = FallbackLanguage;
  proposal.locale = language + "_" + proposal.region;
  return proposal;
}

bool isRegion(std::string_view text) {
  const auto isUpper = [](char character) { return character >= 'A' && character <= 'Z'; };
  return text.size() == 2 && isUpper(text[0]) && isUpper(text[1]) && isPhoneNumberRegion(text);
}

StoreRegion::StoreRegion(std::shared_ptr<SharedPreferences> store, Proposal proposal)
    : _store(std::move(store)), _proposal(std::move(proposal)) {
  current();
}

const std::string& StoreRegion::region() { return current().region; }

const std::string& StoreRegion::locale() { return current().locale; }

bool StoreRegion::change(PreferencesStore& store, const RegionAndLocale& regionAndLocale) {
  for (const auto& [key, value] : dictionaryOf(regionAndLocale)) store.setValue(key, value, Domain);
  return store.synchronize(Domain);
}

bool StoreRegion::isAssumed() {
  {
    const MutexLock lock(_mutex);
    if (!_isProposalWritten || !proposed().isAssumed) return false;
  }
  return stored(*_store) == region();
}

std::optional<std::string> StoreRegion::stored(PreferencesStore& store) {
  std::string region = textOf(store.copyValue(RegionKey, Domain));
  return region.empty() ? std::nullopt : std::optional(std::move(region));
}

const RegionAndLocale& StoreRegion::current() {
  const RegionAndLocale* known = _known.load(std::memory_order_acquire);
  return known ? *known : settledOrProposed();
}

const RegionAndLocale& StoreRegion::settledOrProposed() {
  const MutexLock lock(_mutex);
  if (!_settled) _settled = readOrWrite();
  if (!_settled) return proposed();
  _known.store(&*_settled, std::memory_order_release);
  return *_settled;
}

std::optional<RegionAndLocale> StoreRegion::readOrWrite() {
  auto region = _store->copyValue(RegionKey, Domain);
  if (!region.isReadable()) return std::nullopt;
  if (!region.value()) {
    // Of two processes that start at once one writes. A store that may not be written goes with the proposal.
    _isProposalWritten = _store->insertIfAbsent(dictionaryOf(proposed()), Domain);
    region = _store->copyValue(RegionKey, Domain);
  }
  const auto locale = _store->copyValue(LocaleKey, Domain);
  if (!region.isReadable() || !locale.isReadable()) return std::nullopt;
  RegionAndLocale stored{textOf(region), textOf(locale)};
  if (stored.region.empty()) stored.region = proposed().region;
  if (stored.locale.empty()) stored.locale = proposed().locale;
  return stored;
}

const RegionProposal& StoreRegion::proposed() {
  if (!_proposed) _proposed = _proposal();
  return *_proposed;
}

}  // namespace pellor
