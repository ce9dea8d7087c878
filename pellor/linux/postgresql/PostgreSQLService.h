// The connection to a PostgreSQL server that the preferences and the bus of a process share.
#pragma once

#include <memory>
#include <string>

#include "pellor/linux/ServiceReport.h"
#include "pellor/linux/postgresql/PostgreSQLOptions.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/Process.h"

namespace pellor {

class PostgreSQLLink;

/// One connection, on a thread of its own, which is started at once. While it cannot be had the log says so once, and
/// once when it is there again; meanwhile the thread tries to restore it. A server that says nothing, as behind a
/// network that drops everything, is noticed by the limits above.
///
/// The tables are in the schema `pellor`, which is made at the first connection if the role may. One that an earlier
/// version made is brought up to date then, if the role owns it; programs of that version fail from then on. A schema
/// that a later version made is not touched; it is as if the server were away, also where the role may not bring it up
/// to date. One database is for one user: every role that may use the schema sees all that is in it.
class PostgreSQLService {
 public:
  /// `process` has to outlive the object. The connection string is not logged.
  PostgreSQLService(Process& process, PostgreSQLOptions options, LogHandle log);
  /// Ends the thread, which gives up whatever it waits for. On any thread.
  ~PostgreSQLService();
  PostgreSQLService(const PostgreSQLService&) = delete;
  PostgreSQLService& operator=(const PostgreSQLService&) = delete;

  /// Whether the connection is there. Any thread, without waiting.
  bool isConnected() const;
  /// Why not, for the user; empty while it is there and while the first attempt lasts. May name the server and the
  /// role. Any thread, without waiting.
  std::string error() const;
  /// "PostgreSQL 15.3, schema version 2", or why it cannot be used and what to do. Waits for the end of the first
  /// attempt to connect, as the first call of the preferences does. Any thread.
  ServiceReport report() const;

  /// The statements by which an administrator makes the schema for a role that may not. After them:
  ///
  ///     GRANT USAGE ON SCHEMA pellor TO ada;
  ///     GRANT SELECT, INSERT, UPDATE, DELETE ON ALL TABLES IN SCHEMA pellor TO ada;
  static std::string schemaText();

  /// For the preferences and the bus.
  PostgreSQLLink& link() const { return *_link; }

 private:
  const std::unique_ptr<PostgreSQLLink> _link;
};

}  // namespace pellor
