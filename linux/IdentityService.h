// Identifiers of numbers and addresses, without a server behind them.
#pragma once

#include "linux/LibPhoneNumber.h"
#include "platform/ReachabilityService.h"

namespace pellor {

/// The conversions are real; status queries are not answered. Conversions are pure for a given region and run on any
/// thread.
///
/// A number that can be dialled from everywhere becomes its international form with the extension, every other text is
/// its own normalised form. E-mail addresses are taken as they are: their case may matter to the mail server.
class IdentityService final : public ReachabilityService {
 public:
  explicit IdentityService(RegionSource region);

  std::optional<std::string> identifierForPhoneNumber(std::string_view number) override;
  std::optional<std::string> identifierForEmailAddress(std::string_view address) override;
  /// `countryCode` takes the place of the store's region. The form does not depend on `options`: numbers are always
  /// written in the form in which they are compared.
  std::optional<std::string> identifierForPhoneNumberWithOptions(std::string_view number,
                                                                 std::optional<std::string> countryCode,
                                                                 std::uint32_t options) override;
  /// Schemes are taken out until none is left, also where taking one out made another.
  std::string rawAddressForDestination(std::string_view destination) override;

  /// False: there is nobody to ask.
  bool queryStatusForDestinations(const std::set<std::string>& destinations,
                                  const std::optional<std::string>& serviceName, bool hasPriority,
                                  std::weak_ptr<ReachabilityClient> client) override;

 private:
  RegionSource _region;
};

}  // namespace pellor
