// A Matrix identity service in the test's own process.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/matrix/MatrixAddress.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {

/// Follows version 2 of the published API as far as it is about looking up users: who asks must be logged in,
/// addresses come hashed with the pepper of the moment, errors have their codes. HTTP/1.1 over
/// loopback, one connection after the other, each of which is kept. Any thread.
class MatrixStub {
 public:
  /// What it is set to. `raw`, where there is one, is sent in place of every answer; then the connection is cut.
  struct Behaviour {
    std::string token = "secret token";
    std::string pepper = "matrixrocks";
    std::vector<std::string> algorithms = {"none", "sha256"};
    std::vector<MatrixAddress> users;
    bool changesPepper = false;  ///< after each time that it was told
    bool hangs = false;          ///< takes requests and answers none
    std::optional<std::string> raw;
  };

  MatrixStub();
  ~MatrixStub();
  MatrixStub(const MatrixStub&) = delete;
  MatrixStub& operator=(const MatrixStub&) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(_port); }
  void set(Behaviour behaviour);
  /// The last parts of the paths that were asked for since the last time.
  std::vector<std::string> takeRequests();
  /// Waits until a request has come; false after a long time.
  bool waitForRequest();

 private:
  struct Request {
    std::string method, path, token, body;
  };
  struct Answer {
    int status = 200;
    nlohmann::json content;
  };

  void accept();
  void serve(int connection);
  std::optional<std::string> answerTo(const Request& request);
  Answer answerByTheStandard(const Request& request) PELLOR_REQUIRES(_mutex);
  Answer lookUp(const nlohmann::json& body) const PELLOR_REQUIRES(_mutex);
  static std::optional<Request> read(int connection, std::string& buffer);

  int _port = 0;
  FileDescriptor _listener;
  Mutex _mutex;
  Condition _asked;
  Behaviour _behaviour PELLOR_GUARDED_BY(_mutex);
  std::vector<std::string> _requests PELLOR_GUARDED_BY(_mutex);
  FileDescriptor _connection PELLOR_GUARDED_BY(_mutex);
  bool _isEnding PELLOR_GUARDED_BY(_mutex) = false;
  std::thread _thread;
};

}  // namespace pellor
