#include "pellor/linux/matrix/HttpClient.h"

#include <arpa/inet.h>
#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <utility>

#include "pellor/linux/threads/BlockedSignals.h"

namespace pellor {
namespace {

// Ten thousand users with identifiers of the greatest length, twice over.
constexpr std::size_t LargestBody = std::size_t{8} << 20;
constexpr long ConnectLimit = 5000;

struct EasyDeleter {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct UrlDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
struct HeadersDeleter {
  void operator()(curl_slist* headers) const { curl_slist_free_all(headers); }
};
using Easy = std::unique_ptr<CURL, EasyDeleter>;
using Url = std::unique_ptr<CURLU, UrlDeleter>;
using Headers = std::unique_ptr<curl_slist, HeadersDeleter>;

void initializeOnce() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

std::size_t appendBody(char* bytes, std::size_t /*one*/, std::size_t size, void* target) {
  auto& body = *static_cast<std::string*>(target);
  if (size > LargestBody - body.size()) return 0;
  body.append(bytes, size);
  return size;
}

Headers headersOf(const HttpClient::Request& request) {
  curl_slist* headers = nullptr;
  // By itself it would wait for the server's leave before it sends a large body.
  for (const char* line : {"Content-Type: application/json", "Accept: application/json", "Expect:"}) {
    headers = curl_slist_append(headers, line);
  }
  if (!request.token.empty()) headers = curl_slist_append(headers, ("Authorization: Bearer " + request.token).c_str());
  return Headers(headers);
}

void setSafety(CURL* easy, const HttpClient::Options& options) {
  curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, options.allowsPlainHttp ? "http,https" : "https");
  curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
  curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
  curl_easy_setopt(easy, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(LargestBody));
  if (!options.certificates.empty()) curl_easy_setopt(easy, CURLOPT_CAINFO, options.certificates.c_str());
  if (options.isLocal) curl_easy_setopt(easy, CURLOPT_PROXY, "");
}

void setLimits(CURL* easy, std::chrono::milliseconds limit) {
  // A limit of zero would be none.
  const long whole = std::max<long>(1, static_cast<long>(limit.count()));
  curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, whole);
  curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, std::min(whole, ConnectLimit));
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  // A name server that does not answer holds nobody up.
  curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);
}

void setRequest(CURL* easy, const HttpClient::Request& request, curl_slist* headers, std::string& body) {
  curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(easy, CURLOPT_USERAGENT, "pellor");
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, appendBody);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, &body);
  if (!request.body) return;
  curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
  curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body->c_str());
}

std::string problemOf(CURLcode code) {
  if (code == CURLE_WRITE_ERROR || code == CURLE_FILESIZE_EXCEEDED) return "its answer is too large";
  return curl_easy_strerror(code);
}

std::string partOf(const Url& url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url.get(), part, &text, 0) != CURLUE_OK) return "";
  std::string result(text);
  curl_free(text);
  return result;
}

/// Of the header "Cache-Control: private, max-age=60"; absent without it, and where it says no number.
std::optional<std::chrono::seconds> maxAgeOf(CURL* easy) {
  constexpr std::string_view name = "max-age=";
  curl_header* header = nullptr;
  if (curl_easy_header(easy, "Cache-Control", 0, CURLH_HEADER, -1, &header) != CURLHE_OK) return std::nullopt;
  const std::string_view value = header->value;
  const std::size_t place = value.find(name);
  if (place == std::string_view::npos) return std::nullopt;
  std::uint32_t age = 0;
  const std::string_view number = value.substr(place + name.size());
  const auto read = std::from_chars(number.data(), number.data() + number.size(), age);
  return read.ec == std::errc() ? std::optional(std::chrono::seconds(age)) : std::nullopt;
}

bool isLoopback(const std::string& host) {
  in_addr address{};
  if (inet_pton(AF_INET, host.c_str(), &address) == 1) return ntohl(address.s_addr) >> 24 == 127;
  return host == "localhost" || host == "[::1]";
}

}  // namespace

/// The connections, and the transfer that is under way.
class HttpClient::Transfers {
 public:
  Transfers() {
    initializeOnce();
    _multi = curl_multi_init();
  }
  ~Transfers() {
    const BlockedBrokenPipe quiet;
    curl_multi_cleanup(_multi);
  }
  Transfers(const Transfers&) = delete;
  Transfers& operator=(const Transfers&) = delete;

  std::string perform(CURL* easy) {
    const BlockedBrokenPipe quiet;
    if (!_multi || curl_multi_add_handle(_multi, easy) != CURLM_OK) return "out of memory";
    std::string problem = waitFor();
    curl_multi_remove_handle(_multi, easy);
    return problem;
  }

  void cancel() {
    _isCancelled = true;
    if (_multi) curl_multi_wakeup(_multi);
  }

 private:
  std::string waitFor() {
    constexpr int longest = 60'000;
    for (int running = 1; running != 0;) {
      if (_isCancelled) return "cancelled";
      if (curl_multi_perform(_multi, &running) != CURLM_OK) return "the transfer failed";
      // A cancel since the look at it ends this wait as well.
      if (running != 0) curl_multi_poll(_multi, nullptr, 0, longest, nullptr);
    }
    int left = 0;
    const CURLMsg* message = curl_multi_info_read(_multi, &left);
    if (!message) return "the transfer failed";
    return message->data.result == CURLE_OK ? "" : problemOf(message->data.result);
  }

  CURLM* _multi = nullptr;
  std::atomic<bool> _isCancelled = false;  // set by `cancel`, on any thread
};

HttpClient::HttpClient(Options options) : _options(std::move(options)), _transfers(std::make_unique<Transfers>()) {}

HttpClient::~HttpClient() = default;

HttpClient::Response HttpClient::send(const Request& request) {
  Response response;
  const Headers headers = headersOf(request);
  const Easy easy(curl_easy_init());
  if (!easy) {
    response.problem = "out of memory";
    return response;
  }
  setSafety(easy.get(), _options);
  setLimits(easy.get(), request.limit);
  setRequest(easy.get(), request, headers.get(), response.body);
  response.problem = _transfers->perform(easy.get());
  curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &response.status);
  curl_off_t seconds = 0;
  curl_easy_getinfo(easy.get(), CURLINFO_RETRY_AFTER, &seconds);
  response.retryAfter = std::chrono::seconds(seconds);
  response.maxAge = maxAgeOf(easy.get());
  return response;
}

void HttpClient::cancel() { _transfers->cancel(); }

ServiceUrl parseServiceUrl(const std::string& text) {
  initializeOnce();
  const auto unusable = [](const char* problem) { return ServiceUrl{"", false, false, problem}; };
  const Url url(curl_url());
  if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) return unusable("its address is no URL");
  const std::string scheme = partOf(url, CURLUPART_SCHEME), host = partOf(url, CURLUPART_HOST);
  if (scheme != "https" && scheme != "http") return unusable("its address is neither https nor http");
  for (const CURLUPart part : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_QUERY, CURLUPART_FRAGMENT}) {
    if (!partOf(url, part).empty()) return unusable("its address has parts beside host, port and path");
  }
  ServiceUrl result{partOf(url, CURLUPART_URL), scheme == "http", isLoopback(host), ""};
  while (result.base.ends_with('/')) result.base.pop_back();
  return result;
}

}  // namespace pellor
