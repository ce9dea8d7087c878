#include "pellor/linux/eds/EDSConnection.h"

#include <utility>

namespace pellor {

namespace {

// Waits for no remote server: contacts that the service has at hand are given at once.
constexpr auto WithoutWaiting = static_cast<guint32>(-1);
// An empty query finds all contacts too, but a view of it is told of no change.
constexpr const char* AllContacts = R"((contains "x-evolution-any-field" ""))";
// For changes that are not followed by the end of a batch.
constexpr guint LongestBatch = 200;

constexpr const char* BusHasEnded = "does not answer (the session bus has ended)";

/// An error of GLib.
class Failure {
 public:
  ~Failure() { g_clear_error(&_error); }
  Failure() = default;
  Failure(const Failure&) = delete;
  Failure& operator=(const Failure&) = delete;

  GError** out() { return &_error; }
  [[noreturn]] void raise() const;
  void raiseIfSet() const {
    if (_error) raise();
  }

 private:
  GError* _error = nullptr;
};

// Texts of errors may hold names of servers and accounts: the log gets the error's own name.
std::string nameOf(const GError& error) {
  gchar* remote = g_dbus_error_get_remote_error(&error);
  const std::string name =
      remote ? remote : std::string(g_quark_to_string(error.domain)) + " " + std::to_string(error.code);
  g_free(remote);
  return name;
}

EDSMirror::Trouble troubleOf(const GError* error) {
  if (!error) return {"does not answer", {}};
  return {"does not answer (" + nameOf(*error) + ")", error->message};
}

void Failure::raise() const { throw EDSError(troubleOf(_error)); }

// The library's own connection, which the whole program shares. The program outlives it. It has to be made by a thread
// that goes on serving its context: left to the library, that is a short-lived one, in which the end of the bus is told
// to nobody, and the dead connection is kept for ever.
GObjectOwner<GDBusConnection> sharedBus(GCancellable* cancellable) {
  Failure failure;
  GObjectOwner<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable, failure.out()));
  if (!bus) failure.raise();
  g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
  if (g_dbus_connection_is_closed(bus.get())) throw EDSError({BusHasEnded, {}});
  return bus;
}

// The shared connection tells of its end in the thread that made it first.
GObjectOwner<GDBusConnection> ownBus(GCancellable* cancellable) {
  Failure failure;
  gchar* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, cancellable, failure.out());
  if (!address) failure.raise();
  const auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                       G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
  GObjectOwner<GDBusConnection> bus(
      g_dbus_connection_new_for_address_sync(address, flags, nullptr, cancellable, failure.out()));
  g_free(address);
  if (!bus) failure.raise();
  return bus;
}

GObjectOwner<ESource> findSource(const std::optional<std::string>& uid, GCancellable* cancellable) {
  Failure failure;
  const GObjectOwner<ESourceRegistry> registry(e_source_registry_new_sync(cancellable, failure.out()));
  if (!registry) failure.raise();
  GObjectOwner<ESource> source(uid ? e_source_registry_ref_source(registry.get(), uid->c_str())
                                   : e_source_registry_ref_default_address_book(registry.get()));
  if (!source) throw EDSError({"is not there: it has no such source", uid.value_or("")});
  return source;
}

std::string uidOf(gpointer contact) {
  const auto* uid = static_cast<const char*>(e_contact_get_const(E_CONTACT(contact), E_CONTACT_UID));
  return uid ? uid : "";
}

std::string textOf(gpointer contact) {
  gchar* text = e_vcard_to_string(E_VCARD(contact), EVC_FORMAT_VCARD_30);
  std::string result = text ? text : "";
  g_free(text);
  return result;
}

}  // namespace

EDSConnection::EDSConnection(EDSMirror& mirror, const std::optional<std::string>& source, GCancellable* cancellable)
    : _mirror(mirror), _bus(ownBus(cancellable)), _sharedBus(sharedBus(cancellable)) {
  watchBus();
  connect(source, cancellable);
  openView(cancellable);
  if (g_dbus_connection_is_closed(_bus.get())) lose(BusHasEnded);
}

EDSConnection::~EDSConnection() {
  if (_timer) g_source_destroy(_timer);
  if (_view) g_signal_handlers_disconnect_by_data(_view.get(), this);
  if (_client) g_signal_handlers_disconnect_by_data(_client.get(), this);
  g_signal_handlers_disconnect_by_data(_bus.get(), this);
}

void EDSConnection::watchBus() {
  const auto hasEnded = [](GDBusConnection*, gboolean, GError*, gpointer self) {
    static_cast<EDSConnection*>(self)->lose(BusHasEnded);
  };
  g_signal_connect(_bus.get(), "closed", G_CALLBACK(+hasEnded), this);
}

void EDSConnection::lose(const char* problem) {
  if (!_trouble) _trouble = EDSMirror::Trouble{problem, {}};
}

void EDSConnection::connect(const std::optional<std::string>& uid, GCancellable* cancellable) {
  _mirror.countCall();
  const GObjectOwner<ESource> source = findSource(uid, cancellable);
  _sourceUID = e_source_get_uid(source.get());
  Failure failure;
  _mirror.countCall();
  EClient* client = e_book_client_connect_sync(source.get(), WithoutWaiting, cancellable, failure.out());
  if (!client) failure.raise();
  _client.reset(E_BOOK_CLIENT(client));
  const auto hasDied = [](EClient*, gpointer self) {
    static_cast<EDSConnection*>(self)->lose("does not answer (it has ended)");
  };
  g_signal_connect(client, "backend-died", G_CALLBACK(+hasDied), this);
}

void EDSConnection::openView(GCancellable* cancellable) {
  Failure failure;
  EBookClientView* view = nullptr;
  _mirror.countCall();
  if (!e_book_client_get_view_sync(_client.get(), AllContacts, &view, cancellable, failure.out())) failure.raise();
  _view.reset(view);
  const auto changed = [](EBookClientView*, const GSList* contacts, gpointer self) {
    static_cast<EDSConnection*>(self)->take(contacts);
  };
  const auto removed = [](EBookClientView*, const GSList* uids, gpointer self) {
    static_cast<EDSConnection*>(self)->takeRemoved(uids);
  };
  const auto complete = [](EBookClientView*, const GError* error, gpointer self) {
    static_cast<EDSConnection*>(self)->takeComplete(error);
  };
  g_signal_connect(view, "objects-added", G_CALLBACK(+changed), this);
  g_signal_connect(view, "objects-modified", G_CALLBACK(+changed), this);
  g_signal_connect(view, "objects-removed", G_CALLBACK(+removed), this);
  g_signal_connect(view, "complete", G_CALLBACK(+complete), this);
  _mirror.countCall();
  e_book_client_view_start(view, failure.out());
  failure.raiseIfSet();
}

void EDSConnection::take(const GSList* contacts) {
  for (; contacts; contacts = contacts->next) _batch.insert_or_assign(uidOf(contacts->data), textOf(contacts->data));
  publishSoon();
}

void EDSConnection::takeRemoved(const GSList* uids) {
  for (; uids; uids = uids->next) _batch.insert_or_assign(static_cast<const char*>(uids->data), std::nullopt);
  publishSoon();
}

// A view that ends with an error has given some contacts, or none: that is not what the address book holds.
void EDSConnection::takeComplete(const GError* error) {
  if (error) {
    _trouble = troubleOf(error);
  } else {
    publish();
  }
}

void EDSConnection::publishSoon() {
  if (!_isComplete || _timer) return;
  _timer = g_timeout_source_new(LongestBatch);
  const auto late = [](gpointer self) -> gboolean {
    static_cast<EDSConnection*>(self)->publish();
    return G_SOURCE_REMOVE;
  };
  g_source_set_callback(_timer, +late, this, nullptr);
  g_source_attach(_timer, g_main_context_get_thread_default());
  g_source_unref(_timer);
}

void EDSConnection::publish() {
  if (_timer) g_source_destroy(std::exchange(_timer, nullptr));
  const EDSMirror::Batch batch = std::exchange(_batch, {});
  if (!std::exchange(_isComplete, true)) return _mirror.replace(_sourceUID, batch);
  if (!batch.empty()) _mirror.apply(batch);
}

}  // namespace pellor
