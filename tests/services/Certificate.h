// A certificate of the test's own.
#pragma once

#include <filesystem>

#include "tests/services/servers/Server.h"

namespace pellor {

/// Of a server at 127.0.0.1, signed by nobody but itself.
struct Certificate {
  Certificate() {
    runTool({"sh", "-c",
             "cd $0 && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=localhost "
             "-addext subjectAltName=IP:127.0.0.1 -days 2 -keyout key.pem -out certificate.pem",
             folder.path()});
  }

  const TemporaryFolder folder;
  const std::filesystem::path file = folder / "certificate.pem", key = folder / "key.pem";
};

}  // namespace pellor
