// Requests of a web service, by libcurl.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace pellor {

/// One request at a time, over connections that are kept. Certificates are checked, redirects are not followed,
/// answers are limited in size. One thread; `cancel` may be called on any other.
class HttpClient {
 public:
  struct Options {
    std::filesystem::path certificates;  ///< the authorities that are trusted, in PEM; empty: those of the system
    bool allowsPlainHttp = false;        ///< also without encryption
    bool isLocal = false;                ///< the service is on this machine, behind no proxy
  };
  struct Request {
    std::string url;
    std::string token;                ///< sent as a bearer token; empty: without one
    std::optional<std::string> body;  ///< JSON to post; absent: to get
    std::chrono::milliseconds limit;  ///< for all of it
  };
  struct Response {
    long status = 0;
    std::string body;
    std::chrono::seconds retryAfter{0};
    std::optional<std::chrono::seconds> maxAge = std::nullopt;  ///< for how long the response holds, as it says
    std::string problem;                                        ///< why there is no response; empty when there is one
  };

  explicit HttpClient(Options options);
  ~HttpClient();
  HttpClient(const HttpClient&) = delete;
  HttpClient& operator=(const HttpClient&) = delete;

  Response send(const Request& request);
  /// Ends the request that is under way and every later one at once.
  void cancel();

 private:
  class Transfers;
  const Options _options;
  const std::unique_ptr<Transfers> _transfers;
};

/// Where a service is, as a user gave it.
struct ServiceUrl {
  std::string base;      ///< without a slash at its end; paths are appended to it
  bool isPlain = false;  ///< http, not https
  bool isLocal = false;  ///< a loopback address
  std::string problem;   ///< why it cannot be used; empty when it can
};

/// Takes http and https, with a host and maybe a port and a path, and nothing else.
ServiceUrl parseServiceUrl(const std::string& text);

}  // namespace pellor
