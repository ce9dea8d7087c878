// One program that uses an indexed address book.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pellor/linux/contacts/internal/IndexedAddressBook.h"
#include "pellor/testing/LogCollector.h"

namespace pellor {

class AddressBookProgram {
 public:
  AddressBookProgram(const std::shared_ptr<LogCollector>& log, std::shared_ptr<CardSource> source,
                     ContactIndexOptions index)
      : process(log) {
    const Process::Scope scope(process);
    IndexedAddressBookOptions options;
    options.index = std::move(index);
    store = IndexedAddressBook::make(process, std::move(source), std::move(options));
    const auto count = [this](const Notification& notification) {
      ++posts[notification.name];
      process.mainQueue().stop();
    };
    for (const char* name : {AddressBookChangedNotification, FavoritesChangedNotification})
      _observations.push_back(process.notificationCenter().addObserver(name, count));
  }
  // The store's watch ends before the process does.
  ~AddressBookProgram() { store.reset(); }

  template <class Work>
  void with(Work work) {
    const Process::Scope scope(process);
    store->performWithAddressBook([&](AddressBook& book) { work(book); });
  }
  std::string nameOf(const std::string& guid) {
    std::string name = "(none)";
    with([&](AddressBook& book) {
      if (const auto person = book.copyPersonMatchingGUID(guid)) name = person->compositeName().value_or("(no name)");
    });
    return name;
  }
  bool isReadable() {
    bool answer = false;
    with([&](AddressBook& book) { answer = book.isReadable(); });
    return answer;
  }
  std::int32_t sequence() {
    std::int32_t number = 0;
    with([&](AddressBook& book) { number = book.sequenceNumber(); });
    return number;
  }

  /// Serves the main queue until that holds, looking again after each notification and now and then.
  template <class Condition>
  bool waitUntil(Condition condition) {
    const Process::Scope scope(process);
    bool isLate = false;
    const auto limit = Timer::after(process.mainQueue(), 60, [&] {
      isLate = true;
      process.mainQueue().stop();
    });
    while (!isLate && !condition()) {
      const auto lookAgain = Timer::after(process.mainQueue(), 0.01, [&] { process.mainQueue().stop(); });
      process.mainQueue().run();
    }
    return !isLate;
  }

  Process process;
  std::shared_ptr<IndexedAddressBook> store;
  std::map<std::string, int> posts;

 private:
  std::vector<std::shared_ptr<Observation>> _observations;
};

}  // namespace pellor
