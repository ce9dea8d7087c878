#include "pellor/linux/contacts/internal/ContactIndex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "pellor/testing/contract/ChildProcess.h"
#include "tests/linux/ContactsFixture.h"

namespace pellor {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using IDs = std::vector<std::int32_t>;

struct ContactIndexTest : testing::Test, ContactsFixture {
  std::string nameOf(ContactIndex& index, std::string_view guid) {
    const auto contact = index.contactWithGUID(guid);
    return contact ? contact->card.formattedName.value_or("") : "(none)";
  }
};

TEST_F(ContactIndexTest, KeepsRecordIdentifiersAndReadsNothingTwice) {
  put("a.vcf", card("anna", "Anna"));
  put("b.vcf", card("", "Boris"));
  put("c.txt", card("no", "Notes"));
  put(".d.vcf", card("no", "Draft"));
  auto index = openIndex();
  EXPECT_EQ(identitiesIn(*index), (std::vector<std::string>{"anna=1", "b.vcf=2"}));
  EXPECT_EQ(index->cardsRead(), 2U);
  const std::int32_t sequence = index->sequenceNumber();
  const std::string uid = index->databaseUID();
  EXPECT_EQ(modeOf(data), 0700U);
  EXPECT_EQ(modeOf(data / "contacts-index.sqlite"), 0600U);

  index = openIndex();
  EXPECT_EQ(index->cardsRead(), 0U);
  EXPECT_EQ(index->sequenceNumber(), sequence);
  EXPECT_EQ(index->databaseUID(), uid);

  // What happens while nobody runs is found at the next start. A file may move; its UID says who it is.
  remove("a.vcf");
  put("z.vcf", card("anna", "Anna"));
  remove("b.vcf");
  put("c.vcf", card("", "Clara"));
  index = openIndex();
  EXPECT_EQ(identitiesIn(*index), (std::vector<std::string>{"anna=1", "c.vcf=3"}));
  EXPECT_NE(index->sequenceNumber(), sequence);

  // A contact that comes back is who it was; its identifier was given to nobody else.
  put("b.vcf", card("", "Boris"));
  index = openIndex();
  EXPECT_EQ(identitiesIn(*index), (std::vector<std::string>{"anna=1", "b.vcf=2", "c.vcf=3"}));
}

TEST_F(ContactIndexTest, TellsWhichContactsChangedAndWhichAreLinkedWithThem) {
  const auto linkedTo = [](const std::string& uid) { return "X-FOLKS-CONTACTS-IDS:" + uid + "\n"; };
  for (const char* uid : {"a", "b", "c", "d", "e"}) put(uid + std::string(".vcf"), card(uid, uid));
  put("b.vcf", card("b", "b", linkedTo("a")));
  const auto index = openIndex();
  using GUIDs = std::vector<std::string>;
  const struct {
    const char* what;
    std::function<void()> change;
    GUIDs changed;
  } rows[] = {
      {"the same content in another file", [&] { put("a.vcf", card("a", "a")); }, {}},
      {"one more link", [&] { put("c.vcf", card("c", "c", linkedTo("b"))); }, {"a", "b", "c"}},
      {"another UID", [&] { put("e.vcf", card("g", "f")); }, {"e", "g"}},
      {"a UID that passes to another file", [&] { put("0.vcf", card("d", "D")); }, {"d", "d.vcf"}},
      {"and back", [&] { remove("0.vcf"); }, {"d", "d.vcf"}},
  };
  for (const auto& row : rows) {
    const std::int32_t before = index->sequenceNumber();
    row.change();
    index->update(FolderChange::all());
    EXPECT_EQ(index->guidsChangedSince(before, 9), row.changed) << row.what;
    EXPECT_EQ(index->sequenceNumber(), before + (row.changed.empty() ? 0 : 1)) << row.what;
  }
  const std::int32_t now = index->sequenceNumber();
  EXPECT_EQ(openIndex()->guidsChangedSince(now, 0), GUIDs());
  EXPECT_EQ(index->guidsChangedSince(0, 9), std::nullopt);
}

TEST_F(ContactIndexTest, NoticesAChangeThatLeavesSizeAndTimeAlone) {
  put("a.vcf", card("anna", "Anna"));
  const auto index = openIndex();
  put("a.vcf", card("anna", "Ayna"));
  std::filesystem::last_write_time(contacts / "a.vcf", std::filesystem::file_time_type::clock::now());
  index->update(FolderChange::all());
  EXPECT_EQ(nameOf(*index, "anna"), "Ayna");
  // Written twice within one tick of the clock.
  writeFile(contacts / "a.vcf", card("anna", "Azna"));
  const auto time = std::filesystem::last_write_time(contacts / "a.vcf");
  index->update(FolderChange::all());
  writeFile(contacts / "a.vcf", card("anna", "Aana"));
  std::filesystem::last_write_time(contacts / "a.vcf", time);
  index->update(FolderChange::all());
  EXPECT_EQ(nameOf(*index, "anna"), "Aana");
}

/// A source of which no card can be read for a while.
class BusySource final : public CardSource {
 public:
  explicit BusySource(std::shared_ptr<CardSource> source) : _source(std::move(source)) {}
  std::string name() const override { return _source->name(); }
  std::string title() const override { return _source->title(); }
  std::string cardTitle() const override { return _source->cardTitle(); }
  std::string databaseUID() const override { return _source->databaseUID(); }
  std::map<std::string, CardSignature> list() override { return _source->list(); }
  std::optional<CardSignature> signature(const std::string& card) override { return _source->signature(card); }
  CardContent read(const std::string& card) override {
    if (!isBusy) return _source->read(card);
    CardContent content;
    content.problem = "it cannot be read";
    content.isForNow = true;
    return content;
  }
  std::unique_ptr<CardWatch> watch(std::function<void(const CardNews& news)> handler) override {
    return _source->watch(std::move(handler));
  }

  bool isBusy = false;

 private:
  const std::shared_ptr<CardSource> _source;
};

// A first list that is made without them would never have their favorites.
TEST_F(ContactIndexTest, CardsThatTheSystemCannotOpenAtTheMomentAreNotLeftOut) {
  const auto cards = std::make_shared<BusySource>(source());
  put("a.vcf", card("anna", "Anna"));
  ContactIndex index(options(), cards, handle());
  EXPECT_TRUE(index.update(FolderChange::all()));
  put("b.vcf", card("boris", "Boris"));
  cards->isBusy = true;
  EXPECT_FALSE(index.update({false, {"b.vcf"}})) << "has to be tried again";
  EXPECT_THAT(log->takeMessages(), ElementsAre(HasSubstr("cannot be read")));
  cards->isBusy = false;
  EXPECT_TRUE(index.update({false, {"b.vcf"}}));
  EXPECT_THAT(identitiesIn(index), ElementsAre("anna=1", "boris=2"));
}

TEST_F(ContactIndexTest, ACardThatNobodyCanOpenIsUnreadableForNow) {
  put("a.vcf", card("anna", "Anna"));
  const auto contactsSource = source();
  // A sanitizer opens files of its own at the first call of a folder, and of what tells an error in words.
  EXPECT_FALSE(contactsSource->read("missing.vcf").isForNow);
  rlimit usual{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &usual), 0);
  const rlimit none{3, usual.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const CardContent content = contactsSource->read("a.vcf");
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &usual), 0);
  EXPECT_TRUE(content.isForNow && !content.text && !content.isMissing) << content.problem;
}

TEST_F(ContactIndexTest, ABrokenFileCostsOnlyItselfAndIsNamedOnce) {
  put("a.vcf", card("anna", "Anna"));
  put("b.vcf", "BEGIN:VCARD\nFN:half of a ca");
  put("c.vcf", "");
  std::filesystem::resize_file(contacts / "c.vcf", static_cast<std::uintmax_t>(ContactFileSizeLimit) + 1);
  ASSERT_EQ(::mkfifo((contacts / "e.vcf").c_str(), 0600), 0);
  put("g\xFF.vcf", card("", "Strange"));
  auto index = openIndex();
  EXPECT_THAT(identitiesIn(*index), ElementsAre("anna=1"));
  EXPECT_THAT(log->takeMessages(),
              ElementsAre(HasSubstr("b.vcf holds no contact in card 1 (half of a ca): it has no END"),
                          HasSubstr("c.vcf is ignored: it is too"), HasSubstr("e.vcf is ignored: it is no regular"),
                          HasSubstr("its name is no UTF-8")));
  const std::int32_t sequence = index->sequenceNumber();
  index->update(FolderChange::all());
  index = openIndex();
  EXPECT_EQ(index->cardsRead(), 0U);
  EXPECT_THAT(log->takeMessages(), IsEmpty());
  EXPECT_EQ(index->sequenceNumber(), sequence);

  put("b.vcf", card("boris", "Boris"));
  index->update(FolderChange::all());
  EXPECT_EQ(nameOf(*index, "boris"), "Boris");
}

// An editor writes in place, and somebody looks just then.
TEST_F(ContactIndexTest, HalfAWrittenFileDoesNotCostTheContact) {
  put("a.vcf", card("anna", "Anna"));
  const auto index = openIndex();
  const std::int32_t sequence = index->sequenceNumber();
  for (const char* half : {"", "BEGIN:VCARD\nUID:anna\nFN:An"}) {
    writeFile(contacts / "a.vcf", half);
    index->update(FolderChange::all());
    EXPECT_EQ(nameOf(*index, "anna"), "Anna");
    EXPECT_EQ(index->sequenceNumber(), sequence);
  }
  writeFile(contacts / "a.vcf", card("anna", "Anne"));
  index->update(FolderChange::all());
  EXPECT_EQ(nameOf(*index, "anna"), "Anne");
}

TEST_F(ContactIndexTest, OneUidInTwoFilesIsTheFirstOnes) {
  put("m.vcf", card("same", "Middle"));
  const auto index = openIndex();
  const std::int32_t id = index->contactWithGUID("same")->recordID;
  put("z.vcf", card("same", "Last"));
  index->update(FolderChange::all());
  EXPECT_EQ(nameOf(*index, "same"), "Middle");
  EXPECT_EQ(nameOf(*index, "z.vcf"), "Last");
  EXPECT_TRUE(log->contains("z.vcf repeats the UID of m.vcf"));

  put("a.vcf", card("same", "First"));
  index->update(FolderChange::all());
  EXPECT_EQ(nameOf(*index, "same"), "First");
  EXPECT_EQ(index->contactWithGUID("same")->recordID, id);
  EXPECT_EQ(nameOf(*index, "m.vcf"), "Middle");

  remove("a.vcf");
  remove("m.vcf");
  index->update(FolderChange::all());
  EXPECT_EQ(identitiesIn(*index), std::vector<std::string>{"same=" + std::to_string(id)});
  EXPECT_EQ(nameOf(*index, "same"), "Last");
}

TEST_F(ContactIndexTest, ANumberIsThatOfTheCardNowAndOfTheRegionNow) {
  put("a.vcf", card("anna", "Anna", "TEL:030 23125 001\n"));
  const auto index = openIndex();
  put("a.vcf", card("anna", "Anna", "TEL:030 23125 009\n"));
  index->update(FolderChange::all());
  EXPECT_EQ(index->recordIDsForDestination("+493023125001"), IDs{});
  EXPECT_EQ(index->recordIDsForDestination("+493023125009"), IDs{1});

  region = "GB";
  const auto elsewhere = openIndex();
  EXPECT_EQ(elsewhere->recordIDsForDestination("+493023125009"), IDs{});
  EXPECT_EQ(elsewhere->recordIDsForDestination("+443023125009"), IDs{1});
  EXPECT_EQ(elsewhere->cardsRead(), 0U);
}

TEST_F(ContactIndexTest, LinksByTheNamesThatCardsGive) {
  put("a.vcf", card("anna", "Anna"));
  put("b.vcf", card("urn:uuid:b", "Anna at work", "X-FOLKS-CONTACTS-IDS:eds:book:anna\n"));
  put("c.vcf", card("", "Anna at sea", "X-FOLKS-CONTACTS-IDS:b,missing\n"));
  put("d.vcf", card("twin", "Anna's twin", "X-FOLKS-CONTACTS-IDS:anna\nX-FOLKS-ANTI-LINKS:c.vcf\n"));
  const auto index = openIndex();
  const auto links = [&] {
    IDs result;
    for (const std::int32_t id : index->allRecordIDs()) result.push_back(index->contactWithID(id)->linkID);
    return result;
  };
  // The refusal keeps either the twin or the one at sea out; links count in the order of the records.
  EXPECT_EQ(links(), (IDs{1, 1, -1, 1}));
  EXPECT_EQ(index->recordIDsOfLinkedSet(1), (IDs{1, 2, 4}));
  remove("d.vcf");
  put("b.vcf", card("urn:uuid:b", "Anna at work"));
  index->update(FolderChange::all());
  EXPECT_EQ(links(), (IDs{-1, 2, 2}));
}

TEST_F(ContactIndexTest, ADamagedIndexIsPutAsideAndMadeAnew) {
  put("a.vcf", card("anna", "Anna"));
  const std::filesystem::path file = data / "contacts-index.sqlite";
  const std::int32_t sequence = openIndex()->sequenceNumber();
  const std::function<void()> damages[] = {
      [&] { writeFile(file, std::string(5000, 'x')); },
      [&] { std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2); },
      [&] { SQLiteDatabase(file, SQLiteDatabase::Access::readWrite, 1).execute("PRAGMA user_version=99"); },
  };
  for (const auto& damage : damages) {
    damage();
    const auto index = openIndex();
    EXPECT_EQ(nameOf(*index, "anna"), "Anna");
    EXPECT_NE(index->sequenceNumber(), sequence);
  }
  EXPECT_EQ(log->count("it was put aside as"), 3U);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(data), {}), 4) << "the index, and three put aside";
}

TEST_F(ContactIndexTest, WhatIsReadTogetherBelongsTogether) {
  put("a.vcf", card("anna", "Anna"));
  const auto reader = openIndex();
  const auto writer = openIndex();
  const std::int32_t sequence = reader->sequenceNumber();
  reader->beginReading();
  EXPECT_EQ(nameOf(*reader, "anna"), "Anna");
  put("a.vcf", card("anna", "Anne"));
  writer->update(FolderChange::all());
  EXPECT_EQ(nameOf(*reader, "anna"), "Anna");
  EXPECT_EQ(reader->sequenceNumber(), sequence);
  reader->endReading();
  EXPECT_EQ(nameOf(*reader, "anna"), "Anne");
  EXPECT_EQ(reader->sequenceNumber(), writer->sequenceNumber());
}

// Each process changes files of its own and looks at all of them; in the end all have seen one and the same thing.
TEST_F(ContactIndexTest, ProcessesThatIndexAtOnceAgree) {
  constexpr int processes = 4;
  constexpr int rounds = 25;
  std::vector<std::unique_ptr<ChildProcess>> children;
  for (int process = 0; process < processes; ++process) {
    children.push_back(std::make_unique<ChildProcess>([this, process](const ChildProcess::Report&) {
      const std::string own = "p" + std::to_string(process);
      const auto index = openIndex();
      for (int round = 0; round < rounds; ++round) {
        const std::filesystem::path draft = folder / own;
        writeFile(draft, card(own, "Round " + std::to_string(round)));
        std::filesystem::rename(draft, contacts / (own + ".vcf"));
        if (!index->update(round % 2 ? FolderChange::all() : FolderChange{false, {own + ".vcf"}})) return 1;
        if (nameOf(*index, own) != "Round " + std::to_string(round)) return 2;
      }
      return log->messages().empty() ? 0 : 3;
    }));
  }
  for (const auto& child : children) EXPECT_EQ(child->exitCode(), 0);
  const auto index = openIndex();
  EXPECT_THAT(index->allRecordIDs(), ElementsAre(1, 2, 3, 4));
  for (int process = 0; process < processes; ++process)
    EXPECT_EQ(nameOf(*index, "p" + std::to_string(process)), "Round " + std::to_string(rounds - 1));
}

}  // namespace
}  // namespace pellor
