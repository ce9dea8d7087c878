#include "pellor/linux/postgresql/PostgreSQLPreferences.h"

#include <algorithm>
#include <atomic>
#include <set>
#include <utility>
#include <vector>

#include "pellor/linux/files/internal/PrivateFiles.h"
#include "pellor/linux/postgresql/Commitment.h"
#include "pellor/linux/postgresql/PostgreSQLLink.h"
#include "pellor/linux/postgresql/PostgreSQLTables.h"
#include "pellor/linux/postgresql/PostgreSQLWriting.h"
#include "pellor/linux/preferences/internal/CopiedDomain.h"
#include "pellor/linux/preferences/internal/PreferencesMemory.h"
#include "pellor/runtime/Fatal.h"
#include "pellor/runtime/ThreadSafety.h"

namespace pellor {
namespace {

using Fault = PreferencesMemory::Fault;

}  // namespace

/// What is done on the service's thread, and what lies in memory. Jobs keep it, also those that nobody waits for.
class PostgreSQLPreferences::Core final : public PostgreSQLListener, public std::enable_shared_from_this<Core> {
 public:
  enum class Outcome {
    done,
    refused,  ///< nothing was written
    away,     ///< nothing was written, and will not be
    unknown,  ///< it may have been written, or may still be
  };

  explicit Core(LogHandle log) : memory("PostgreSQL", std::move(log)) {}

  /// Does the work on the service's thread and waits for it.
  template <class Work>
  Outcome perform(PostgreSQLLink& link, Fault fault, Work work) {
    const auto commitment = std::make_shared<Commitment>();
    try {
      link.perform(
          [self = shared_from_this(), fault, commitment, work = std::move(work)](PostgreSQLConnection& connection) {
            self->attempt(fault, [&] { work(*self, connection, *commitment); });
          });
      return Outcome::done;
    } catch (const PostgreSQLError& error) {
      if (error.kind() == PostgreSQLError::Kind::refused) return Outcome::refused;
      if (commitment->preclude()) return Outcome::away;
      memory.count(PreferenceWriteOutcome::unknown);
      return Outcome::unknown;
    }
  }

  /// What is read is shown by `memory` when it is installed there.
  PostgreSQLDomain read(PostgreSQLConnection& connection, const std::string& domain) {
    _role.isThisThread();
    return _tables.read(connection, domain);
  }

  void synchronize(PostgreSQLConnection& connection, const std::string& domain, Commitment& commitment) {
    _role.isThisThread();
    const auto values = memory.copyOfPending(domain);
    if (values.empty()) return memory.install(domain, read(connection, domain).values);
    if (!writes(connection, domain, writingOf(values), commitment)) return;
    memory.removePending(domain, values);
  }

  void insertIfAbsent(PostgreSQLConnection& connection, const std::string& domain, const Dictionary& values,
                      Commitment& commitment) {
    writes(connection, domain, writingOf(values), commitment);
  }

  PreferenceWriteAnswer write(PostgreSQLConnection& connection, const std::string& domain,
                              const PreferenceChanges& changes, PreferenceWriteID id, Commitment& commitment) {
    _role.isThisThread();
    PostgreSQLWriting writing = writingOf(changes, id);
    writing.mayCommit = [&] { return commitment.begin(); };
    switch (_tables.write(connection, domain, std::move(writing))) {
      case PostgreSQLTables::Outcome::overtaken:
        return {PreferenceWriteOutcome::overtaken, {}};
      case PostgreSQLTables::Outcome::notCommitted:
        return {PreferenceWriteOutcome::failed, {}};
      case PostgreSQLTables::Outcome::written:
        noteWritten();
        return {PreferenceWriteOutcome::written, showWritten(domain, changes)};
    }
    return {};
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
    try {
      mayWrite(connection);
    } catch (const PostgreSQLError& error) {
      if (error.kind() == PostgreSQLError::Kind::away) throw;
    }
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

  StoreCopy copyOfStore(PostgreSQLConnection& connection) {
    _role.isThisThread();
    StoreCopy copy;
    for (const std::string& name : PostgreSQLTables::domainsIn(connection)) {
      const PostgreSQLDomain domain = _tables.read(connection, name);
      addDomain(copy, name, *domain.values);
      copy.store = domain.store;
      copy.removed = std::max(copy.removed, static_cast<std::uint64_t>(domain.revision));
    }
    countFriends(copy);
    return copy;
  }

  void setWriteObserver(std::function<void()> observer) {
    const MutexLock lock(_observerMutex);
    _observer = std::move(observer);
  }

  /// Asks whether tables and server take what is written.
  bool mayWrite(PostgreSQLConnection& connection) {
    isReadOnly = !PostgreSQLTables::mayWrite(connection);
    return !isReadOnly;
  }

  PreferencesMemory memory;
  std::atomic<bool> isReadOnly{false};  // written on the service's thread

 private:
  void noteWritten() {
    memory.count(PreferenceWriteOutcome::written);
    const MutexLock lock(_observerMutex);
    if (_observer) _observer();
  }

  template <class Work>
  void attempt(Fault fault, const Work& work) {
    try {
      work();
      memory.ends(fault);
    } catch (const PostgreSQLError& error) {
      // That the server is away is said by the service.
      if (error.kind() == PostgreSQLError::Kind::refused) memory.begins(fault, error.what());
      throw;
    }
  }

  /// Everything that is stored then is shown. False when nobody waits for it any more.
  bool writes(PostgreSQLConnection& connection, const std::string& domain, PostgreSQLWriting writing,
              Commitment& commitment) {
    _role.isThisThread();
    writing.mayCommit = [&] { return commitment.begin(); };
    const auto outcome = _tables.write(connection, domain, std::move(writing));
    if (outcome != PostgreSQLTables::Outcome::written) return false;
    noteWritten();
    memory.install(domain, _tables.known(domain).values);
    memory.ends(Fault::read);
    return true;
  }

  /// What others wrote under other keys is not shown before the domain is synchronized.
  VersionedPreferences showWritten(const std::string& domain, const PreferenceChanges& changes) {
    _role.isThisThread();
    const PostgreSQLDomain& stored = _tables.known(domain);
    VersionedPreferences written;
    std::vector<std::string> keys;
    for (const auto& [key, change] : changes) {
      if (change.kind == PreferenceChange::Kind::keep) continue;
      written.emplace(key, stored.preference(key));
      keys.push_back(key);
    }
    memory.installKeys(domain, keys, *stored.values);
    return written;
  }

  /// What is read is shown once the domain is synchronized.
  void readAhead(PostgreSQLConnection& connection) {
    _role.isThisThread();
    for (const std::string& domain : std::exchange(_stale, {})) {
      try {
        _tables.read(connection, domain);
      } catch (const PostgreSQLError& error) {
        // Callers that ask for the domain are told.
        if (error.kind() == PostgreSQLError::Kind::away) throw;
      }
    }
  }

  ThreadRole _role;
  PostgreSQLTables _tables PELLOR_GUARDED_BY(_role);
  std::set<std::string> _stale PELLOR_GUARDED_BY(_role);  ///< domains that others wrote, to be read ahead
  Mutex _observerMutex;
  std::function<void()> _observer PELLOR_GUARDED_BY(_observerMutex);
};

PostgreSQLPreferences::PostgreSQLPreferences(std::shared_ptr<PostgreSQLService> service,
                                             std::filesystem::path copiesFolder, std::filesystem::path defaultsFile,
                                             LogHandle log)
    : _service(std::move(service)),
      _core(std::make_shared<Core>(log)),
      _copies(std::move(copiesFolder)),
      _defaults(std::move(defaultsFile), log) {
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
                     [name = std::string(domain)](Core& core, PostgreSQLConnection& connection, Commitment&) {
                       core.memory.install(name, core.read(connection, name).values);
                     });
  if (outcome == Core::Outcome::done) return true;
  _core->memory.install(domain, nullptr);
  return false;
}

bool PostgreSQLPreferences::synchronize(std::string_view domain) {
  const auto values = _core->memory.copyOfPending(domain);
  if (values.empty()) return renew(domain);
  const auto outcome = _core->perform(
      _service->link(), Fault::write,
      [name = std::string(domain)](Core& core, PostgreSQLConnection& connection, Commitment& commitment) {
        core.synchronize(connection, name, commitment);
      });
  if (outcome == Core::Outcome::done) return true;
  _core->memory.removePending(domain, values);
  if (outcome == Core::Outcome::refused) {
    renew(domain);
  } else {
    _core->memory.install(domain, nullptr);
  }
  return false;
}

PreferenceAnswer<VersionedPreferences> PostgreSQLPreferences::read(std::span<const std::string> keys,
                                                                   std::string_view domain) {
  // Kept by the job: it may go on when nobody waits any more.
  const auto found = std::make_shared<VersionedPreferences>();
  const auto look = [found, asked = std::vector(keys.begin(), keys.end()), name = std::string(domain)](
                        Core& core, PostgreSQLConnection& connection, Commitment&) {
    const PostgreSQLDomain stored = core.read(connection, name);
    for (const std::string& key : asked) found->insert_or_assign(key, stored.preference(key));
  };
  if (_core->perform(_service->link(), Fault::read, look) != Core::Outcome::done)
    return PreferenceAnswer<VersionedPreferences>::unreadable();
  return PreferenceAnswer<VersionedPreferences>::some(std::move(*found));
}

PreferenceWriteAnswer PostgreSQLPreferences::write(const PreferenceChanges& changes, PreferenceWriteID id,
                                                   std::string_view domain) {
  for (const auto& [key, change] : changes) {
    require((change.kind == PreferenceChange::Kind::set) == change.value.has_value(),
            "a value in a set, and only there");
  }
  const auto answer = std::make_shared<PreferenceWriteAnswer>();
  const auto write = [answer, changes, id, name = std::string(domain)](Core& core, PostgreSQLConnection& connection,
                                                                       Commitment& commitment) {
    *answer = core.write(connection, name, changes, id, commitment);
  };
  switch (_core->perform(_service->link(), Fault::write, write)) {
    case Core::Outcome::done:
      return std::move(*answer);
    case Core::Outcome::unknown:
      return {PreferenceWriteOutcome::unknown, {}};
    default:
      return {PreferenceWriteOutcome::failed, {}};
  }
}

bool PostgreSQLPreferences::insertIfAbsent(const Dictionary& values, std::string_view domain) {
  const auto insert = [values, name = std::string(domain)](Core& core, PostgreSQLConnection& connection,
                                                           Commitment& commitment) {
    core.insertIfAbsent(connection, name, values, commitment);
  };
  return _core->perform(_service->link(), Fault::write, insert) == Core::Outcome::done;
}

PutAside PostgreSQLPreferences::putAside(std::string_view key, std::string_view domain) {
  // Kept by the job: it may go on when nobody waits any more.
  const auto result = std::make_shared<PutAside>();
  const auto put = [result, keyCopy = std::string(key), name = std::string(domain)](
                       Core& core, PostgreSQLConnection& connection, Commitment&) {
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
  const auto ask = [mayWrite](Core& core, PostgreSQLConnection& connection, Commitment&) {
    *mayWrite = core.mayWrite(connection);
    if (!*mayWrite) core.memory.begins(Fault::write, "the role may only read the tables, or the server only be read");
  };
  return _core->perform(_service->link(), Fault::read, ask) == Core::Outcome::done && *mayWrite;
}

bool PostgreSQLPreferences::isReadOnly() { return _core->isReadOnly && !isWritable() && _core->isReadOnly; }

std::optional<StoreCopy> PostgreSQLPreferences::copyOfStore(double date) {
  // Kept by the job: it may go on when nobody waits any more.
  const auto copy = std::make_shared<StoreCopy>();
  const auto read = [copy](Core& core, PostgreSQLConnection& connection, Commitment&) {
    *copy = core.copyOfStore(connection);
  };
  if (_core->perform(_service->link(), Fault::read, read) != Core::Outcome::done) return std::nullopt;
  copy->date = date;
  return std::move(*copy);
}

void PostgreSQLPreferences::setWriteObserver(std::function<void()> observer) {
  _core->setWriteObserver(std::move(observer));
}

std::optional<KeptTrace> PostgreSQLPreferences::eraseUnusedSpace() {
  return KeptTrace{
      "the server of the store",
      "its tables have deleted rows until its administrator runs VACUUM FULL on those of the schema pellor, "
      "its log and its backups for as long as they are kept"};
}

std::vector<std::string> PostgreSQLPreferences::takeRemarks() { return _core->memory.takeRemarks(); }

SharedPreferences::WriteCounts PostgreSQLPreferences::writeCounts() const { return _core->memory.writeCounts(); }

std::string PostgreSQLPreferences::lastError() const {
  std::string error = _core->memory.lastError();
  return error.empty() ? _service->error() : error;
}

}  // namespace pellor
