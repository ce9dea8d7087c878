// A server's certificate of the test's own.
#pragma once

#include <filesystem>

#include "tests/linux/TemporaryFolder.h"
#include "tests/services/Server.h"

namespace pellor {

/// Of a server at 127.0.0.1, signed by nobody but itself.
struct Certificate {
  explicit Certificate(const TemporaryFolder& folder)
      : certificate(folder / "certificate.pem"), key(folder / "key.pem") {
    Server::Options tool;
    tool.command = {"openssl",
                    "req",
                    "-x509",
                    "-newkey",
                    "ec",
                    "-pkeyopt",
                    "ec_paramgen_curve:P-256",
                    "-nodes",
                    "-subj",
                    "/CN=localhost",
                    "-addext",
                    "subjectAltName=IP:127.0.0.1",
                    "-keyout",
                    key,
                    "-out",
                    certificate};
    tool.output = folder / "openssl.log";
    runTool(tool);
  }

  const std::filesystem::path certificate, key;
};

}  // namespace pellor
