// Where a PostgreSQL server is, and how long to wait for it.
#pragma once

#include <string>

namespace pellor {

struct PostgreSQLOptions {
  /// Where the database is: "host=db.example.org dbname=pellor user=ada", or a URI. What it does not say comes from the
  /// environment (PGHOST...), the user's service file and password file (~/.pgpass), as for all programs of PostgreSQL.
  /// A host is better given as an address, or by a resolver that always answers: nothing limits its answer.
  std::string connection;
  /// For how long a call may wait for the server: on the main queue, and elsewhere. In seconds, as all that follows.
  double mainQueueLimit = 1;
  double limit = 15;
  /// For how long an attempt to connect may last.
  double connectLimit = 5;
  /// After which silence, while an answer is due, the server counts as gone.
  double answerLimit = 5;
  /// After which silence, while none is due, it is asked whether it is there.
  double heartbeat = 15;
  /// Between attempts to connect: the first pause and the longest one, to which it grows.
  double firstPause = 0.25;
  double longestPause = 10;
};

}  // namespace pellor
