// What the program says where the store, the contacts or the output cannot be used, and of the copies of the store.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "pellor/linux/sqlite/SQLiteDatabase.h"
#include "tests/cli/Story.h"
#include "tests/cli/UnprivilegedUser.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST(StoreTrouble, AStoreThatMayNotBeWrittenIsShownAndNotChanged) {
  const HomeWithAnn home;
  const UnprivilegedUser user(home);
  const ProgramResult list = user.run({"list"});
  EXPECT_EQ(list.exitCode, 0) << list.errors;
  EXPECT_THAT(list.output, HasSubstr("Ann Lee"));
  const std::vector<std::vector<std::string>> changes = {
      {"add", "0301112233"}, {"remove", "ann"},           {"settings", "page-size", "3"},
      {"refresh"},           {"favorites", "add", "ann"},
  };
  for (const auto& change : changes) {
    const ProgramResult result = user.run(change);
    EXPECT_EQ(result.exitCode, 1) << change.front();
    EXPECT_THAT(result.errors, AllOf(testing::StartsWith("pellor: nothing was "), Not(HasSubstr("busy"))));
    EXPECT_THAT(result.output, IsEmpty());
  }
  EXPECT_EQ(user.run({"list"}).output, list.output);
}

TEST(StoreTrouble, AStoreThatCannotBeReadIsNotTakenForAnEmptyOneNorWrittenOver) {
  struct Case {
    const char* what;
    std::function<void(const Home&)> damage;
  };
  const std::vector<Case> cases = {
      {"garbage", [](const Home& home) { writeFile(home.storeFile(), std::string(8192, '\xA7')); }},
      {"a folder in place of the file", [](const Home& home) { fs::create_directory(home.storeFile()); }},
      {"a file in place of the folder",
       [](const Home& home) {
         fs::remove_all(home.dataFolder());
         writeFile(home.dataFolder(), "mine");
       }},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    const Home home;
    each.damage(home);
    const auto content = [&] { return fs::is_regular_file(home.storeFile()) ? contentOf(home.storeFile()) : ""; };
    const std::string before = content();
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"list"}, {"add", "0301112233"}, {"watch"}}) {
      const ProgramResult result = pellor(home, command);
      EXPECT_EQ(result.exitCode, 1) << command.front();
      EXPECT_THAT(result.output, IsEmpty());
      EXPECT_THAT(result.errors, HasSubstr(home.dataFolder().string()));
    }
    EXPECT_EQ(content(), before);
  }
}

TEST(StoreTrouble, WithoutContactsTheFriendsAreStillThere) {
  const HomeWithAnn home;
  fs::remove_all(home.contactsFolder());
  EXPECT_THAT(pellor(home, {"list"}).output, HasSubstr("Ann Lee"));
  EXPECT_THAT(pellor(home, {"add", "0301112233"}).output, HasSubstr("(1:2)"));
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"contacts"}, {"add", "Bert"}, {"allow", "ann"}, {"refresh"}, {"favorites"}}) {
    const ProgramResult result = pellor(home, command);
    EXPECT_EQ(result.exitCode, 1) << command.front();
    EXPECT_THAT(result.errors, HasSubstr("no contacts folder " + home.contactsFolder().string())) << command.front();
  }
}

TEST(StoreTrouble, ContactsThatCannotBeReadUnlinkNobody) {
  struct Case {
    const char* what;
    std::vector<const char*> damage;
    const char* repair;
  };
  const std::vector<Case> cases = {
      {"no place for the cards",
       {"DELETE FROM folders", "DELETE FROM files", "DELETE FROM cards",
        "CREATE TRIGGER full BEFORE INSERT ON cards BEGIN SELECT RAISE(ABORT, 'full'); END"},
       "DROP TRIGGER full"},
      {"fails on the way",
       {"DELETE FROM cards WHERE guid='bob'", "UPDATE folders SET sequence=sequence+1",
        "ALTER TABLE names RENAME TO lost"},
       "ALTER TABLE lost RENAME TO names"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    const Home home;
    const auto changeIndex = [&](const std::vector<const char*>& statements) {
      const fs::path file = home.dataFolder() / "contacts-index.sqlite";
      const SQLiteDatabase database(file, SQLiteDatabase::Access::readWrite, 10);
      for (const char* statement : statements) database.execute(statement);
    };
    home.addContact("ann", "Ann Lee", "TEL:+49301234567\n");
    home.addContact("bob", "Bob Lee", "TEL:+49301112233\n");
    for (const char* name : {"ann", "bob"}) ASSERT_EQ(pellor(home, {"add", name}).exitCode, 0);
    fs::remove(home.contactsFolder() / "bob.vcf");
    changeIndex(each.damage);
    const std::string broken = pellor(home, {"list", "--json"}).output;
    EXPECT_THAT(broken, AllOf(HasSubstr("\"ann\""), HasSubstr("\"bob\"")));
    EXPECT_THAT(pellor(home, {"refresh"}).errors, HasSubstr("cannot be read: "));
    changeIndex({each.repair});
    EXPECT_THAT(pellor(home, {"list", "--json"}).output, AllOf(HasSubstr("\"ann\""), Not(HasSubstr("\"bob\""))));
  }
}

TEST(StoreTrouble, AnAnswerThatIsLostIsNoSuccess) {
  const Home home;
  const FileDescriptor full(::open("/dev/full", O_WRONLY | O_CLOEXEC));
  const ProgramResult result = Program(home, pellorCommand({"list"}), {.output = full.get()}).finish();
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.errors, HasSubstr("the output could not be written"));

  Program unread(home, pellorCommand({"--help"}));
  unread.closeOutput();
  const ProgramResult quiet = unread.finish();
  EXPECT_THAT(quiet.exitCode, testing::AnyOf(0, 1)) << "the end of the reader may come too late";
  EXPECT_THAT(quiet.errors, IsEmpty());
}

/// The copy of the hour, which is the first one.
std::string firstCopy(const Home& home) {
  for (const auto& entry : fs::directory_iterator(home.dataFolder() / "copies")) {
    if (entry.path().stem().string().starts_with("hour-")) return entry.path().stem().string();
  }
  return "";
}

TEST(Backup, ACopyIsTakenBackAsAnEditAndWhatItReplacesBecomesOne) {
  const Home home;
  EXPECT_EQ(pellor(home, {"backup"}).output, "no copies\n");
  for (const char* number : {"0301111", "0302222"}) ASSERT_EQ(pellor(home, {"add", number}).exitCode, 0);
  EXPECT_THAT(pellor(home, {"backup"}).output,
              AllOf(HasSubstr("newest"), HasSubstr("2 friends"), HasSubstr("1 friend ")));
  const ProgramResult wrong = pellor(home, {"backup", "restore", "../preferences"});
  EXPECT_EQ(wrong.exitCode, 1);
  EXPECT_THAT(wrong.errors, HasSubstr("there is no whole copy"));
  EXPECT_EQ(pellor(home, {"backup", "restore"}).exitCode, 2);

  Program watch(home, pellorCommand({"watch"}));
  EXPECT_EQ(watch.readErrorLine(), "pellor: watching");
  const ProgramResult restored = pellor(home, {"backup", "restore", firstCopy(home)});
  EXPECT_EQ(restored.exitCode, 0) << restored.errors;
  EXPECT_THAT(watch.readLine(), HasSubstr("030 2222")) << "other programs take it over";
  EXPECT_THAT(pellor(home, {"list"}).output, AllOf(HasSubstr("030 1111"), Not(HasSubstr("030 2222"))));
  EXPECT_THAT(pellor(home, {"backup", "--json"}).output, HasSubstr("\"replaced-"));
  watch.sendSignal(SIGINT);
  watch.finish();

  ASSERT_EQ(pellor(home, {"backup", "restore", "--empty"}).exitCode, 0);
  EXPECT_THAT(pellor(home, {"list"}).output, Not(HasSubstr("030 1111")));
}

TEST(Backup, AStoreThatIsGoneOrDamagedIsMadeAnewAndThatIsSaidOnce) {
  const auto overwriteTables = [](const fs::path& file) {
    std::string content = contentOf(file);
    std::fill_n(content.begin() + 8192, 16384, '\xA5');
    writeFile(file, content);
  };
  const std::vector<std::pair<std::function<void(const fs::path&)>, bool>> losses = {
      {[](const fs::path& file) { fs::remove(file); }, false},
      {[](const fs::path& file) { writeFile(file, ""); }, true},
      {overwriteTables, true},  // which is met only when the list is read
  };
  for (const auto& [lose, isDamaged] : losses) {
    const Home home;
    ASSERT_EQ(pellor(home, {"add", "0301111"}).exitCode, 0);
    lose(home.storeFile());
    const ProgramResult list = pellor(home, {"list"});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_THAT(list.output, HasSubstr("030 1111"));
    EXPECT_THAT(list.errors, AllOf(HasSubstr("with 1 friend "), HasSubstr("pellor backup")));
    EXPECT_THAT(pellor(home, {"list"}).errors, IsEmpty());
    EXPECT_EQ(fs::exists(home.dataFolder() / "aside"), isDamaged);
  }
}

TEST(Backup, ACopyIsNeverPutInThePlaceOfALaterVersionsStore) {
  const Home home;
  ASSERT_EQ(pellor(home, {"add", "0301111"}).exitCode, 0);
  SQLiteDatabase(home.storeFile(), SQLiteDatabase::Access::readWrite, 5).execute("PRAGMA user_version = 99");
  const std::string later = contentOf(home.storeFile());
  for (const char* which : {"newest", "--empty"}) {
    EXPECT_THAT(pellor(home, {"backup", "restore", which}).errors, HasSubstr("later version"));
    EXPECT_TRUE(contentOf(home.storeFile()) == later);
  }
}

}  // namespace
}  // namespace pellor
