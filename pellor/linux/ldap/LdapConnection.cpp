#include "pellor/linux/ldap/LdapConnection.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

namespace pellor {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

constexpr timeval ConnectLimit{5, 0};
constexpr std::size_t MostEntries = 1000;

milliseconds timeUntil(std::chrono::steady_clock::time_point end) {
  return std::max(milliseconds(0), duration_cast<milliseconds>(end - std::chrono::steady_clock::now()));
}

struct ValuesDeleter {
  void operator()(berval** values) const { ldap_value_free_len(values); }
};

}  // namespace

Interruption::Interruption() : _event(eventfd(0, EFD_CLOEXEC)) {}

void Interruption::interrupt() {
  const std::uint64_t one = 1;
  while (write(_event.get(), &one, sizeof one) < 0 && errno == EINTR) {
  }
}

bool Interruption::waitFor(int file, std::chrono::steady_clock::time_point end) const {
  std::array<pollfd, 2> files{pollfd{_event.get(), POLLIN, 0}, pollfd{file, POLLIN, 0}};
  while (poll(files.data(), files.size(), static_cast<int>(timeUntil(end).count())) < 0 && errno == EINTR) {
  }
  return files[0].revents == 0 && files[1].revents != 0;
}

LdapConnection::LdapConnection(const std::string& url, const std::filesystem::path& certificates,
                               const Interruption& interruption, Check check)
    : _interruption(interruption), _openCode(ldap_initialize(&_ldap, url.c_str())) {
  if (_openCode == LDAP_SUCCESS) setOptions(certificates, check);
}

LdapConnection::~LdapConnection() {
  if (_ldap) ldap_unbind_ext_s(_ldap, nullptr, nullptr);
}

void LdapConnection::setOptions(const std::filesystem::path& certificates, Check check) {
  const int version = LDAP_VERSION3, isServer = 0;
  const int checked = check == Check::certificate ? LDAP_OPT_X_TLS_DEMAND : LDAP_OPT_X_TLS_NEVER;
  ldap_set_option(_ldap, LDAP_OPT_PROTOCOL_VERSION, &version);
  ldap_set_option(_ldap, LDAP_OPT_NETWORK_TIMEOUT, &ConnectLimit);
  ldap_set_option(_ldap, LDAP_OPT_RESTART, LDAP_OPT_ON);
  // Another server would get to see the password.
  ldap_set_option(_ldap, LDAP_OPT_REFERRALS, LDAP_OPT_OFF);
  ldap_set_option(_ldap, LDAP_OPT_X_TLS_REQUIRE_CERT, &checked);
  if (!certificates.empty()) ldap_set_option(_ldap, LDAP_OPT_X_TLS_CACERTFILE, certificates.c_str());
  const int code = ldap_set_option(_ldap, LDAP_OPT_X_TLS_NEWCTX, &isServer);
  if (code != LDAP_OPT_SUCCESS) _openCode = LDAP_LOCAL_ERROR;
}

std::string LdapConnection::peerCertificate() const {
  berval certificate{};
  if (!_ldap || ldap_get_option(_ldap, LDAP_OPT_X_TLS_PEERCERT, &certificate) != LDAP_OPT_SUCCESS) return "";
  std::string bytes(certificate.bv_val ? certificate.bv_val : "", certificate.bv_len);
  ldap_memfree(certificate.bv_val);
  return bytes;
}

int LdapConnection::open() { return _openCode == LDAP_SUCCESS ? ldap_connect(_ldap) : _openCode; }

int LdapConnection::startTls(Time end) {
  if (_openCode != LDAP_SUCCESS) return _openCode;
  int id = 0;
  const int started = ldap_start_tls(_ldap, nullptr, nullptr, &id);
  const int code = finish(started, id, end);
  return code == LDAP_SUCCESS ? ldap_install_tls(_ldap) : code;
}

int LdapConnection::bind(const std::string& name, const std::string& password, Time end) {
  if (_openCode != LDAP_SUCCESS) return _openCode;
  std::string bytes = password;
  const berval credentials{bytes.size(), bytes.data()};
  int id = 0;
  const int started =
      ldap_sasl_bind(_ldap, name.c_str(), LDAP_SASL_SIMPLE, const_cast<berval*>(&credentials), nullptr, nullptr, &id);
  return finish(started, id, end);
}

LdapConnection::Result LdapConnection::search(const Search& search, Time end) {
  Result result;
  std::vector<char*> attributes;
  attributes.reserve(search.attributes.size() + 1);
  for (const std::string& attribute : search.attributes) attributes.push_back(const_cast<char*>(attribute.c_str()));
  attributes.push_back(nullptr);
  const auto whole = duration_cast<std::chrono::seconds>(timeUntil(end)).count();
  timeval limit{std::max<time_t>(1, whole), 0};
  int id = 0;
  result.code = _openCode;
  if (result.code == LDAP_SUCCESS) {
    result.code = ldap_search_ext(_ldap, search.base.c_str(), search.scope, search.filter.c_str(), attributes.data(), 0,
                                  nullptr, nullptr, &limit, static_cast<int>(MostEntries), &id);
  }
  while (result.code == LDAP_SUCCESS) {
    const Message message = next(id, end, result.code);
    const ber_tag_t type = message ? static_cast<ber_tag_t>(ldap_msgtype(message.get())) : LDAP_RES_SEARCH_RESULT;
    if (type == LDAP_RES_SEARCH_ENTRY) result.entries.push_back(entryOf(message));
    if (type == LDAP_RES_SEARCH_REFERENCE) result.isReferring = true;
    if (result.entries.size() > MostEntries) result.code = abandon(id, LDAP_SIZELIMIT_EXCEEDED);
    if (type != LDAP_RES_SEARCH_RESULT) continue;
    if (message) result.code = codeOf(message);
    break;
  }
  return result;
}

/// None, with the reason, where there is none in time; the operation is given up then.
LdapConnection::Message LdapConnection::next(int id, Time end, int& code) {
  for (;;) {
    timeval atOnce{};
    LDAPMessage* message = nullptr;
    const int type = ldap_result(_ldap, id, LDAP_MSG_ONE, &atOnce, &message);
    if (type > 0) return Message(message);
    int file = -1;
    ldap_get_option(_ldap, type < 0 ? LDAP_OPT_RESULT_CODE : LDAP_OPT_DESC, type < 0 ? &code : &file);
    if (type < 0) {
      if (code == LDAP_SUCCESS) code = LDAP_SERVER_DOWN;
      return nullptr;
    }
    if (_interruption.waitFor(file, end)) continue;
    code = abandon(id, LDAP_TIMEOUT);
    return nullptr;
  }
}

/// Gives the reason back.
int LdapConnection::abandon(int id, int reason) {
  ldap_abandon_ext(_ldap, id, nullptr, nullptr);
  return reason;
}

int LdapConnection::finish(int started, int id, Time end) {
  if (started != LDAP_SUCCESS) return started;
  int code = LDAP_SUCCESS;
  const Message message = next(id, end, code);
  return message ? codeOf(message) : code;
}

int LdapConnection::codeOf(const Message& message) {
  int code = LDAP_SUCCESS;
  const int parsed = ldap_parse_result(_ldap, message.get(), &code, nullptr, nullptr, nullptr, nullptr, 0);
  return parsed == LDAP_SUCCESS ? code : parsed;
}

LdapConnection::Entry LdapConnection::entryOf(const Message& message) {
  Entry entry;
  BerElement* cursor = nullptr;
  for (char* name = ldap_first_attribute(_ldap, message.get(), &cursor); name != nullptr;
       name = ldap_next_attribute(_ldap, message.get(), cursor)) {
    const std::unique_ptr<berval*, ValuesDeleter> values(ldap_get_values_len(_ldap, message.get(), name));
    for (berval** value = values.get(); value && *value; ++value) {
      entry.emplace(name, std::string((*value)->bv_val, (*value)->bv_len));
    }
    ldap_memfree(name);
  }
  if (cursor) ber_free(cursor, 0);
  return entry;
}

}  // namespace pellor
