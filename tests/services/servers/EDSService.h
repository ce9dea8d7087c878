// Evolution Data Server on a session bus of the tests' own.
#pragma once

#include <libebook/libebook.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "pellor/linux/eds/EDSConnection.h"
#include "tests/services/servers/BusDaemon.h"

namespace pellor {

/// One for the whole test program, since GLib knows one session bus: to be made before GLib is used. The bus starts the
/// service when it is asked for. What is done to the contacts here is done by another client than the tested one.
class EDSService {
 public:
  static EDSService& shared() {
    static EDSService service;
    return service;
  }

  /// Of the session bus.
  std::string address() const { return _bus.address(); }

  /// Gives the UIDs.
  std::vector<std::string> add(const std::vector<std::string>& cards) {
    GSList *contacts = nullptr, *uids = nullptr;
    for (const std::string& card : cards) contacts = g_slist_prepend(contacts, e_contact_new_from_vcard(card.c_str()));
    contacts = g_slist_reverse(contacts);
    e_book_client_add_contacts_sync(client(), contacts, 0, &uids, nullptr, failure());
    std::vector<std::string> result;
    for (const GSList* uid = uids; uid; uid = uid->next) result.emplace_back(static_cast<const char*>(uid->data));
    g_slist_free_full(contacts, g_object_unref);
    g_slist_free_full(uids, g_free);
    requireSuccess();
    return result;
  }
  void change(const std::string& card) {
    const GObjectOwner<EContact> contact(e_contact_new_from_vcard(card.c_str()));
    e_book_client_modify_contact_sync(client(), contact.get(), 0, nullptr, failure());
    requireSuccess();
  }
  void remove(const std::string& uid) {
    e_book_client_remove_contact_by_uid_sync(client(), uid.c_str(), 0, nullptr, failure());
    requireSuccess();
  }
  void removeAll() {
    GSList* uids = nullptr;
    e_book_client_get_contacts_uids_sync(client(), "", &uids, nullptr, failure());
    requireSuccess();
    if (uids) e_book_client_remove_contacts_sync(client(), uids, 0, nullptr, failure());
    g_slist_free_full(uids, g_free);
    requireSuccess();
  }

  /// Ends the service as a crash would. It starts again when it is asked for.
  void kill() {
    _client.reset();
    GVariant* answer = callBus("GetConnectionUnixProcessID", g_variant_new("(s)", AddressBookName));
    guint32 id = 0;
    g_variant_get(answer, "(u)", &id);
    g_variant_unref(answer);
    ::kill(static_cast<pid_t>(id), SIGKILL);
  }
  /// Ends the session bus, and the service with it.
  void stopBus() {
    _client.reset();
    bool hasEnded = false;
    const auto note = [](GDBusConnection*, gboolean, GError*, gpointer flag) { *static_cast<bool*>(flag) = true; };
    const auto handler = g_signal_connect(_shared.get(), "closed", G_CALLBACK(+note), &hasEnded);
    _bus.kill();
    while (!hasEnded) g_main_context_iteration(nullptr, TRUE);
    g_signal_handler_disconnect(_shared.get(), handler);
    _shared.reset();
  }
  /// Once everybody has noticed that it had ended.
  void startBus() {
    _bus.start();
    // GLib gives out the old connection for as long as somebody holds it, if only a task that waits.
    do {
      while (g_main_context_iteration(nullptr, FALSE)) continue;
      _shared.reset(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, failure()));
      requireSuccess();
    } while (g_dbus_connection_is_closed(_shared.get()));
    g_dbus_connection_set_exit_on_close(_shared.get(), FALSE);
  }
  /// Takes the service away, or gives it back.
  void setInstalled(bool isInstalled) {
    const std::filesystem::path file = _folder / "services" / (std::string(AddressBookName) + ".service");
    if (isInstalled) {
      std::filesystem::create_symlink("/usr/share/dbus-1/services" / file.filename(), file);
    } else {
      std::filesystem::remove(file);
    }
    g_variant_unref(callBus("ReloadConfig", nullptr));
    if (!isInstalled) kill();
  }

 private:
  static constexpr const char* AddressBookName = "org.gnome.evolution.dataserver.AddressBook10";
  static constexpr const char* SourcesName = "org.gnome.evolution.dataserver.Sources5";

  EDSService() {
    for (const char* name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"}) {
      std::filesystem::create_directory(_folder / name);
      std::filesystem::permissions(_folder / name, std::filesystem::perms::owner_all);
      ::setenv(name, (_folder / name).c_str(), 1);
    }
    ::setenv("HOME", _folder.path().c_str(), 1);
    ::setenv("GSETTINGS_BACKEND", "memory", 1);
    ::setenv("GIO_USE_VFS", "local", 1);
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) ::unsetenv(name);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", address().c_str(), 1);
    for (const char* name : {AddressBookName, SourcesName}) {
      const std::string file = std::string(name) + ".service";
      std::filesystem::create_symlink("/usr/share/dbus-1/services/" + file, _folder / "services" / file);
    }
    startBus();
  }

  GVariant* callBus(const char* method, GVariant* arguments) {
    GVariant* answer = g_dbus_connection_call_sync(_shared.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                   "org.freedesktop.DBus", method, arguments, nullptr,
                                                   G_DBUS_CALL_FLAGS_NONE, -1, nullptr, failure());
    requireSuccess();
    return answer;
  }

  EBookClient* client() {
    if (_client) return _client.get();
    const GObjectOwner<ESourceRegistry> registry(e_source_registry_new_sync(nullptr, failure()));
    requireSuccess();
    const GObjectOwner<ESource> source(e_source_registry_ref_default_address_book(registry.get()));
    _client.reset(
        E_BOOK_CLIENT(e_book_client_connect_sync(source.get(), static_cast<guint32>(-1), nullptr, failure())));
    requireSuccess();
    return _client.get();
  }

  GError** failure() { return &_error; }
  void requireSuccess() {
    if (!_error) return;
    const std::string problem = _error->message;
    g_clear_error(&_error);
    throw std::runtime_error("the address book service: " + problem);
  }

  const TemporaryFolder _folder;
  BusDaemon _bus{_folder.path()};
  GObjectOwner<GDBusConnection> _shared;
  GObjectOwner<EBookClient> _client;
  GError* _error = nullptr;
};

}  // namespace pellor
