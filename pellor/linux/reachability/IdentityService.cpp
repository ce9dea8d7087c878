#include "pellor/linux/reachability/IdentityService.h"

#include <algorithm>
#include <utility>

#include "pellor/linux/phone/ComparableNumber.h"

namespace pellor {
namespace {

constexpr std::string_view PhoneScheme = "tel:";
constexpr std::string_view EmailScheme = "mailto:";

bool removeScheme(std::string& text, std::string_view scheme) {
  if (!text.ends_with(scheme)) return false;
  text.resize(text.size() - scheme.size());
  return true;
}

// A scheme ends with its only colon, so that it can only be complete where one is met; what is taken out there leaves
// what may be the beginning of another one.
std::string withoutSchemes(std::string_view destination) {
  if (destination.find(':') == std::string_view::npos) return std::string(destination);
  std::string text;
  for (const char character : destination) {
    text += character;
    if (character == ':' && !removeScheme(text, PhoneScheme)) removeScheme(text, EmailScheme);
  }
  return text;
}

std::string identifier(std::string_view scheme, std::string_view address) {
  return std::string(scheme).append(address);
}

}  // namespace

IdentityService::IdentityService(RegionSource region, std::optional<CanonicalFormFolder> folder)
    : _region(std::move(region)), _folder(std::move(folder)) {}

std::optional<std::string> IdentityService::identifierForPhoneNumber(std::string_view number) {
  return identifier(PhoneScheme, normalizedNumber(withoutSchemes(number)));
}

std::optional<std::string> IdentityService::identifierForEmailAddress(std::string_view address) {
  return identifier(EmailScheme, withoutSchemes(address));
}

std::optional<std::string> IdentityService::identifierForPhoneNumberWithOptions(std::string_view number,
                                                                                std::optional<std::string> countryCode,
                                                                                std::uint32_t /*options*/) {
  if (!countryCode) return identifierForPhoneNumber(number);
  return identifier(PhoneScheme, pellor::comparableNumber(withoutSchemes(number), *countryCode));
}

std::optional<std::string> IdentityService::comparableNumber(std::string_view number) {
  CanonicalFormStore& known = forms();
  if (const auto form = known.find(number)) return std::string(*form);
  const std::string text = withoutSchemes(number);
  std::string form = pellor::comparableNumber(text, known.region());
  known.add(text, form);
  return form;
}

std::string IdentityService::rawAddressForDestination(std::string_view destination) {
  return withoutSchemes(destination);
}

bool IdentityService::queryStatusForDestinations(const std::set<std::string>& /*destinations*/,
                                                 const std::optional<std::string>& /*serviceName*/,
                                                 bool /*hasPriority*/, std::weak_ptr<ReachabilityClient> /*client*/) {
  return false;
}

std::string IdentityService::normalizedNumber(std::string_view number) {
  const CanonicalFormStore& known = forms();
  if (const auto form = known.find(number)) return std::string(*form);
  return pellor::comparableNumber(number, known.region());
}

CanonicalFormStore& IdentityService::forms() {
  const std::string& region = _region();
  CanonicalFormStore* const last = _forms.load(std::memory_order_acquire);
  return last && last->region() == region ? *last : formsOf(region);
}

CanonicalFormStore& IdentityService::formsOf(const std::string& region) {
  const MutexLock lock(_mutex);
  auto found = std::ranges::find(_stores, region, [](const auto& store) -> const auto& { return store->region(); });
  if (found == _stores.end()) {
    found = _stores.insert(found, CanonicalFormStore::open(region, _folder));
  }
  _forms.store(found->get(), std::memory_order_release);
  return **found;
}

}  // namespace pellor
