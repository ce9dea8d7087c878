// The contacts of an address book in Evolution Data Server.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "pellor/linux/ServiceReport.h"
#include "pellor/linux/contacts/CardSource.h"

namespace pellor {

class EDSMirror;

struct EDSContactsOptions {
  /// The UID of the address book's source; absent: the user's default address book.
  std::optional<std::string> source;
  /// How many seconds the first look at the contacts waits for the service to answer. It waits for no more than the
  /// first answer, and not for a service that is away. Zero for a program that can be told later.
  double firstAnswerWait = 0;
};

/// A mirror of the address book, kept in step by a live view from a thread of its own, which starts at the first use:
/// nobody waits for the service, and what is asked here costs no call to it. A card's name is the contact's UID.
///
/// Without the thread, which the system may refuse, the cards cannot be told either; the next use starts it.
///
/// Where the service goes away the cards cannot be told (CardSourceError) until it is back; it is tried again with a
/// growing pause of 1 to 60 seconds, and then the watch tells that everything may be another one. Changes are told of
/// in the service's own batches.
///
/// Uses GLib's connection to the session bus, which belongs to the whole program: its end no longer ends the program.
class EDSContacts final : public CardSource {
 public:
  explicit EDSContacts(EDSContactsOptions options = {});
  /// Gives up what it waits for.
  ~EDSContacts() override;

  std::string name() const override;
  std::string title() const override;
  std::string cardTitle() const override { return "contact"; }
  /// The UID of the source; empty before the service has answered, where it was left to the service.
  std::string databaseUID() const override;
  std::map<std::string, CardSignature> list() override;
  std::optional<CardSignature> signature(const std::string& card) override;
  CardContent read(const std::string& card) override;
  std::unique_ptr<CardWatch> watch(std::function<void(const CardNews& news)> handler) override;

  /// How many calls were made to the service so far. Any thread.
  std::size_t calls() const;
  /// How the service is, as far as it has answered after at most so many seconds.
  ServiceReport report(double wait);
  /// How many contacts it has, as far as it has answered. Any thread.
  std::size_t contactCount() const;
  /// The version of the library that talks to the service, such as "3.46.4".
  static std::string version();

 private:
  void start();

  class Thread;
  const EDSContactsOptions _options;
  const std::shared_ptr<EDSMirror> _mirror;
  std::unique_ptr<Thread> _thread;
  bool _hasWaited = false;
};

}  // namespace pellor
