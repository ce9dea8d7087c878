#include "pellor/linux/matrix/MatrixDirectory.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "pellor/linux/files/internal/SecretFile.h"
#include "pellor/linux/matrix/HttpClient.h"
#include "pellor/linux/matrix/MatrixAddress.h"
#include "pellor/linux/text/CardText.h"

namespace pellor {
namespace {

using Json = nlohmann::json;
using std::chrono::milliseconds;
using Addresses = std::map<std::string, MatrixAddress>;  ///< by identifier

constexpr std::size_t MostAddresses = 10'000;
constexpr const char* VersionsPath = "/_matrix/identity/versions";
constexpr const char* ApiPath = "/_matrix/identity/v2";

/// What came back of a request.
struct Reply {
  long status = 0;
  Json content;           ///< an object, whatever came
  std::string errorCode;  ///< as the service names the error; empty when there is none
  std::string problem;    ///< why there is nothing to be used; empty when there is
  milliseconds pause{0};
  std::optional<std::chrono::seconds> lifetime;
};

/// How addresses are to be sent.
struct Hashing {
  std::string algorithm;
  std::string pepper;
};

std::string textIn(const Json& object, const char* name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

milliseconds millisecondsIn(const Json& object, const char* name) {
  constexpr std::uint64_t longest = 86'400'000;
  const auto found = object.find(name);
  if (found == object.end() || !found->is_number_unsigned()) return milliseconds(0);
  return milliseconds(std::min(found->get<std::uint64_t>(), longest));
}

/// Null unless it is an array. Not a copy: that of one which is nested deeply would need as deep a stack.
const Json* arrayIn(const Json& object, const char* name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_array() ? &*found : nullptr;
}

bool holds(const Json* texts, const char* text) {
  return texts && std::ranges::find(*texts, Json(text)) != texts->end();
}

Addresses addressesOf(const std::set<std::string>& identifiers) {
  Addresses addresses;
  for (const std::string& identifier : identifiers) {
    if (auto address = matrixAddressOf(identifier)) addresses.emplace(identifier, *std::move(address));
  }
  return addresses;
}

std::string sentFormOf(const MatrixAddress& address, const Hashing& hashing) {
  return hashing.algorithm == "none" ? plainMatrixAddress(address) : hashedMatrixAddress(address, hashing.pepper);
}

}  // namespace

class MatrixDirectory::Service {
 public:
  Service(MatrixDirectoryOptions options, LogHandle log)
      : _options(std::move(options)),
        _log(std::move(log)),
        _url(parseServiceUrl(_options.url)),
        _http({_options.certificates, mayBePlain(), _url.isLocal}) {}

  std::string name() const { return "the Matrix identity service " + _url.base; }
  std::string account() const { return "matrix " + _url.base + " " + _options.accessTokenFile.string(); }
  void cancel() { _http.cancel(); }

  Answer lookUp(const Addresses& addresses) {
    _end = std::chrono::steady_clock::now() + _options.limit;
    Reply reply = ask(addresses);
    // The pepper changes now and then. Once: a service that changes it all the time cannot be asked.
    if (reply.errorCode == "M_INVALID_PEPPER") reply = ask(addresses);
    if (!reply.problem.empty()) return {{}, std::move(reply.problem), reply.pause};
    return {statusesOf(addresses, reply.content), "", {}, reply.lifetime};
  }

  State state() {
    _end = std::chrono::steady_clock::now() + _options.limit;
    const Reply versions = versionsOfService();
    if (!versions.problem.empty()) return {false, versions.problem};
    const Reply details = fetchHashing();
    if (!details.problem.empty()) return {false, details.problem};
    return {true, "Matrix identity service, " + versionText(versions.content)};
  }

 private:
  bool mayBePlain() const { return _url.isPlain && (_url.isLocal || _options.allowsPlainHttp); }

  std::string problemOfOptions() const {
    if (!_url.problem.empty()) return _url.problem;
    return _url.isPlain && !mayBePlain() ? "its address has to begin with https:" : "";
  }

  /// Asks for all of them; first, where that is not known, how.
  Reply ask(const Addresses& addresses) {
    if (!_hashing) {
      Reply details = fetchHashing();
      if (!details.problem.empty()) return details;
    }
    Json sent = Json::array();
    for (const auto& [identifier, address] : addresses) sent.push_back(sentFormOf(address, *_hashing));
    Reply reply = exchange(
        std::string(ApiPath) + "/lookup",
        Json{{"addresses", std::move(sent)}, {"algorithm", _hashing->algorithm}, {"pepper", _hashing->pepper}});
    const auto mappings = reply.content.find("mappings");
    if (reply.problem.empty() && (mappings == reply.content.end() || !mappings->is_object())) {
      reply.problem = "its answer holds no mappings";
    }
    if (!reply.problem.empty()) _hashing.reset();
    return reply;
  }

  DestinationStatuses statusesOf(const Addresses& addresses, const Json& content) const {
    const Json& mappings = content.at("mappings");
    DestinationStatuses statuses;
    for (const auto& [identifier, address] : addresses) {
      const bool isKnown = !textIn(mappings, sentFormOf(address, *_hashing).c_str()).empty();
      statuses.emplace(identifier, isKnown ? DestinationStatus::valid : DestinationStatus::invalid);
    }
    return statuses;
  }

  Reply fetchHashing() {
    Reply reply = exchange(std::string(ApiPath) + "/hash_details", std::nullopt);
    if (!reply.problem.empty()) return reply;
    const Json* algorithms = arrayIn(reply.content, "algorithms");
    const std::string pepper = textIn(reply.content, "lookup_pepper");
    if (holds(algorithms, "sha256")) {
      _hashing = Hashing{"sha256", pepper};
    } else if (holds(algorithms, "none") && _options.allowsPlainAddresses) {
      _hashing = Hashing{"none", pepper};
    } else {
      reply.problem = "it takes no hashes (sha256) of addresses, and may not be told the addresses";
    }
    return reply;
  }

  /// Services that are older than this question answer the one for the version itself.
  Reply versionsOfService() {
    Reply reply = exchange(VersionsPath, std::nullopt);
    if (reply.status == 404) reply = exchange(ApiPath, std::nullopt);
    return reply;
  }

  static std::string versionText(const Json& content) {
    std::string text = "API version 2";
    const Json* versions = arrayIn(content, "versions");
    if (versions && !versions->empty() && versions->back().is_string()) {
      text += ", Matrix " + cleanCardText(versions->back().get_ref<const std::string&>());
    }
    return text;
  }

  Reply exchange(const std::string& path, const std::optional<Json>& body) {
    Reply reply;
    reply.content = Json::object();
    reply.problem = problemOfOptions();
    const Secret token = reply.problem.empty() ? readSecret(_options.accessTokenFile) : Secret{};
    if (reply.problem.empty()) reply.problem = token.problem;
    if (!reply.problem.empty()) return reply;
    if (token.isOpenToOthers) warnOfOpenToken();
    using std::chrono::duration_cast;
    const auto left = duration_cast<milliseconds>(_end - std::chrono::steady_clock::now());
    HttpClient::Request request{_url.base + path, token.text, std::nullopt, left};
    if (body) request.body = body->dump(-1, ' ', false, Json::error_handler_t::replace);
    return readReply(_http.send(request));
  }

  Reply readReply(HttpClient::Response response) const {
    Reply reply;
    reply.status = response.status;
    reply.lifetime = response.maxAge;
    reply.problem = std::move(response.problem);
    reply.content = reply.problem.empty() ? Json::parse(response.body, nullptr, false) : Json::object();
    if (!reply.problem.empty()) return reply;
    const bool isObject = reply.content.is_object();
    if (!isObject) reply.content = Json::object();
    if (reply.status == 200) {
      if (!isObject) reply.problem = "its answer is no JSON object";
      return reply;
    }
    reply.errorCode = textIn(reply.content, "errcode");
    reply.problem = problemOf(reply);
    reply.pause = std::max<milliseconds>(response.retryAfter, millisecondsIn(reply.content, "retry_after_ms"));
    return reply;
  }

  std::string problemOf(const Reply& reply) const {
    if (reply.errorCode == "M_TERMS_NOT_SIGNED") {
      return "its terms of service are not accepted: accept them in a Matrix program that uses this account";
    }
    if (reply.errorCode == "M_INVALID_PEPPER") return "it has changed its pepper again";
    if (reply.status == 401 || reply.status == 403) {
      return "it refuses the access token: write a new one to " + _options.accessTokenFile.string();
    }
    if (reply.status == 429) return "it has been asked too often";
    if (reply.status == 404) return "there is no Matrix identity service of API version 2 at its address";
    if (reply.status / 100 == 3) return "it redirects, which is not followed: set the address that it redirects to";
    return "HTTP status " + std::to_string(reply.status);
  }

  void warnOfOpenToken() {
    if (std::exchange(_hasWarned, true)) return;
    _log.log("others can use the access token in %@: make the file readable for its owner alone (chmod 600)",
             _options.accessTokenFile.string());
  }

  const MatrixDirectoryOptions _options;
  const LogHandle _log;
  const ServiceUrl _url;
  HttpClient _http;
  std::optional<Hashing> _hashing;
  std::chrono::steady_clock::time_point _end;
  bool _hasWarned = false;
};

MatrixDirectory::MatrixDirectory(MatrixDirectoryOptions options, LogHandle log)
    : _service(std::make_unique<Service>(std::move(options), std::move(log))) {}

MatrixDirectory::~MatrixDirectory() = default;

std::string MatrixDirectory::name() const { return _service->name(); }

std::string MatrixDirectory::account() const { return _service->account(); }

std::size_t MatrixDirectory::largestQuery() const { return MostAddresses; }

bool MatrixDirectory::couldKnow(const std::string& identifier) const { return matrixAddressOf(identifier).has_value(); }

DestinationDirectory::Answer MatrixDirectory::lookUp(const std::set<std::string>& identifiers) {
  return _service->lookUp(addressesOf(identifiers));
}

DestinationDirectory::State MatrixDirectory::state() { return _service->state(); }

void MatrixDirectory::cancel() { _service->cancel(); }

}  // namespace pellor
