// What follows when a store fails or another process was first, without a manager.
#include "pellor/friends/internal/PLStoreFailures.h"

#include "pellor/friends/internal/PLListWriter.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StoreFailuresTest : public OneProcess {
 protected:
  std::vector<std::string> toldWithin(double seconds) {
    scheduler->advance(seconds);
    return std::exchange(told, {});
  }
  std::string trouble() const {
    const auto now = failures.trouble();
    return !now ? "none" : *now == PLStoreTrouble::reading ? "reading" : "writing";
  }

  std::vector<std::string> told;
  std::shared_ptr<PLListWriter> writer = PLListWriter::make(process, "org.tapnote.Failures");
  PLStoreFailures failures{process,
                           *writer,
                           {[this] { told.push_back("load"); }, [this] { told.push_back("look"); },
                            [this] { told.push_back("trouble: " + trouble()); }}};
};

TEST_F(StoreFailuresTest, AStoreThatCannotBeReadIsToldOfOnceAndReadAgainAfterPausesThatGrow) {
  EXPECT_EQ(trouble(), "none");
  failures.noteUnreadable();
  EXPECT_THAT(toldWithin(0), ElementsAre("trouble: reading"));
  EXPECT_THAT(toldWithin(0.1), ElementsAre("load"));
  failures.noteUnreadable();
  EXPECT_THAT(toldWithin(0.15), IsEmpty()) << "the trouble is known, and the pause is longer";
  EXPECT_THAT(toldWithin(0.1), ElementsAre("load"));
  failures.noteUnreadable();
  failures.noteRead();
  EXPECT_THAT(toldWithin(600), ElementsAre("trouble: none")) << "no load waits once it was read";
  failures.loadLater();
  EXPECT_THAT(toldWithin(0.1), ElementsAre("load")) << "the first pause again";
  EXPECT_EQ(trouble(), "none");
}

TEST_F(StoreFailuresTest, AnUnreadableStoreHidesThatItCannotBeWrittenEither) {
  PLSlotList list;
  writer->takeOver(std::make_shared<PLBaseline>(), list, std::make_shared<const std::vector<std::uint64_t>>());
  world.preferences().leaveUntold(InMemoryPreferences::Untold::lost, 1);
  writer->markNormalized();
  writer->save();
  settle();
  failures.noteWrites();
  failures.noteUnreadable();
  failures.noteRead();
  failures.noteWrites();
  EXPECT_THAT(toldWithin(0), ElementsAre("trouble: writing", "trouble: reading", "trouble: writing"));
}

TEST_F(StoreFailuresTest, WhoIsOvertakenLooksAtOnceAndThenAfterPausesUntilAWriteIsAccepted) {
  failures.noteOvertaken();
  EXPECT_THAT(toldWithin(0), ElementsAre("look"));
  for (int time = 0; time < 3; ++time) {
    failures.noteOvertaken();
    EXPECT_THAT(told, IsEmpty()) << "others are let through";
    EXPECT_THAT(toldWithin(0.25), ElementsAre("look"));
  }
  failures.noteAccepted();
  failures.noteOvertaken();
  EXPECT_THAT(toldWithin(0), ElementsAre("look"));
}

}  // namespace
}  // namespace pellor
