// An LDAP directory as the directory of reachable destinations.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "pellor/linux/reachability/DestinationDirectory.h"
#include "pellor/runtime/Log.h"

namespace pellor {

struct LdapDirectoryOptions {
  std::string url;                     ///< "ldaps://ldap.example.org", "ldap://...", "ldapi://%2Frun%2Fslapd%2Fldapi"
  std::string base;                    ///< the entry under which people are found: "ou=people,dc=example,dc=org"
  std::string bindName;                ///< the entry as which to log in; empty: as nobody
  std::filesystem::path passwordFile;  ///< its first line is the password of that entry
  bool startsTls = false;              ///< turns a connection of ldap:// into an encrypted one
  bool allowsPlain = false;            ///< ldap:// to other machines without that: a listener reads along
  std::filesystem::path certificates;  ///< the authorities that are trusted, in PEM; empty: those of the system
  std::string condition;  ///< a filter that entries have to meet as well, "(objectClass=person)"; empty: none
  std::chrono::milliseconds limit = std::chrono::seconds(12);  ///< for a whole answer; the library's patience is 30 s
  std::vector<std::string> emailAttributes = {"mail"};
  std::vector<std::string> phoneAttributes = {"telephoneNumber", "mobile"};
};

/// Searches below the base for entries with the destinations in one of their attributes. Those that are found are
/// valid. Those that are not are invalid where the search was complete: the server cut nothing off and referred to no
/// other. Spacing and hyphens of numbers, and the case of e-mail addresses, play no part.
///
/// The connection is kept. Options that cannot be used, a password file that cannot be read, and a server that is away,
/// refuses or does not answer in time are problems of each answer. That others can read the password file is
/// said once on the log. While it connects `cancel` has to wait: for the system to find the server's addresses, and at
/// most 5 seconds for each of them.
class LdapDirectory final : public DestinationDirectory {
 public:
  /// `conversions` bring the directory's numbers into the form of the identifiers. Used where `lookUp` is called.
  LdapDirectory(LdapDirectoryOptions options, std::shared_ptr<ReachabilityService> conversions, LogHandle log);
  ~LdapDirectory() override;

  std::string name() const override;
  std::string account() const override;
  std::size_t largestQuery() const override;
  /// Whether an entry could hold it: what has no other characters than the attributes take, so no extension.
  bool couldKnow(const std::string& identifier) const override;
  Answer lookUp(const std::set<std::string>& identifiers) override;
  State state() override;
  void cancel() override;

 private:
  class Searches;
  const std::unique_ptr<Searches> _searches;
};

}  // namespace pellor
