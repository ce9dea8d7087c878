#include "linux/postgresql/PostgreSQLPreferences.h"

#include <set>
#include <utility>

#include "linux/PreferencesMemory.h"
#include "linux/PrivateFiles.h"
#include "linux/postgresql/PostgreSQLLink.h"
#include "linux/postgresql/PostgreSQLTables.h"
#include "runtime/ThreadSafety.h"

namespace pellor {
namespace {

using Fault = PreferencesMemory::Fault;

PostgreSQLTables::Changes encoded(const PreferencesMemory::PendingValues& values) {
  PostgreSQLTables::Changes changes;
  for (const auto& [key, pending] : values) {
    std::optional<EncodedValue> value;
    if (pending.value) {
      value = EncodedValue::encode(*pending.value);
      if (!value)
        throw PostgreSQLError(PostgreSQLError::Kind::refused, {EncodedValue::errorFor(key), "make it smaller"});
    }
    changes.emplace(key, std::move(value));
  }
  return changes;
}

}  // namespace

/// What is done on the service's thread, and what lies in memory. Jobs keep it, also those that nobody waits for.
class PostgreSQLPreferences::Core final : public PostgreSQLListener, public std::enable_shared_from_this<Core> {
 public:
  enum class Outcome { done, refused, away };

  explicit Core(LogHandle log) : memory("PostgreSQL", std::move(log)) {}

  /// Does the work on the service's thread and waits for it.
  template <class Work>
  Outcome perform(PostgreSQLLink& link, Fault fault, Work work) {
    try {
      link.perform([self = shared_from_this(), fault, work = std::move(work)](PostgreSQLConnection& connection) {
        self->attempt(fault, connection, work);
      });
      return Outcome::done;
    } catch (const PostgreSQLError& error) {
      return error.kind() == PostgreSQLError::Kind::away ? Outcome::away : Outcome::refused;
    }
  }

  void read(PostgreSQLConnection& connection, const std::string& domain) {
    _role.isThisThread();
    memory.install(domain, _tables.read(connection, domain));
  }

  void synchronize(PostgreSQLConnection& connection, const std::string& domain) {
    const auto values = memory.copyOfPending(domain);
    if (values.empty()) return read(connection, domain);
    write(connection, domain, encoded(values), PostgreSQLTables::Which::all);
    memory.removeWritten(domain, values);
  }

  void write(PostgreSQLConnection& connection, const std::string& domain, PostgreSQLTables::Changes changes,
             PostgreSQLTables::Which which) {
    _role.isThisThread();
    memory.install(domain, _tables.write(connection, domain, std::move(changes), which));
    memory.ends(Fault::read);
  }

  PutAside putAside(PostgreSQLConnection& connection, const std::string& key, const std::string& domain) {
    PutAside result;
    result.lastGood = PostgreSQLTables::lastGood(connection, key, domain);
    try {
      result.kept = PostgreSQLTables::putAside(connection, key, domain);
    } catch (const PostgreSQLError& error) {
      if (error.kind() == PostgreSQLError::Kind::away) throw;
    }
    return result;
  }

  void connected(PostgreSQLConnection& connection) override {
    _role.isThisThread();
    _tables.forgetRevisions();
    for (const std::string& domain : _tables.domains()) _stale.insert(domain);
    readAhead(connection);
  }

  void notified(PostgreSQLLink& link, const PostgreSQLNotification& notification) override {
    _role.isThisThread();
    if (notification.channel != PostgreSQLLink::DataChannel) return;
    const std::string written = notification.payload.substr(notification.payload.find(' ') + 1);
    const bool isAsked = !_stale.empty();
    for (const std::string& domain : _tables.domains()) {
      if (fileNameOf(domain) == written) _stale.insert(domain);
    }
    if (isAsked || _stale.empty()) return;
    link.performSoon([self = shared_from_this()](PostgreSQLConnection& connection) { self->readAhead(connection); });
  }

  PreferencesMemory memory;

 private:
  template <class Work>
  void attempt(Fault fault, PostgreSQLConnection& connection, const Work& work) {
    try {
      work(*this, connection);
      memory.ends(fault);
    } catch (const PostgreSQLError& error) {
      // That the server is away is said by the service.
      if (error.kind() == PostgreSQLError::Kind::refused) memory.begins(fault, error.what());
      throw;
    }
  }

  /// What is read is shown once the domain is synchronized.
  void readAhead(PostgreSQLConnection& connection) {
    _role.isThisThread();
    for (const std::string& domain : std::exchange(_stale, {})) {
      try {
        _tables.read(connection, domain);
      } catch (const PostgreSQLError& error) {
        // Those who ask for it are told.
        if (error.kind() == PostgreSQLError::Kind::away) throw;
      }
    }
  }

  ThreadRole _role;
  PostgreSQLTables _tables PELLOR_GUARDED_BY(_role);
  std::set<std::string> _stale PELLOR_GUARDED_BY(_role);  ///< domains that others wrote, to be read ahead
};

PostgreSQLPreferences::PostgreSQLPreferences(std::shared_ptr<PostgreSQLService> service,
                                             std::filesystem::path defaultsFile, LogHandle log)
    : _service(std::move(service)), _core(std::make_shared<Core>(log)), _defaults(std::move(defaultsFile), log) {
  _service->link().addListener(_core);
}

PostgreSQLPreferences::~PostgreSQLPreferences() = default;

PreferenceAnswer<Value> PostgreSQLPreferences::copyValue(std::string_view key, std::string_view domain) {
  if (const auto answer = _core->memory.answer(key, domain)) return *answer;
  if (!renew(domain)) return PreferenceAnswer<Value>::unreadable();
  return _core->memory.answer(key, domain).value_or(PreferenceAnswer<Value>::unreadable());
}

void PostgreSQLPreferences::setValue(std::string_view key, std::optional<Value> value, std::string_view domain) {
  _core->memory.keep(key, std::move(value), domain);
}

bool PostgreSQLPreferences::renew(std::string_view domain) {
  const auto outcome =
      _core->perform(_service->link(), Fault::read,
                     [name = std::string(domain)](Core& core, auto& connection) { core.read(connection, name); });
  if (outcome == Core::Outcome::done) return true;
  _core->memory.install(domain, nullptr);
  return false;
}

bool PostgreSQLPreferences::synchronize(std::string_view domain) {
  const auto values = _core->memory.copyOfPending(domain);
  if (values.empty()) return renew(domain);
  const auto outcome = _core->perform(
      _service->link(), Fault::write,
      [name = std::string(domain)](Core& core, auto& connection) { core.synchronize(connection, name); });
  if (outcome == Core::Outcome::done) return true;
  _core->memory.markFailed(domain, values);
  if (outcome == Core::Outcome::refused) {
    renew(domain);
  } else {
    _core->memory.install(domain, nullptr);
  }
  return false;
}

bool PostgreSQLPreferences::insertIfAbsent(const Dictionary& values, std::string_view domain) {
  const auto insert = [values, name = std::string(domain)](Core& core, PostgreSQLConnection& connection) {
    PreferencesMemory::PendingValues pending;
    for (const auto& [key, value] : values) pending[key].value = value;
    core.write(connection, name, encoded(pending), PostgreSQLTables::Which::absent);
  };
  return _core->perform(_service->link(), Fault::write, insert) == Core::Outcome::done;
}

PutAside PostgreSQLPreferences::putAside(std::string_view key, std::string_view domain) {
  // Kept by the job: it may go on when nobody waits any more.
  const auto result = std::make_shared<PutAside>();
  const auto put = [result, keyCopy = std::string(key), name = std::string(domain)](Core& core, auto& connection) {
    *result = core.putAside(connection, keyCopy, name);
  };
  if (_core->perform(_service->link(), Fault::read, put) != Core::Outcome::done) return {};
  return *result;
}

std::optional<Value> PostgreSQLPreferences::persistentValueForKey(std::string_view key, std::string_view domain) {
  return _defaults.value(key, domain);
}

bool PostgreSQLPreferences::isWritable() {
  const auto mayWrite = std::make_shared<bool>(false);
  const auto ask = [mayWrite](Core& core, PostgreSQLConnection& connection) {
    *mayWrite = PostgreSQLTables::mayWrite(connection);
    if (!*mayWrite) core.memory.begins(Fault::write, "the role may only read the tables, or the server only be read");
  };
  return _core->perform(_service->link(), Fault::read, ask) == Core::Outcome::done && *mayWrite;
}

std::string PostgreSQLPreferences::lastError() const {
  std::string error = _core->memory.lastError();
  return error.empty() ? _service->error() : error;
}

}  // namespace pellor
