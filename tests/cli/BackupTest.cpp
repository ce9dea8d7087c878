// Copies of the store, as the user meets them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "linux/SQLiteDatabase.h"
#include "tests/cli/Program.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

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
