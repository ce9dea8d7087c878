// The checks of skipped work notice a skip that is wrong.
#include "pellor/friends/internal/PLSkipChecks.h"

#include "pellor/friends/PLChangeLog.h"
#include "pellor/friends/PLFriendsManagerKeys.h"
#include "pellor/friends/internal/PLDirtyChunks.h"
#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/friends/internal/PLReconciliationState.h"
#include "pellor/friends/internal/PLStoredVersion.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

class SkipChecks : public OneProcess {
 protected:
  SkipChecks() {
    for (const char* name : {"Ann", "Bob"}) {
      const std::string guid = world.addressBook().add({.guid = name, .first = name});
      list.append(PLPerson::initWithABRecordGUIDAddressBook(guid, book()));
    }
    ann = list.at(0);
    written = PLStoredVersion::made({}, list.snapshot(), changes.changes);
  }

  /// The skip, here a wrong one, goes unnoticed where nothing is checked, and ends the program where it is.
  template <class Skip>
  void expectNoticed(const Skip& skip, const char* message) {
    skip();
    const auto skipWithChecks = [&] {
      process.local<PLSkipChecks>().switchOn();
      skip();
    };
    EXPECT_DEATH(skipWithChecks(), message);
  }

  PLPersonChanges& changes = process.local<PLPersonChanges>();
  PLSlotList list;
  Slot ann;
  PLStoredVersion written;
};

TEST_F(SkipChecks, NoticeElementsThatAreNotMadeAnew) {
  ann->setPreferredReplyAs("home");
  const std::vector<std::uint64_t> touched;
  expectNoticed([&] { PLStoredVersion::made(written, list.snapshot(), changes.changes, &touched); },
                "expected elements that a save takes over");
}

TEST_F(SkipChecks, NoticeARunThatIsNotMerged) {
  const PLSlotSnapshot slots = list.snapshot();
  const auto isUnchanged = [&](Array elements) {
    const LongArray array(elements);
    const PLStoredVersion known(array, {PLStoredVersion::ChunkState::atRest}, slots, changes.changes);
    EXPECT_TRUE(PLStoredVersion::UnchangedChunks(known, array, slots, changes.changes)(0));
  };
  const Array whole = written.array().elements();
  const Array wrong[] = {{whole[1], whole[0]},
                         {whole[0], Dictionary{}},
                         {whole[0], 7},
                         {whole[0], whole[1], whole[1]},
                         {whole[0], Dictionary{{"ABRecordGUID", "Bob"}}}};
  for (const Array& elements : wrong) expectNoticed([&] { isUnchanged(elements); }, "expected a chunk that a load");
  process.local<PLSkipChecks>().switchOn();
  isUnchanged({whole[0], whole[1], Dictionary{}});
}

TEST_F(SkipChecks, NoticeWhoIsMarkedWhereNoSaveLooks) {
  const PLDirtyChunks touched(changes);
  const PLSlotSnapshot slots = list.snapshot();
  ann->setNeedsSave(true);
  expectNoticed([&] { touched.visit(slots, slots, [](const Slot&) {}); }, "expected nobody marked");
}

TEST_F(SkipChecks, NoticeAFriendWhoIsNotInStep) {
  const std::function<void(TestContact&)> changesOfContact[] = {
      [](TestContact& contact) { contact.first = "Anna"; },
      [](TestContact& contact) { contact.recordID = 99; },
      [](TestContact& contact) {
        contact.emails = {{"", "ann@example.org"}};
      },
      [](TestContact& contact) { contact.guid = "Other"; },
  };
  for (const auto& change : changesOfContact) {
    const std::string guid = world.addressBook().add({.first = "Ann"});
    const auto person = PLPerson::initWithABRecordGUIDAddressBook(guid, book());
    world.addressBook().change(guid, change);
    PLReconciliationState reconciled;
    reconciled.begin(*platform.addressBook, *book(), 1);
    reconciled.note(0, *person);
    expectNoticed([&] { EXPECT_TRUE(reconciled.passOver(0, *person, *book())); },
                  "expected a friend whom a refresh passes over");
    world.addressBook().remove(world.addressBook().contact(guid) ? guid : "Other");
  }
}

TEST_F(SkipChecks, NoticeDestinationsThatAreNotCanonicalised) {
  const std::vector<std::string_view> texts{"mailto:ann@example.org"};
  PLPersonRecord::Content content;
  content.destinations = texts;
  content.areCanonical = true;
  const PLPersonRecord record(content);
  const PersonDictionary dictionary{{"AllValues", Array{"mailto:ann@example.org"}}};
  expectNoticed([&] { PLPersonForm(dictionary).contentFor(record); }, "expected destinations that a person has");
}

TEST_F(SkipChecks, NoticeAListThatIsNotPublished) {
  const auto writer = PLListWriter::make(process, std::string(TapnoteDomain));
  writer->publish(list, nullptr);
  PLSlotList other;  // of the same version
  for (const Slot& person : {list.at(1), ann}) other.append(person);
  expectNoticed([&] { writer->publish(other, nullptr); }, "expected a list that is not published again");
}

TEST_F(SkipChecks, NoticeAPersonWithTwoEntries) {
  const auto note = [&] {
    PLChangeLog changeLog;
    for (const Slot& person : {ann, list.at(1), ann}) changeLog.addLast(person, PLFriendsManagerPersonMoved);
  };
  expectNoticed(note, "expected the last entry of the change log");
}

}  // namespace
}  // namespace pellor
