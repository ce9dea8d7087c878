#include "pellor/linux/ldap/LdapDirectory.h"

#include <ldap.h>

#include <algorithm>
#include <map>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "pellor/linux/files/internal/SecretFile.h"
#include "pellor/linux/ldap/LdapConnection.h"
#include "pellor/linux/ldap/LdapFilter.h"
#include "pellor/linux/ldap/ServerCertificate.h"
#include "pellor/linux/text/CardText.h"
#include "pellor/linux/threads/BlockedSignals.h"

namespace pellor {
namespace {

// Some servers take no larger requests than 256 KiB from those that are not logged in.
constexpr std::size_t MostIdentifiers = 100;
constexpr std::string_view PhoneScheme = "tel:";
constexpr std::string_view EmailScheme = "mailto:";

/// What an identifier names, in the form in which it is compared.
struct Query {
  std::string identifier;
  std::string address;
  bool isPhone = false;
};

bool isVisibleAscii(char character) { return character > ' ' && character < 0x7F; }

/// What an attribute for numbers takes.
bool isPhoneCharacter(char character) {
  constexpr std::string_view others = "'()+,-./:? ";
  return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
         (character >= 'a' && character <= 'z') || others.find(character) != std::string_view::npos;
}

std::string withoutSpacing(std::string_view number) {
  std::string result(number);
  std::erase_if(result, [](char character) { return character == ' ' || character == '-'; });
  return result;
}

struct UrlDeleter {
  void operator()(LDAPURLDesc* url) const { ldap_free_urldesc(url); }
};
using Url = std::unique_ptr<LDAPURLDesc, UrlDeleter>;

/// Null where it is none, or several: libldap would try them in turn, encrypted or not.
Url parsedUrl(const std::string& text) {
  LDAPURLDesc* url = nullptr;
  if (!std::ranges::all_of(text, isVisibleAscii)) return nullptr;
  return Url(ldap_url_parse(text.c_str(), &url) == LDAP_URL_SUCCESS ? url : nullptr);
}

bool isLoopback(std::string_view host) { return host == "localhost" || host == "127.0.0.1" || host == "::1"; }

std::string problemOf(int code) {
  switch (code) {
    case LDAP_TIMEOUT:
    case LDAP_TIMELIMIT_EXCEEDED:
      return "it does not answer in time";
    case LDAP_LOCAL_ERROR:
      return "the file of trusted certificates cannot be used";
    case LDAP_INVALID_CREDENTIALS:
      return "it refuses the name or the password that it is logged in with";
    case LDAP_NO_SUCH_OBJECT:
      return "it has no entry of the name that is given as the base";
    case LDAP_REFERRAL:
      return "it refers to another server, which is not followed: set the address of that one";
    case LDAP_CONFIDENTIALITY_REQUIRED:
    case LDAP_STRONG_AUTH_REQUIRED:
      return "it wants an encrypted connection";
    case LDAP_INSUFFICIENT_ACCESS:
      return "it does not let this name search";
    case LDAP_FILTER_ERROR:
      return "the condition is no filter";
    default:
      return ldap_err2string(code);
  }
}

/// Whether it may be the encryption that failed: libldap has the one code for a server that is away as well.
bool mayBeOfEncryption(int code) {
  return code == LDAP_SERVER_DOWN || code == LDAP_CONNECT_ERROR || code == LDAP_PROTOCOL_ERROR ||
         code == LDAP_UNAVAILABLE;
}

/// The address of the same place without encryption.
std::string plainAddressOf(const LDAPURLDesc& url) {
  const std::string host = url.lud_host ? url.lud_host : "";
  const bool isNumbered = host.find(':') != std::string::npos;
  return "ldap://" + (isNumbered ? "[" + host + "]" : host) + ":" + std::to_string(url.lud_port);
}

std::string portOf(const LDAPURLDesc& url) { return "its port " + std::to_string(url.lud_port); }

bool isCutOff(int code) { return code == LDAP_SIZELIMIT_EXCEEDED || code == LDAP_ADMINLIMIT_EXCEEDED; }

}  // namespace

class LdapDirectory::Searches {
 public:
  Searches(LdapDirectoryOptions options, std::shared_ptr<ReachabilityService> conversions, LogHandle log)
      : _options(std::move(options)),
        _conversions(std::move(conversions)),
        _log(std::move(log)),
        _problemOfOptions(findProblemOfOptions()) {}

  ~Searches() {
    const BlockedBrokenPipe quiet;
    _connection.reset();
  }
  Searches(const Searches&) = delete;
  Searches& operator=(const Searches&) = delete;

  std::string name() const { return "the LDAP directory " + _options.url; }
  std::string account() const {
    std::string account = "ldap " + _options.url;
    for (const std::string& part : {_options.base, _options.bindName, _options.condition}) account += "\n" + part;
    for (const std::string& attribute : _options.phoneAttributes) account += "\n" + attribute;
    account += "\n";
    for (const std::string& attribute : _options.emailAttributes) account += "\n" + attribute;
    return account;
  }
  void cancel() { _interruption.interrupt(); }

  Answer lookUp(const std::set<std::string>& identifiers) {
    const BlockedBrokenPipe quiet;
    std::vector<Query> wanted;
    wanted.reserve(identifiers.size());
    for (const std::string& identifier : identifiers) wanted.push_back(wantedOf(identifier));
    const bool wasOpen = _connection != nullptr;
    Answer answer = searchAll(wanted);
    // The server may have closed a connection on which nothing happened for long.
    if (_lastCode == LDAP_SERVER_DOWN && wasOpen) answer = searchAll(wanted);
    if (const auto problem = problemOfConnection()) answer.problem = *problem;
    return answer;
  }

  State state() {
    const BlockedBrokenPipe quiet;
    _end = std::chrono::steady_clock::now() + _options.limit;
    _connection.reset();
    if (std::string problem = connect(); !problem.empty()) return {false, problemOfConnection().value_or(problem)};
    const auto about =
        _connection->search({"", LDAP_SCOPE_BASE, "(objectClass=*)", {"vendorName", "vendorVersion"}}, _end);
    const auto base = _connection->search({_options.base, LDAP_SCOPE_BASE, "(objectClass=*)", {LDAP_NO_ATTRS}}, _end);
    _lastCode = base.code;
    if (base.code != LDAP_SUCCESS) return {false, problemOfConnection().value_or(problemOf(base.code))};
    std::string text = "LDAP version 3";
    for (const auto& entry : about.entries) {
      for (const auto& [attribute, value] : entry) text += ", " + value;
    }
    return {true, cleanCardText(text)};
  }

 private:
  std::string findProblemOfOptions() const {
    const Url url = parsedUrl(_options.url);
    if (!url) return "its address is no URL of a directory";
    const std::string_view scheme = url->lud_scheme, host = url->lud_host ? url->lud_host : "";
    const bool isEncrypted = scheme == "ldaps" || scheme == "ldapi" || _options.startsTls;
    if (!isEncrypted && !isLoopback(host) && !_options.allowsPlain) {
      return "its address has to begin with ldaps:, or the connection to start TLS";
    }
    return "";
  }

  Query wantedOf(const std::string& identifier) const {
    if (identifier.starts_with(PhoneScheme))
      return {identifier, phoneForm(identifier.substr(PhoneScheme.size())), true};
    return {identifier, lowerCased(identifier.substr(EmailScheme.size())), false};
  }

  std::string phoneForm(std::string_view number) const {
    const std::string plain = withoutSpacing(number);
    const auto identifier = _conversions->identifierForPhoneNumber(plain);
    return identifier ? _conversions->rawAddressForDestination(*identifier) : plain;
  }

  Answer searchAll(const std::vector<Query>& wanted) {
    _end = std::chrono::steady_clock::now() + _options.limit;
    Answer answer;
    answer.problem = connect();
    if (answer.problem.empty()) answer.problem = search(wanted, answer.statuses);
    // What was told before the problem arose stands.
    if (!answer.problem.empty()) _connection.reset();
    return answer;
  }

  std::string connect() {
    _lastCode = LDAP_SUCCESS;
    if (!_problemOfOptions.empty() || _connection) return _problemOfOptions;
    const Secret password = _options.bindName.empty() ? Secret{} : readSecret(_options.passwordFile);
    if (!password.problem.empty()) return password.problem;
    if (password.isOpenToOthers) warnOfOpenPassword();
    _hasStartedTls = false;
    auto connection = std::make_unique<LdapConnection>(_options.url, _options.certificates, _interruption);
    if (_options.startsTls) {
      _lastCode = connection->startTls(_end);
      if (_lastCode != LDAP_SUCCESS) return "no encrypted connection: " + problemOf(_lastCode);
      _hasStartedTls = true;
    }
    if (!_options.bindName.empty()) _lastCode = connection->bind(_options.bindName, password.text, _end);
    if (_lastCode != LDAP_SUCCESS) return problemOf(_lastCode);
    _connection = std::move(connection);
    return "";
  }

  /// What is wrong with the connection that failed: the port, or for an encrypted one its certificate or the name in
  /// it. Absent when something else failed.
  std::optional<std::string> problemOfConnection() const {
    const Url url = parsedUrl(_options.url);
    if (!url || _hasStartedTls) return std::nullopt;
    const std::string_view scheme = url->lud_scheme;
    const bool isEncrypted = _options.startsTls || scheme == "ldaps";
    if (!isEncrypted && scheme == "ldap" && _lastCode == LDAP_SERVER_DOWN) return "nothing answers at " + portOf(*url);
    if (!isEncrypted || !mayBeOfEncryption(_lastCode)) return std::nullopt;
    LdapConnection unchecked(_options.url, "", _interruption, LdapConnection::Check::nothing);
    const int code = _options.startsTls ? unchecked.startTls(_end) : unchecked.open();
    if (code != LDAP_SUCCESS) return problemOfPort(*url);
    const std::string host = url->lud_host ? url->lud_host : "";
    if (!isCertificateOf(unchecked.peerCertificate(), host)) {
      return "its certificate is that of another server: use the name that the certificate is for";
    }
    return "its certificate is not trusted: name the authority that signed it";
  }

  /// Of a place where no encrypted connection could be made, whatever the certificate.
  std::string problemOfPort(const LDAPURLDesc& url) const {
    const std::string port = portOf(url);
    LdapConnection plain(plainAddressOf(url), "", _interruption);
    if (plain.open() != LDAP_SUCCESS) return "nothing answers at " + port;
    return "it does not encrypt in this way at " + port + ": try another port, or " +
           (_options.startsTls ? "ldaps: without starting TLS" : "ldap: with starting TLS");
  }

  /// Adds what can be told of them. Gives what is in the way of telling more.
  std::string search(std::span<const Query> wanted, DestinationStatuses& statuses) {
    const auto result = _connection->search(
        {_options.base, LDAP_SCOPE_SUBTREE, filterOfAny(termsOf(wanted), _options.condition), attributes()}, _end);
    _lastCode = result.code;
    if (isCutOff(result.code) && wanted.size() > 1) {
      const std::size_t half = wanted.size() / 2;
      std::string problem = search(wanted.first(half), statuses);
      return problem.empty() ? search(wanted.subspan(half), statuses) : problem;
    }
    const bool isComplete = result.code == LDAP_SUCCESS && !result.isReferring;
    const std::set<std::string> found = addressesIn(result.entries);
    for (const Query& one : wanted) {
      if (found.contains(one.address)) {
        statuses.insert_or_assign(one.identifier, DestinationStatus::valid);
      } else if (isComplete) {
        statuses.insert_or_assign(one.identifier, DestinationStatus::invalid);
      }
    }
    return result.code == LDAP_SUCCESS || isCutOff(result.code) ? "" : problemOf(result.code);
  }

  std::vector<FilterTerm> termsOf(std::span<const Query> wanted) const {
    std::vector<FilterTerm> terms;
    for (const Query& one : wanted) {
      for (const std::string& attribute : one.isPhone ? _options.phoneAttributes : _options.emailAttributes) {
        terms.push_back({attribute, one.address});
      }
    }
    return terms;
  }

  std::vector<std::string> attributes() const {
    std::vector<std::string> all = _options.phoneAttributes;
    all.insert(all.end(), _options.emailAttributes.begin(), _options.emailAttributes.end());
    return all;
  }

  /// In the form in which they are compared.
  std::set<std::string> addressesIn(const std::vector<LdapConnection::Entry>& entries) const {
    std::set<std::string> addresses;
    for (const auto& entry : entries) {
      for (const auto& [attribute, value] : entry) {
        const bool isEmail = value.find('@') != std::string::npos;
        addresses.insert(isEmail ? lowerCased(value) : phoneForm(value));
      }
    }
    return addresses;
  }

  void warnOfOpenPassword() {
    if (std::exchange(_hasWarned, true)) return;
    _log.log("others can use the password in %@: make the file readable for its owner alone (chmod 600)",
             _options.passwordFile.string());
  }

  const LdapDirectoryOptions _options;
  const std::shared_ptr<ReachabilityService> _conversions;
  const LogHandle _log;
  const std::string _problemOfOptions;
  Interruption _interruption;
  std::unique_ptr<LdapConnection> _connection;
  std::chrono::steady_clock::time_point _end;
  int _lastCode = LDAP_SUCCESS;
  bool _hasStartedTls = false;  ///< on the connection that was made last
  bool _hasWarned = false;
};

LdapDirectory::LdapDirectory(LdapDirectoryOptions options, std::shared_ptr<ReachabilityService> conversions,
                             LogHandle log)
    : _searches(std::make_unique<Searches>(std::move(options), std::move(conversions), std::move(log))) {}

LdapDirectory::~LdapDirectory() = default;

std::string LdapDirectory::name() const { return _searches->name(); }

std::string LdapDirectory::account() const { return _searches->account(); }

std::size_t LdapDirectory::largestQuery() const { return MostIdentifiers; }

bool LdapDirectory::couldKnow(const std::string& identifier) const {
  const std::string_view text = identifier;
  if (text.starts_with(PhoneScheme)) {
    return text.size() > PhoneScheme.size() && std::ranges::all_of(text.substr(PhoneScheme.size()), isPhoneCharacter);
  }
  return text.find('@') != std::string_view::npos && std::ranges::all_of(text, isVisibleAscii);
}

DestinationDirectory::Answer LdapDirectory::lookUp(const std::set<std::string>& identifiers) {
  return _searches->lookUp(identifiers);
}

DestinationDirectory::State LdapDirectory::state() { return _searches->state(); }

void LdapDirectory::cancel() { _searches->cancel(); }

}  // namespace pellor
