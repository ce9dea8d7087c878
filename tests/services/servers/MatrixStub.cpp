#include "tests/services/servers/MatrixStub.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <tuple>
#include <utility>

#include "tests/services/servers/Server.h"

namespace pellor {
namespace {

using Json = nlohmann::json;

constexpr std::size_t MostAddresses = 10'000;

Json error(const char* code) { return {{"errcode", code}, {"error", "as the code says"}}; }

std::string valueOf(const std::string& head, const std::string& header) {
  const std::size_t at = head.find("\r\n" + header + ": ");
  if (at == std::string::npos) return "";
  const std::size_t start = at + header.size() + 4;
  return head.substr(start, head.find("\r\n", start) - start);
}

bool isLookup(const Json& body) {
  const auto isText = [](const Json& value) { return value.is_string(); };
  return body.is_object() && isText(body.value("algorithm", Json())) && isText(body.value("pepper", Json())) &&
         body.value("addresses", Json()).is_array() && body["addresses"].size() <= MostAddresses &&
         std::ranges::all_of(body["addresses"], isText);
}

}  // namespace

MatrixStub::MatrixStub() {
  std::tie(_listener, _port) = listenOnLoopback();
  _thread = std::thread([this] { accept(); });
}

MatrixStub::~MatrixStub() {
  {
    const MutexLock lock(_mutex);
    _isEnding = true;
    ::shutdown(_connection.get(), SHUT_RDWR);
  }
  ::shutdown(_listener.get(), SHUT_RDWR);
  _thread.join();
}

void MatrixStub::set(Behaviour behaviour) {
  const MutexLock lock(_mutex);
  _behaviour = std::move(behaviour);
}

std::vector<std::string> MatrixStub::takeRequests() {
  const MutexLock lock(_mutex);
  return std::exchange(_requests, {});
}

bool MatrixStub::waitForRequest() {
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  const MutexLock lock(_mutex);
  while (_requests.empty()) {
    if (!_asked.waitUntil(_mutex, end)) return false;
  }
  return true;
}

void MatrixStub::accept() {
  for (;;) {
    FileDescriptor connection(::accept4(_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    const int file = connection.get();
    {
      const MutexLock lock(_mutex);
      _connection = std::move(connection);
      if (_isEnding || file < 0) return;
    }
    serve(file);
  }
}

void MatrixStub::serve(int connection) {
  std::string buffer;
  while (const auto request = read(connection, buffer)) {
    const auto answer = answerTo(*request);
    if (!answer) continue;
    const bool isSent = ::send(connection, answer->data(), answer->size(), MSG_NOSIGNAL) >= 0;
    const MutexLock lock(_mutex);
    if (!isSent || _behaviour.raw) break;
  }
  ::shutdown(connection, SHUT_RDWR);
}

/// Absent when the other side has gone.
std::optional<MatrixStub::Request> MatrixStub::read(int connection, std::string& buffer) {
  const auto readUntil = [&](const auto& isWhole) {
    char bytes[65536];
    while (!isWhole()) {
      const ssize_t size = ::read(connection, bytes, sizeof bytes);
      if (size <= 0) return false;
      buffer.append(bytes, static_cast<std::size_t>(size));
    }
    return true;
  };
  if (!readUntil([&] { return buffer.find("\r\n\r\n") != std::string::npos; })) return std::nullopt;
  const std::size_t headLength = buffer.find("\r\n\r\n") + 4;
  const std::string head = buffer.substr(0, headLength);
  const std::string length = valueOf(head, "Content-Length");
  const std::size_t whole = headLength + (length.empty() ? 0 : std::stoul(length));
  if (!readUntil([&] { return buffer.size() >= whole; })) return std::nullopt;
  Request request;
  request.method = head.substr(0, head.find(' '));
  request.path =
      head.substr(request.method.size() + 1, head.find(' ', request.method.size() + 1) - request.method.size() - 1);
  const std::string authorization = valueOf(head, "Authorization");
  if (authorization.starts_with("Bearer ")) request.token = authorization.substr(7);
  request.body = buffer.substr(headLength, whole - headLength);
  buffer.erase(0, whole);
  return request;
}

/// The bytes to send; absent: none.
std::optional<std::string> MatrixStub::answerTo(const Request& request) {
  const MutexLock lock(_mutex);
  _requests.push_back(request.path.substr(request.path.rfind('/') + 1));
  _asked.notifyAll();
  if (_behaviour.hangs) return std::nullopt;
  if (_behaviour.raw) return _behaviour.raw;
  const Answer answer = answerByTheStandard(request);
  const std::string body = answer.content.dump();
  return "HTTP/1.1 " + std::to_string(answer.status) + " As the number says\r\nContent-Type: application/json\r\n" +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

MatrixStub::Answer MatrixStub::answerByTheStandard(const Request& request) {
  const std::string root = "/_matrix/identity/";
  if (request.path == root + "versions" && request.method == "GET") return {200, {{"versions", {"v1.1", "v1.5"}}}};
  if (request.path == root + "v2" && request.method == "GET") return {200, Json::object()};
  const bool isDetails = request.path == root + "v2/hash_details" && request.method == "GET";
  const bool isLookup = request.path == root + "v2/lookup" && request.method == "POST";
  if (!isDetails && !isLookup) return {404, error("M_UNRECOGNIZED")};
  if (request.token != _behaviour.token) return {401, error("M_UNAUTHORIZED")};
  if (isLookup) return lookUp(Json::parse(request.body, nullptr, false));
  const Answer details{200, {{"lookup_pepper", _behaviour.pepper}, {"algorithms", _behaviour.algorithms}}};
  if (_behaviour.changesPepper) _behaviour.pepper += "!";
  return details;
}

MatrixStub::Answer MatrixStub::lookUp(const Json& body) const {
  if (!isLookup(body)) return {400, error("M_INVALID_PARAM")};
  const Json &algorithm = body["algorithm"], offered = _behaviour.algorithms;
  if (std::ranges::find(offered, algorithm) == offered.end()) return {400, error("M_INVALID_PARAM")};
  if (body["pepper"] != _behaviour.pepper) return {400, error("M_INVALID_PEPPER")};
  Json mappings = Json::object();
  for (const MatrixAddress& user : _behaviour.users) {
    const std::string form =
        algorithm == "none" ? user.address + " " + user.medium : hashedMatrixAddress(user, _behaviour.pepper);
    const bool isAsked = std::ranges::find(body["addresses"], Json(form)) != body["addresses"].end();
    if (isAsked) mappings[form] = "@user:example.org";
  }
  return {200, {{"mappings", mappings}}};
}

}  // namespace pellor
