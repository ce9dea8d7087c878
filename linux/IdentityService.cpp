#include "linux/IdentityService.h"

#include <utility>

namespace pellor {
namespace {

constexpr std::string_view PhoneScheme = "tel:";
constexpr std::string_view EmailScheme = "mailto:";

bool removeEvery(std::string& text, std::string_view scheme) {
  bool found = false;
  for (std::size_t at = text.find(scheme); at != std::string::npos; at = text.find(scheme)) {
    text.erase(at, scheme.size());
    found = true;
  }
  return found;
}

std::string withoutSchemes(std::string_view destination) {
  std::string text(destination);
  while (removeEvery(text, PhoneScheme) || removeEvery(text, EmailScheme)) {
  }
  return text;
}

std::string normalizedNumber(const std::string& text, std::string_view region) {
  return internationalPhoneNumber(text, region).value_or(text);
}

std::string identifier(std::string_view scheme, std::string_view address) {
  return std::string(scheme).append(address);
}

}  // namespace

IdentityService::IdentityService(RegionSource region) : _region(std::move(region)) {}

std::optional<std::string> IdentityService::identifierForPhoneNumber(std::string_view number) {
  return identifier(PhoneScheme, normalizedNumber(withoutSchemes(number), _region()));
}

std::optional<std::string> IdentityService::identifierForEmailAddress(std::string_view address) {
  return identifier(EmailScheme, withoutSchemes(address));
}

std::optional<std::string> IdentityService::identifierForPhoneNumberWithOptions(std::string_view number,
                                                                                std::optional<std::string> countryCode,
                                                                                std::uint32_t /*options*/) {
  const std::string region = countryCode ? *std::move(countryCode) : _region();
  return identifier(PhoneScheme, normalizedNumber(withoutSchemes(number), region));
}

std::string IdentityService::rawAddressForDestination(std::string_view destination) {
  return withoutSchemes(destination);
}

bool IdentityService::queryStatusForDestinations(const std::set<std::string>& /*destinations*/,
                                                 const std::optional<std::string>& /*serviceName*/,
                                                 bool /*hasPriority*/, std::weak_ptr<ReachabilityClient> /*client*/) {
  return false;
}

}  // namespace pellor
