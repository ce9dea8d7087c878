// A Matrix identity service as the directory of reachable destinations.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "pellor/linux/reachability/DestinationDirectory.h"
#include "pellor/runtime/Log.h"

namespace pellor {

struct MatrixDirectoryOptions {
  std::string url;                        ///< "https://id.example.org"; http only for this machine itself
  std::filesystem::path accessTokenFile;  ///< its first line is the token of the user's account at the service
  std::filesystem::path certificates;     ///< the authorities that are trusted, in PEM; empty: those of the system
  bool allowsPlainHttp = false;           ///< http to other machines: a listener reads token and friends' hashes
  bool allowsPlainAddresses = false;      ///< where the service cannot hash: it learns the addresses as they are
  std::chrono::milliseconds limit = std::chrono::seconds(12);  ///< for a whole answer; the library's patience is 30 s
};

/// Asks over the Identity Service API, version 2. The addresses that it knows a user for are valid, those that it does
/// not know are invalid.
///
/// Options that cannot be used, a token file that cannot be read, and a service that does not answer in time, refuses,
/// redirects or answers in another language are problems of each answer. That others can read the token file is said
/// once on the log.
class MatrixDirectory final : public DestinationDirectory {
 public:
  MatrixDirectory(MatrixDirectoryOptions options, LogHandle log);
  ~MatrixDirectory() override;

  std::string name() const override;
  std::string account() const override;
  std::size_t largestQuery() const override;
  /// Whether it has a Matrix address (see `matrixAddressOf`).
  bool couldKnow(const std::string& identifier) const override;
  Answer lookUp(const std::set<std::string>& identifiers) override;
  State state() override;
  void cancel() override;

 private:
  class Service;
  const std::unique_ptr<Service> _service;
};

}  // namespace pellor
