// The identity service: identifiers of addresses, and whether they can receive messages.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace pellor {

/// The reachability of one destination.
enum class DestinationStatus : std::int64_t {
  unspecified = -1,  ///< nothing is known of the destination
  unknown = 0,       ///< the service could not tell
  valid = 1,         ///< it can receive messages
  invalid = 2,       ///< it cannot receive messages
};

/// Statuses by destination.
using DestinationStatuses = std::map<std::string, DestinationStatus>;

/// What a service said of one destination, and when.
struct StatusAnswer {
  DestinationStatus status = DestinationStatus::unspecified;  ///< valid or invalid
  double time = 0;      ///< of the answer, in seconds since 2001-01-01T00:00:00Z by the wall clock
  std::string service;  ///< the service that said so, for a user; without an address of a friend or a secret
  /// For how many seconds from `time` it need not be asked again, as the service says; absent: it says nothing.
  std::optional<double> lifetime;

  bool operator==(const StatusAnswer&) const = default;
};

/// The receiver of a query's answers. Called on the main queue.
class ReachabilityClient {
 public:
  virtual ~ReachabilityClient() = default;
  /// The query went out: inside the call that asks or later, before any answer. With priority no batch query starts
  /// until its destinations are answered.
  virtual void queryDidStart(const std::set<std::string>& destinations, bool hasPriority) = 0;
  /// An answer arrived, or a part of it: statuses by the destinations as they were asked for.
  virtual void queryDidAnswer(const DestinationStatuses& statuses) = 0;
};

/// The conversions run on any thread and are pure; queries are made on the main queue.
///
/// Conversions are total and idempotent: every text that holds a digit has an identifier, text that is no number is its
/// own normalised form, and the identifier of a normalised number is made of that same number. A raw address holds
/// neither scheme.
class ReachabilityService {
 public:
  virtual ~ReachabilityService() = default;

  /// "tel:" followed by the number in normalised form; absent if the service cannot make one.
  virtual std::optional<std::string> identifierForPhoneNumber(std::string_view number) = 0;
  /// "mailto:" followed by the address in normalised form; absent if the service cannot make one.
  virtual std::optional<std::string> identifierForEmailAddress(std::string_view address) = 0;
  /// As `identifierForPhoneNumber`. With no country code the service applies its own default. `options` is passed on
  /// unchanged; bit 1 asks for the form in which numbers are compared.
  virtual std::optional<std::string> identifierForPhoneNumberWithOptions(std::string_view number,
                                                                         std::optional<std::string> countryCode,
                                                                         std::uint32_t options) = 0;
  /// The raw address behind the scheme: the destination with every "tel:" and "mailto:" taken out.
  virtual std::string rawAddressForDestination(std::string_view destination) = 0;

  /// The raw address of the identifier of a number that holds no scheme, in the form in which numbers are compared;
  /// absent if the service has no identifier for it. The library asks for every destination that it reads: a service
  /// for which the conversion takes long answers from memory what it has answered before.
  virtual std::optional<std::string> comparableNumber(std::string_view number) {
    constexpr std::uint32_t comparable = 1;
    const auto identifier = identifierForPhoneNumberWithOptions(number, std::nullopt, comparable);
    if (!identifier) return std::nullopt;
    return rawAddressForDestination(*identifier);
  }

  /// Asks a messaging service, absent while none is set, for the status of destinations. Answers come later through the
  /// client, which is held weakly, in one or several parts, or never; never inside the call. False from a service that
  /// answers no queries: the client is told nothing, and the asker gives its own default answer.
  [[nodiscard]] virtual bool queryStatusForDestinations(const std::set<std::string>& destinations,
                                                        const std::optional<std::string>& serviceName, bool hasPriority,
                                                        std::weak_ptr<ReachabilityClient> client) = 0;

  /// What the service last said of a destination, in any spelling: `valid` or `invalid`, also when others asked for it;
  /// an answer that could not tell leaves an earlier one as it was. It may have been given to another process, long
  /// ago. A service that keeps answers knows one before the client that asked is told. Absent: none is known, as by
  /// default. Main queue; asks nobody and may wait for a disk.
  virtual std::optional<StatusAnswer> lastKnownStatus(std::string_view /*destination*/) { return std::nullopt; }
};

}  // namespace pellor
