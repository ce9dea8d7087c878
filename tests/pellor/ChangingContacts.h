// Contacts that change while they are being read, as when another process brings them in step with their source.
#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "pellor/testing/internal/InMemoryAddressBookStore.h"
#include "pellor/testing/internal/ProcessLink.h"

namespace pellor {

/// The address book service of a process, which calls `beforeQuestion` before each question that a refresh asks the
/// shared handle.
class ChangingContacts : public InMemoryAddressBookStore {
 public:
  ChangingContacts(InMemoryAddressBook& database, Process& process, const std::function<void()>& beforeQuestion)
      : InMemoryAddressBookStore(database.shared_from_this(), process),
        _handle(std::make_shared<Handle>(database.shared_from_this(), ProcessLink::of(process), beforeQuestion)) {}

  void performWithAddressBook(const std::function<void(AddressBook&)>& work) override { work(*_handle); }

 private:
  class Handle : public InMemoryAddressBookHandle {
   public:
    Handle(std::shared_ptr<InMemoryAddressBook> database, std::shared_ptr<ProcessLink> link,
           std::function<void()> beforeQuestion)
        : InMemoryAddressBookHandle(std::move(database), std::move(link)), _beforeQuestion(std::move(beforeQuestion)) {}

    std::optional<std::string> databaseUID() override {
      _beforeQuestion();
      return InMemoryAddressBookHandle::databaseUID();
    }
    std::int32_t sequenceNumber() override {
      _beforeQuestion();
      return InMemoryAddressBookHandle::sequenceNumber();
    }
    RecordRef copyPersonMatchingGUID(std::string_view guid) override {
      _beforeQuestion();
      return InMemoryAddressBookHandle::copyPersonMatchingGUID(guid);
    }
    void withPeopleMatchingGUIDs(std::span<const std::string_view> guids, const std::function<void()>& work) override {
      _beforeQuestion();
      InMemoryAddressBookHandle::withPeopleMatchingGUIDs(guids, work);
    }
    std::optional<std::vector<std::string>> guidsOfPeopleChangedSince(std::int32_t sequenceNumber,
                                                                      std::size_t limit) override {
      _beforeQuestion();
      return InMemoryAddressBookHandle::guidsOfPeopleChangedSince(sequenceNumber, limit);
    }

   private:
    const std::function<void()> _beforeQuestion;
  };

  const std::shared_ptr<Handle> _handle;
};

}  // namespace pellor
