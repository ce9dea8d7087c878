#include "pellor/linux/postgresql/PostgreSQLConnection.h"

#include <libpq-fe.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <utility>

namespace pellor {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int BinaryFormat = 1;

PostgreSQLError::Problem problemOf(std::string_view state) {
  struct Row {
    std::string_view state;
    PostgreSQLError::Problem problem;
  };
  static const std::vector<Row> all = {
      {"28P01",
       {"the server does not take the password",
        "correct it in ~/.pgpass, or where the connection names one, or correct the user's name"}},
      {"28000",
       {"the server does not let the role in",
        "correct the user's name, or let the administrator allow it (pg_hba.conf)"}},
      {"3D000", {"there is no such database", "let its administrator make it (createdb), or correct its name"}},
      {"42501", {"the role lacks a right", "let the administrator grant it, or make the schema"}},
      {"42P01", {"a table is missing", "let the administrator restore the schema pellor"}},
      {"3F000", {"the schema is missing", "let the administrator restore the schema pellor"}},
      {"53100", {"the server's disk is full", "let its administrator make room"}},
      {"53300", {"the server has too many connections", "let its administrator allow more"}},
      {"55P03", {"another machine does not finish its writing", "try again"}},
      {"25006", {"the server may only be read", "connect to the one that is written"}},
  };
  const auto found = std::ranges::find(all, state, &Row::state);
  if (found != all.end()) return found->problem;
  return {"the server refuses (" + std::string(state) + ")", "ask its administrator"};
}

// The library's texts have several lines, which are indented.
std::string oneLine(std::string text) {
  for (std::size_t end = 0; (end = text.find_first_of("\n\t", end)) != std::string::npos;) {
    const std::size_t next = std::min(text.find_first_not_of("\n\t ", end), text.size());
    text.replace(end, next - end, next == text.size() ? "" : "; ");
  }
  return text;
}

// The text of an attempt to connect that failed: the library gives the SQLSTATE inside of it alone.
std::string stateIn(std::string_view text) {
  constexpr std::string_view before = "FATAL:  ";
  constexpr std::size_t length = 5;
  const std::size_t found = text.find(before);
  if (found == std::string_view::npos) return {};
  const std::string_view state = text.substr(found + before.size(), length);
  return std::string(state);
}

// A text without keys is the name of a database.
bool isUnderstood(const std::string& connection) {
  if (connection.find('=') == std::string::npos && connection.find("://") == std::string::npos) return true;
  PQconninfoOption* options = PQconninfoParse(connection.c_str(), nullptr);
  PQconninfoFree(options);
  return options != nullptr;
}

PostgreSQLError connectError(const pg_conn* connection) {
  std::string text = PQerrorMessage(connection);
  const std::string state = stateIn(text);
  text.resize(std::min(text.find("\nLOCATION:"), text.size()));
  const PostgreSQLError::Problem unreached = {"it cannot be reached", "see that the server runs; check host and port"};
  const PostgreSQLError::Problem hasNoPassword = {
      "the server asks for a password", "put it into ~/.pgpass (chmod 600), as HOST:PORT:DATABASE:USER:PASSWORD"};
  const bool wantsPassword = state.empty() && PQconnectionNeedsPassword(connection) != 0;
  return {PostgreSQLError::Kind::away,
          !state.empty()  ? problemOf(state)
          : wantsPassword ? hasNoPassword
                          : unreached,
          oneLine(std::move(text))};
}

PostgreSQLError errorOf(const pg_result* result) {
  const auto field = [result](int code) {
    const char* text = PQresultErrorField(result, code);
    return std::string(text ? text : "");
  };
  return {PostgreSQLError::Kind::refused, problemOf(field(PG_DIAG_SQLSTATE)), field(PG_DIAG_MESSAGE_PRIMARY)};
}

PostgreSQLError lost(const std::string& what, std::string detail = {}) {
  return {PostgreSQLError::Kind::away, {what, "it is tried again by itself"}, std::move(detail)};
}

void ignoreNotice(void* /*context*/, const pg_result* /*notice*/) {}

}  // namespace

PostgreSQLParameter::PostgreSQLParameter(std::int64_t integer) {
  std::string bytes;
  for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(integer >> shift);
  _content = std::move(bytes);
}

const char* PostgreSQLParameter::data() const {
  if (const auto* text = std::get_if<std::string>(&_content)) return text->data();
  const auto& bytes = std::get<std::span<const std::uint8_t>>(_content);
  // Null would mean no value.
  return bytes.empty() ? "" : reinterpret_cast<const char*>(bytes.data());
}

int PostgreSQLParameter::size() const {
  return static_cast<int>(std::visit([](const auto& content) { return content.size(); }, _content));
}

void PostgreSQLRows::Clearer::operator()(pg_result* result) const { PQclear(result); }

PostgreSQLRows::PostgreSQLRows(pg_result* result) : _result(result) {}

int PostgreSQLRows::count() const { return PQntuples(_result.get()); }

bool PostgreSQLRows::isNull(int row, int column) const { return PQgetisnull(_result.get(), row, column) != 0; }

std::int64_t PostgreSQLRows::integer(int row, int column) const {
  std::uint64_t integer = 0;
  for (const std::uint8_t byte : bytes(row, column)) integer = integer << 8 | byte;
  return static_cast<std::int64_t>(integer);
}

std::string_view PostgreSQLRows::text(int row, int column) const {
  const auto shown = bytes(row, column);
  return {reinterpret_cast<const char*>(shown.data()), shown.size()};
}

std::span<const std::uint8_t> PostgreSQLRows::bytes(int row, int column) const {
  const char* value = PQgetvalue(_result.get(), row, column);
  const auto length = static_cast<std::size_t>(PQgetlength(_result.get(), row, column));
  return {reinterpret_cast<const std::uint8_t*>(value), length};
}

void PostgreSQLConnection::Closer::operator()(pg_conn* connection) const { PQfinish(connection); }

PostgreSQLConnection::PostgreSQLConnection(const std::string& target, Limits limits, int stop)
    : _limits(limits), _stop(stop) {
  connect(target);
  pg_conn* connection = _connection.get();
  PQsetErrorVerbosity(connection, PQERRORS_DEFAULT);
  PQsetNoticeReceiver(connection, ignoreNotice, nullptr);
  // What is sent waits for what arrives, or both sides could wait for each other with full buffers.
  if (PQsetnonblocking(connection, 1) != 0 || PQenterPipelineMode(connection) != 1) throwLost();
}

void PostgreSQLConnection::connect(const std::string& target) {
  // A dead peer is noticed by the system too. What the user's string says comes later and wins.
  const std::string unanswered = std::to_string(std::lround(_limits.answerSeconds * 1000));
  const std::array<const char*, 8> names = {
      "fallback_application_name", "client_encoding",  "keepalives_idle", "keepalives_interval",
      "keepalives_count",          "tcp_user_timeout", "dbname",          nullptr};
  const std::array<const char*, 8> values = {"pellor",           "UTF8",         "15",   "5", "3",
                                             unanswered.c_str(), target.c_str(), nullptr};
  _connection.reset(PQconnectStartParams(names.data(), values.data(), 1));
  pg_conn* connection = _connection.get();
  if (!isUnderstood(target)) {
    throw PostgreSQLError(PostgreSQLError::Kind::away,
                          {"the connection is not understood", "correct postgresql.connection"},
                          oneLine(PQerrorMessage(connection)));
  }
  if (!connection || PQstatus(connection) == CONNECTION_BAD) throw connectError(connection);
  PQsetErrorVerbosity(connection, PQERRORS_VERBOSE);
  const auto end = Clock::now() + std::chrono::duration<double>(_limits.connectSeconds);
  auto state = PGRES_POLLING_WRITING;
  while (state != PGRES_POLLING_OK) {
    waitFor(state == PGRES_POLLING_READING ? POLLIN : POLLOUT,
            std::chrono::duration<double>(end - Clock::now()).count());
    state = PQconnectPoll(connection);
    if (state == PGRES_POLLING_FAILED) throw connectError(connection);
  }
}

std::vector<PostgreSQLRows> PostgreSQLConnection::run(const PostgreSQLBatch& batch) {
  for (const PostgreSQLStatement& statement : batch) send(statement);
  if (PQpipelineSync(_connection.get()) != 1) throwLost();
  std::vector<PostgreSQLRows> rows;
  const auto error = receive(rows);
  if (!error) return rows;
  rollBack();
  throw *error;
}

void PostgreSQLConnection::rollBack() {
  if (PQtransactionStatus(_connection.get()) != PQTRANS_IDLE) run({{"ROLLBACK"}});
}

void PostgreSQLConnection::send(const PostgreSQLStatement& statement) {
  std::vector<const char*> values;
  std::vector<int> lengths;
  for (const PostgreSQLParameter& parameter : statement.parameters) {
    values.push_back(parameter.data());
    lengths.push_back(parameter.size());
  }
  const std::vector<int> formats(values.size(), BinaryFormat);
  const bool isSent = PQsendQueryParams(_connection.get(), statement.text.c_str(), static_cast<int>(values.size()),
                                        nullptr, values.data(), lengths.data(), formats.data(), BinaryFormat) == 1;
  if (!isSent) throwLost();
}

/// Takes what the batch gave, up to its end; the first error of it.
std::optional<PostgreSQLError> PostgreSQLConnection::receive(std::vector<PostgreSQLRows>& rows) {
  std::optional<PostgreSQLError> error;
  while (true) {
    pg_result* result = nextResult();
    PostgreSQLRows given(result);
    // It ends the results of one statement.
    if (!result) continue;
    const ExecStatusType status = PQresultStatus(result);
    if (status == PGRES_PIPELINE_SYNC) return error;
    if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) {
      rows.push_back(std::move(given));
    } else if (status != PGRES_PIPELINE_ABORTED && !error) {
      error = errorOf(result);
    }
  }
}

pg_result* PostgreSQLConnection::nextResult() {
  pg_conn* connection = _connection.get();
  while (true) {
    if (PQstatus(connection) == CONNECTION_BAD) throwLost();
    const int unsent = PQflush(connection);
    if (unsent < 0) throwLost();
    if (PQisBusy(connection) == 0) return PQgetResult(connection);
    waitFor(unsent > 0 ? POLLIN | POLLOUT : POLLIN, _limits.answerSeconds);
    takeInput();
  }
}

void PostgreSQLConnection::waitFor(int events, double limit) const {
  std::array<pollfd, 2> files{pollfd{socket(), static_cast<short>(events), 0}, pollfd{_stop, POLLIN, 0}};
  const auto milliseconds = static_cast<int>(std::ceil(std::max(limit, 0.0) * 1000));
  int ready = 0;
  do {
    ready = ::poll(files.data(), files.size(), milliseconds);
  } while (ready < 0 && errno == EINTR);
  if (files[1].revents != 0) throw lost("it is left");
  if (ready == 0) throw lost("it does not answer");
}

void PostgreSQLConnection::takeInput() {
  if (PQconsumeInput(_connection.get()) != 1) throwLost();
}

std::optional<PostgreSQLNotification> PostgreSQLConnection::nextNotification() {
  const std::unique_ptr<PGnotify, decltype(&PQfreemem)> notified(PQnotifies(_connection.get()), PQfreemem);
  if (!notified) return std::nullopt;
  return PostgreSQLNotification{notified->relname, notified->extra, notified->be_pid};
}

int PostgreSQLConnection::socket() const { return PQsocket(_connection.get()); }

int PostgreSQLConnection::sessionNumber() const { return PQbackendPID(_connection.get()); }

std::string PostgreSQLConnection::serverVersion() const {
  const char* version = PQparameterStatus(_connection.get(), "server_version");
  return version ? version : "";
}

void PostgreSQLConnection::throwLost() const {
  throw lost("the connection broke", oneLine(PQerrorMessage(_connection.get())));
}

}  // namespace pellor
