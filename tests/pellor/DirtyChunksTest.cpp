#include "pellor/friends/internal/PLDirtyChunks.h"

#include <optional>
#include <set>

#include "pellor/friends/PLPerson.h"
#include "pellor/friends/internal/PLSlotList.h"
#include "tests/pellor/OneProcess.h"

namespace pellor {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

/// A list of three chunks, the third of which has a few friends.
class DirtyChunksTest : public OneProcess {
 protected:
  DirtyChunksTest() {
    while (list.count() < 2 * PLSlotSnapshot::ChunkSize + 3) list.append(PLPerson::init());
    name();
    dirty.forgetUntil(changed());
  }

  std::uint64_t changed() const { return changes.changes.load(); }
  std::uint64_t elsewhere() const { return changes.touches.countElsewhere(); }
  /// The chunks that changed since so many changes, each once; absent when they are not known.
  std::optional<std::set<std::uint64_t>> since(std::uint64_t before) {
    const auto chunks = dirty.changedSince(before, elsewhere());
    return chunks ? std::optional(std::set(chunks->begin(), chunks->end())) : std::nullopt;
  }
  void name() { dirty.name(list); }
  void edit(std::uint64_t index) { list.at(index)->setPreferredReplyAs(std::to_string(++_lastText)); }
  void editAndName(std::uint64_t index) {
    edit(index);
    name();
  }

  PLPersonChanges& changes = process.local<PLPersonChanges>();
  PLSlotList list;
  PLDirtyChunks dirty{changes};

 private:
  int _lastText = 0;
};

TEST_F(DirtyChunksTest, AChunkIsKnownByWhoChangedInIt) {
  const std::uint64_t before = changed();
  editAndName(0);
  const std::uint64_t between = changed();
  editAndName(2 * PLSlotSnapshot::ChunkSize);
  EXPECT_THAT(since(before), Optional(ElementsAre(0U, 2U)));
  EXPECT_THAT(since(between), Optional(ElementsAre(2U)));
  EXPECT_THAT(since(changed()), Optional(IsEmpty()));
  dirty.forgetUntil(between);
  EXPECT_THAT(since(between), Optional(ElementsAre(2U)));
}

// More persons than are remembered by name.
TEST_F(DirtyChunksTest, ManyChangesAtOnceAreInAnyChunkAndLaterOnesInTheirs) {
  const std::uint64_t before = changed();
  for (int round = 0; round < 100; ++round)
    for (std::uint64_t index = 0; index < list.count(); ++index) edit(index);
  name();
  EXPECT_EQ(since(before), std::nullopt);
  dirty.gather();
  EXPECT_FALSE(dirty.isComplete());
  const std::uint64_t then = changed();
  editAndName(PLSlotSnapshot::ChunkSize);
  EXPECT_THAT(since(then), Optional(ElementsAre(1U)));
  EXPECT_EQ(since(before), std::nullopt);
}

TEST_F(DirtyChunksTest, WhoWasTouchedOnAnotherThreadMayBeInAnyChunk) {
  const std::uint64_t before = changed(), others = elsewhere();
  changes.touches.noteElsewhere();
  editAndName(0);
  EXPECT_EQ(dirty.changedSince(before, others), std::nullopt);
}

}  // namespace
}  // namespace pellor
