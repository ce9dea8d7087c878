// A connection to Evolution Data Server and the live view of one address book.
#pragma once

#include <libebook/libebook.h>

#include <memory>
#include <optional>
#include <string>

#include "pellor/linux/eds/EDSMirror.h"

namespace pellor {

struct GObjectRelease {
  void operator()(gpointer object) const { g_object_unref(object); }
};
template <class Object>
using GObjectOwner = std::unique_ptr<Object, GObjectRelease>;

/// Keeps the mirror in step while it lives and its thread serves the thread's default context.
class EDSConnection {
 public:
  /// Connects, which starts the service where it does not run. Of the default address book without a source. Throws
  /// EDSError, also when it was cancelled.
  EDSConnection(EDSMirror& mirror, const std::optional<std::string>& source, GCancellable* cancellable);
  ~EDSConnection();
  EDSConnection(const EDSConnection&) = delete;
  EDSConnection& operator=(const EDSConnection&) = delete;

  /// Whether the mirror has been given all contacts once.
  bool isComplete() const { return _isComplete; }
  /// Why this connection is of no more use; absent while it is.
  const std::optional<EDSMirror::Trouble>& trouble() const { return _trouble; }

 private:
  void watchBus();
  void lose(const char* problem);
  void connect(const std::optional<std::string>& source, GCancellable* cancellable);
  void openView(GCancellable* cancellable);
  void take(const GSList* contacts);
  void takeRemoved(const GSList* uids);
  void takeComplete(const GError* error);
  void publishSoon();
  void publish();

  EDSMirror& _mirror;
  const GObjectOwner<GDBusConnection> _bus;
  const GObjectOwner<GDBusConnection> _sharedBus;
  GObjectOwner<EBookClient> _client;
  GObjectOwner<EBookClientView> _view;
  std::string _sourceUID;
  EDSMirror::Batch _batch;
  bool _isComplete = false;
  GSource* _timer = nullptr;
  std::optional<EDSMirror::Trouble> _trouble;
};

/// Why there is no connection.
class EDSError {
 public:
  explicit EDSError(EDSMirror::Trouble trouble) : _trouble(std::move(trouble)) {}
  const EDSMirror::Trouble& trouble() const { return _trouble; }

 private:
  EDSMirror::Trouble _trouble;
};

}  // namespace pellor
