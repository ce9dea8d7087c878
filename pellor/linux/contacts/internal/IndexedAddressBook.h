// The address book over an index of cards, wherever these come from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "pellor/linux/contacts/CardSource.h"
#include "pellor/linux/contacts/UserContacts.h"
#include "pellor/linux/contacts/internal/ContactIndexOptions.h"
#include "pellor/linux/contacts/internal/RefreshMemory.h"
#include "pellor/linux/preferences/StoreNameSettings.h"
#include "pellor/linux/text/IcuText.h"
#include "pellor/runtime/BackOff.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"
#include "pellor/runtime/WallClock.h"

namespace pellor {

class ContactIndex;
class IndexedAddressBookHandle;

/// Posted on the main queue after contacts changed, whichever process noticed it first. No object.
inline constexpr const char* AddressBookChangedNotification = "AddressBookChangedNotification";
/// Posted on the main queue after the favorites that are kept beside the contacts changed. No object.
inline constexpr const char* FavoritesChangedNotification = "FavoritesChangedNotification";

struct IndexedAddressBookOptions {
  ContactIndexOptions index;
  /// By which names are written and ordered; empty: by no locale's rules.
  LocaleSource locale;
  /// How people are called at present; empty: by their full names.
  std::function<NameSettings()> nameSettings;
  /// Whether changes are noticed after the first use. A program that ends at once does without: the system lets a
  /// process that watched a folder wait for tens of milliseconds at its end.
  bool noticesChanges = true;
  /// What the clock shows, in seconds since 2001-01-01T00:00:00Z.
  std::function<double()> wallClock = wallClockNow;
};

/// Costs nothing until it is used. The first use watches the source and brings the index in step with it; from then on
/// changes are noticed while the main queue is served, unless the options say otherwise. Main queue, but for the text
/// tests.
class IndexedAddressBook final : public UserContacts, public std::enable_shared_from_this<IndexedAddressBook> {
  class Passkey {};

 public:
  /// The source is this address book's alone.
  static std::shared_ptr<IndexedAddressBook> make(Process& process, std::shared_ptr<CardSource> source,
                                                  IndexedAddressBookOptions options);
  IndexedAddressBook(Passkey, Process& process, std::shared_ptr<CardSource> source, IndexedAddressBookOptions options);
  ~IndexedAddressBook() override;

  /// What is read inside comes from one state of the contacts and of the settings for names, whatever other processes
  /// do meanwhile.
  void performWithAddressBook(const std::function<void(AddressBook&)>& work) override;
  std::shared_ptr<AddressBook> openPrivateAddressBook() override;
  std::string addressBookChangedNotification() const override { return AddressBookChangedNotification; }
  std::optional<ContactsFall> contactsFall() override;
  void noteRefresh() override;
  void acceptContacts() override;
  bool shortNameFormatEnabled() const override { return nameSettings().shortNames; }
  bool shortNamePreferNicknames() const override { return nameSettings().prefersNicknames; }
  std::uint32_t propertyType(RecordProperty property) const override;
  std::int32_t addMultiValueEntry(MultiValue& multiValue, std::string value, std::string label) const override;
  bool containsNonLatinCharacters(std::string_view text) const override;
  bool containsEmojiCharacters(std::string_view text) const override;

  std::optional<std::string> sourceError() override;
  std::optional<std::string> readError() override;
  std::size_t unusableCards() override;
  const LogHandle& log() const { return _log; }
  /// The shared handle, for the other adapters of these contacts. To be used inside `performWithAddressBook`.
  IndexedAddressBookHandle& sharedHandle() { return *_shared; }
  /// As the handle.
  ContactIndex& index() { return *_index; }

 private:
  /// What the watch's thread hands over.
  struct Inbox;

  NameSettings nameSettings() const;
  void start();
  std::unique_ptr<CardWatch> makeWatch();
  void takeInbox();
  void resumeInbox();
  void takeWatchProblem(const std::string& problem);
  void update(const FolderChange& change);
  void tryAgainLater();
  void takeOutcomeOfReading();
  std::int32_t readableSequence();
  std::optional<std::uint64_t> readableCardCount();
  void announce();
  void post(const char* notification);

  Process& _process;
  const LogHandle _log;
  const std::shared_ptr<CardSource> _source;
  const std::function<NameSettings()> _nameSettings;
  mutable std::optional<NameSettings> _settingsOfReading;  ///< asked for since the outermost reading began
  const bool _noticesChanges;
  const std::function<double()> _wallClock;
  RefreshMemory _refreshMemory;
  const std::shared_ptr<ContactIndex> _index;
  const std::shared_ptr<IndexedAddressBookHandle> _shared;
  const std::shared_ptr<Inbox> _inbox;
  std::string _watchProblem;
  FolderChange _unfinished;  ///< what could not be brought into the index yet
  std::shared_ptr<Timer> _retry;
  BackOff _retryPauses;
  std::int32_t _announcedSequence = 0;
  mutable std::int32_t _lastEntryIdentifier = 0;
  bool _isStarted = false;
  /// Set at the first use, if changes are noticed; the last to be made and the first to go.
  std::unique_ptr<CardWatch> _watch;
};

}  // namespace pellor
