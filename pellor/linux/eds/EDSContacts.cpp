#include "pellor/linux/eds/EDSContacts.h"

#include <atomic>
#include <cmath>
#include <utility>

#include "pellor/linux/eds/EDSConnection.h"
#include "pellor/linux/eds/EDSMirror.h"
#include "pellor/linux/threads/ServiceThread.h"
#include "pellor/runtime/BackOff.h"

namespace pellor {

namespace {

constexpr BackOff::Pauses Pauses{.first = 1, .longest = 60};

class Watch final : public CardWatch {
 public:
  explicit Watch(std::shared_ptr<EDSMirror> mirror) : _mirror(std::move(mirror)) {}
  ~Watch() override { _mirror->setHandler({}); }

 private:
  const std::shared_ptr<EDSMirror> _mirror;
};

}  // namespace

class EDSContacts::Thread {
 public:
  Thread(EDSMirror& mirror, std::optional<std::string> source)
      : _mirror(mirror),
        _source(std::move(source)),
        _context(g_main_context_new()),
        _cancellable(g_cancellable_new()) {}

  ~Thread() {
    _isEnding = true;
    g_cancellable_cancel(_cancellable.get());
    g_main_context_wakeup(_context);
    _thread.join();
    g_main_context_unref(_context);
  }

  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  /// Gives what the system said where it refused.
  std::optional<std::string> start() {
    return _thread.start("pellor-eds", [this] { serve(); });
  }

 private:
  void serve() {
    g_main_context_push_thread_default(_context);
    BackOff pauses(Pauses);
    while (!_isEnding) {
      if (serveConnection()) pauses.reset();
      wait(pauses.next());
    }
    // What is left of calls that were under way keeps their objects alive.
    while (g_main_context_iteration(_context, FALSE)) continue;
    g_main_context_pop_thread_default(_context);
  }

  /// Whether the service had answered before it went.
  bool serveConnection() {
    try {
      EDSConnection connection(_mirror, _source, _cancellable.get());
      while (!_isEnding && !connection.trouble()) g_main_context_iteration(_context, TRUE);
      if (connection.trouble()) _mirror.lose(*connection.trouble());
      return connection.isComplete();
    } catch (const EDSError& error) {
      if (!_isEnding) _mirror.lose(error.trouble());
      return false;
    }
  }

  void wait(double seconds) {
    bool isOver = false;
    GSource* timer = g_timeout_source_new(static_cast<guint>(std::lround(seconds * 1000)));
    const auto end = [](gpointer flag) -> gboolean {
      *static_cast<bool*>(flag) = true;
      return G_SOURCE_REMOVE;
    };
    g_source_set_callback(timer, +end, &isOver, nullptr);
    g_source_attach(timer, _context);
    while (!_isEnding && !isOver) g_main_context_iteration(_context, TRUE);
    g_source_destroy(timer);
    g_source_unref(timer);
  }

  EDSMirror& _mirror;
  const std::optional<std::string> _source;
  GMainContext* const _context;
  const GObjectOwner<GCancellable> _cancellable;
  std::atomic<bool> _isEnding = false;
  ServiceThread _thread;
};

EDSContacts::EDSContacts(EDSContactsOptions options)
    : _options(std::move(options)), _mirror(std::make_shared<EDSMirror>()) {}

EDSContacts::~EDSContacts() = default;

void EDSContacts::start() {
  if (_thread) return;
  auto thread = std::make_unique<Thread>(*_mirror, _options.source);
  if (const auto refusal = thread->start()) return _mirror->cannotAsk(ServiceThread::problemText(*refusal));
  _mirror->beginToAsk();
  _thread = std::move(thread);
}

// The index knows the default address book by this name, too, when it is another one some day: its friends are looked
// for among the new one's contacts.
std::string EDSContacts::name() const { return "eds:" + _options.source.value_or("default"); }

std::string EDSContacts::title() const { return "the address book of Evolution Data Server"; }

std::string EDSContacts::databaseUID() const { return _options.source.value_or(_mirror->sourceUID()); }

std::map<std::string, CardSignature> EDSContacts::list() {
  start();
  if (!std::exchange(_hasWaited, true)) _mirror->awaitAnswer(_options.firstAnswerWait);
  return _mirror->list(title());
}

std::optional<CardSignature> EDSContacts::signature(const std::string& card) {
  return _mirror->signature(title(), card);
}

CardContent EDSContacts::read(const std::string& card) { return _mirror->read(card); }

std::unique_ptr<CardWatch> EDSContacts::watch(std::function<void(const CardNews&)> handler) {
  _mirror->setHandler(std::move(handler));
  start();
  return std::make_unique<Watch>(_mirror);
}

std::size_t EDSContacts::contactCount() const { return _mirror->contactCount(); }

std::size_t EDSContacts::calls() const { return _mirror->calls(); }

ServiceReport EDSContacts::report(double wait) {
  start();
  _mirror->awaitAnswer(wait);
  const std::string service = title() + " " + version();
  if (const auto trouble = _mirror->trouble()) {
    if (trouble->isUntold) return ServiceReport::failing(service + " " + ServiceThread::Problem, ServiceThread::Advice);
    const std::string details = trouble->details.empty() ? "" : ": " + trouble->details;
    return ServiceReport::failing(service + " " + trouble->problem + details,
                                  "see that evolution-data-server is installed, that there is a session bus, and that "
                                  "eds.source is one of its address books");
  }
  const std::size_t count = _mirror->contactCount();
  return ServiceReport::working(service + ", source " + _mirror->sourceUID() + ": " + std::to_string(count) +
                                (count == 1 ? " contact" : " contacts"));
}

std::string EDSContacts::version() {
  return std::to_string(eds_major_version) + "." + std::to_string(eds_minor_version) + "." +
         std::to_string(eds_micro_version);
}

}  // namespace pellor
