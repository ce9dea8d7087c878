// Identifiers of numbers and addresses, without a server behind them.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "pellor/linux/phone/CanonicalFormStore.h"
#include "pellor/linux/phone/LibPhoneNumber.h"
#include "pellor/platform/ReachabilityService.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// The conversions are real; status queries are not answered. Conversions are pure for a given region and run on any
/// thread.
///
/// A number takes the form that `comparableNumber` (ComparableNumber.h) gives it: the international one with the
/// extension, or the digits of a local, short or service number. Every other text is its own normalised form. E-mail
/// addresses are taken as they are: their case may matter to the mail server.
///
/// What `comparableNumber` gave is remembered, for each region, and with a folder for later processes as well. The
/// other conversions look there too but add nothing: through them come the numbers of whole address books.
class IdentityService final : public ReachabilityService {
 public:
  explicit IdentityService(RegionSource region, std::optional<CanonicalFormFolder> folder = std::nullopt);

  std::optional<std::string> identifierForPhoneNumber(std::string_view number) override;
  std::optional<std::string> identifierForEmailAddress(std::string_view address) override;
  /// `countryCode` takes the place of the store's region. The form does not depend on `options`: numbers are always
  /// written in the form in which they are compared.
  std::optional<std::string> identifierForPhoneNumberWithOptions(std::string_view number,
                                                                 std::optional<std::string> countryCode,
                                                                 std::uint32_t options) override;
  std::optional<std::string> comparableNumber(std::string_view number) override;
  /// Schemes are taken out until none is left, also where taking one out made another.
  std::string rawAddressForDestination(std::string_view destination) override;

  /// False: there is nobody to ask.
  bool queryStatusForDestinations(const std::set<std::string>& destinations,
                                  const std::optional<std::string>& serviceName, bool hasPriority,
                                  std::weak_ptr<ReachabilityClient> client) override;

 private:
  CanonicalFormStore& forms();
  CanonicalFormStore& formsOf(const std::string& region);
  std::string normalizedNumber(std::string_view number);

  const RegionSource _region;
  const std::optional<CanonicalFormFolder> _folder;
  std::atomic<CanonicalFormStore*> _forms = nullptr;  // of the region asked for last; written with the lock
  Mutex _mutex;
  std::vector<std::shared_ptr<CanonicalFormStore>> _stores PELLOR_GUARDED_BY(_mutex);  ///< one a region
};

}  // namespace pellor
