// A connection to an LDAP server, by libldap.
#pragma once

#include <ldap.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "pellor/linux/files/internal/PrivateFiles.h"

namespace pellor {

/// Lets waits of one thread end from another one, for good.
class Interruption {
 public:
  Interruption();
  void interrupt();
  /// Waits until the file can be read. False: not before `end`, or interrupted.
  bool waitFor(int file, std::chrono::steady_clock::time_point end) const;

 private:
  const FileDescriptor _event;
};

/// One thread. An operation ends at `end` or with the interruption, whichever comes first.
class LdapConnection {
 public:
  using Time = std::chrono::steady_clock::time_point;
  /// The values of the attributes that were asked for, of one entry, by attribute.
  using Entry = std::multimap<std::string, std::string>;
  struct Search {
    std::string base;
    int scope = LDAP_SCOPE_SUBTREE;
    std::string filter;
    std::vector<std::string> attributes;
  };
  struct Result {
    int code = LDAP_SUCCESS;   ///< of libldap, or the server's
    bool isReferring = false;  ///< parts of it are on other servers
    std::vector<Entry> entries;
  };

  /// Whether a server whose certificate is not trusted, or is that of another one, is talked to. An unchecked
  /// connection serves to find out what is wrong with one: nothing that matters may be said on it.
  enum class Check { certificate, nothing };

  LdapConnection(const std::string& url, const std::filesystem::path& certificates, const Interruption& interruption,
                 Check check = Check::certificate);
  ~LdapConnection();
  LdapConnection(const LdapConnection&) = delete;
  LdapConnection& operator=(const LdapConnection&) = delete;

  /// The certificate of the server on an encrypted connection, in DER; empty without one.
  std::string peerCertificate() const;

  // These give a code of libldap or of the server.
  /// Connects, encrypted where the address says so, and says nothing. The others connect by themselves.
  int open();
  int startTls(Time end);
  int bind(const std::string& name, const std::string& password, Time end);
  Result search(const Search& search, Time end);

 private:
  struct MessageDeleter {
    void operator()(LDAPMessage* message) const { ldap_msgfree(message); }
  };
  using Message = std::unique_ptr<LDAPMessage, MessageDeleter>;

  void setOptions(const std::filesystem::path& certificates, Check check);
  Message next(int id, Time end, int& code);
  int abandon(int id, int reason);
  int finish(int started, int id, Time end);
  int codeOf(const Message& message);
  Entry entryOf(const Message& message);

  const Interruption& _interruption;
  LDAP* _ldap = nullptr;
  int _openCode;  ///< of the constructor
};

}  // namespace pellor
