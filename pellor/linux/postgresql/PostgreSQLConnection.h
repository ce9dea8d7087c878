// A connection to a PostgreSQL server: statements in batches, with a limit for every wait. Over libpq.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

struct pg_conn;
struct pg_result;

namespace pellor {

/// What the server reports, or the way to it. Never leaves the adapter.
class PostgreSQLError : public std::exception {
 public:
  enum class Kind {
    refused,  ///< the server will not do it; the connection is as it was, outside of a transaction
    away,     ///< the connection is of no use any more
  };
  /// For the user, without names.
  struct Problem {
    std::string what;
    std::string advice;
  };
  /// `detail` is what the server says; it may hold names and addresses.
  PostgreSQLError(Kind kind, Problem problem, std::string detail = {})
      : _kind(kind), _problem(std::move(problem)), _detail(std::move(detail)) {
    _reason = _detail.empty() ? _problem.what : _problem.what + " (" + _detail + ")";
    _text = _reason + "; " + _problem.advice;
  }

  const char* what() const noexcept override { return _text.c_str(); }

  Kind kind() const { return _kind; }
  const Problem& problem() const { return _problem; }
  const std::string& detail() const { return _detail; }
  /// The problem without advice, with the detail.
  const std::string& reason() const { return _reason; }

 private:
  Kind _kind;
  Problem _problem;
  std::string _detail;
  std::string _reason;
  std::string _text;
};

/// What stands for $1, $2... in a statement. Text is copied; bytes have to outlive the run.
class PostgreSQLParameter {
 public:
  PostgreSQLParameter(std::string_view text) : _content(std::string(text)) {}
  PostgreSQLParameter(std::span<const std::uint8_t> bytes) : _content(bytes) {}
  /// A bigint.
  PostgreSQLParameter(std::int64_t integer);

  const char* data() const;
  int size() const;

 private:
  std::variant<std::string, std::span<const std::uint8_t>> _content;
};

struct PostgreSQLStatement {
  std::string text;
  std::vector<PostgreSQLParameter> parameters = {};
};
using PostgreSQLBatch = std::vector<PostgreSQLStatement>;

/// What a statement gave. What it shows is valid as long as it lives. Integers are bigints.
class PostgreSQLRows {
 public:
  explicit PostgreSQLRows(pg_result* result);

  int count() const;
  bool isNull(int row, int column) const;
  std::int64_t integer(int row, int column) const;
  bool boolean(int row, int column) const { return integer(row, column) != 0; }
  std::string_view text(int row, int column) const;
  std::span<const std::uint8_t> bytes(int row, int column) const;

 private:
  struct Clearer {
    void operator()(pg_result* result) const;
  };
  std::unique_ptr<pg_result, Clearer> _result;
};

struct PostgreSQLNotification {
  std::string channel;
  std::string payload;
  int sender = 0;  ///< the number of the session that it comes from
};

/// An open session. One thread. Operations throw PostgreSQLError.
class PostgreSQLConnection {
 public:
  struct Limits {
    double connectSeconds = 0;
    double answerSeconds = 0;  ///< for each wait in which nothing arrives and nothing can be sent
  };
  /// Connects, by a connection string or URI of libpq. Whatever waits is given up when `stop`, a descriptor, becomes
  /// readable.
  PostgreSQLConnection(const std::string& target, Limits limits, int stop);

  /// Sends all statements at once, so that they take one journey, and gives what each of them gave. After one that was
  /// refused those behind it are not run, and an open transaction is rolled back.
  std::vector<PostgreSQLRows> run(const PostgreSQLBatch& batch);

  /// Ends an open transaction without effect.
  void rollBack();

  /// Readable when something has arrived.
  int socket() const;
  /// Takes what has arrived.
  void takeInput();
  std::optional<PostgreSQLNotification> nextNotification();

  /// Tells own notifications from those of others.
  int sessionNumber() const;
  /// As the server says it.
  std::string serverVersion() const;

 private:
  void connect(const std::string& target);
  void send(const PostgreSQLStatement& statement);
  std::optional<PostgreSQLError> receive(std::vector<PostgreSQLRows>& rows);
  pg_result* nextResult();
  void waitFor(int events, double limit) const;
  [[noreturn]] void throwLost() const;

  struct Closer {
    void operator()(pg_conn* connection) const;
  };
  const Limits _limits;
  const int _stop;
  std::unique_ptr<pg_conn, Closer> _connection;
};

}  // namespace pellor
