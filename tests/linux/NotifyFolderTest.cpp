#include "pellor/linux/notify/NotifyFolder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "pellor/testing/LogCollector.h"
#include "pellor/testing/contract/ChildProcess.h"
#include "pellor/testing/contract/SystemNotifyBusContract.h"
#include "tests/linux/ServedProcesses.h"
#include "tests/linux/TemporaryFolder.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

/// Processes of this thread, each with a bus in one folder.
class Buses {
 public:
  Buses() {
    while (_buses.size() < 3)
      _buses.push_back(
          NotifyFolder::make(process(static_cast<int>(_buses.size())), folder(), LogHandle("test", "bus", _log)));
  }

  fs::path folder() const { return _temporary / "runtime/notify"; }
  LogCollector& log() { return *_log; }
  Process& process(int number) { return _processes.at(number); }
  SystemNotifyBus& bus(int number) { return *_buses[static_cast<std::size_t>(number)]; }
  void breakConnection(int /*number*/) { fs::remove_all(folder().parent_path()); }
  template <class Condition>
  bool runUntil(Condition condition) {
    return _processes.runUntil(condition);
  }

 private:
  TemporaryFolder _temporary;
  std::shared_ptr<LogCollector> _log = std::make_shared<LogCollector>();
  ServedProcesses _processes;
  std::vector<std::shared_ptr<NotifyFolder>> _buses;
};

INSTANTIATE_TYPED_TEST_SUITE_P(NotifyFolder, SystemNotifyBusContract, Buses);

class NotifyFolderTest : public SystemNotifyBusContract<Buses> {
 protected:
  bool runUntilDelivered(const Deliveries& deliveries, std::size_t count) {
    return _buses.runUntil([&] { return deliveries.size() >= count; });
  }
};

TEST_F(NotifyFolderTest, DamagedAndDeletedCountersHideNoPost) {
  Deliveries deliveries;
  observe(0, "name", deliveries);
  const fs::path counter = _buses.folder() / "name";
  const std::string last(8, '\xFF');
  for (const std::string& content : {std::string("abc"), std::string(), std::string(20, 'x'), last}) {
    const std::size_t before = deliveries.size();
    writeFile(counter, content);
    post(1, "name");
    EXPECT_TRUE(runUntilDelivered(deliveries, before + 1)) << content.size();
    EXPECT_EQ(fs::file_size(counter), 8u);
  }
  // Made again, a counter must not come to stand where the old one stood.
  for (int round = 0; round < 20; ++round) {
    const std::size_t before = deliveries.size();
    fs::remove(counter);
    post(1, "name");
    EXPECT_TRUE(runUntilDelivered(deliveries, before + 1)) << round;
  }
}

TEST_F(NotifyFolderTest, APostThatCannotBeCountedIsDeliveredHereAndSentLater) {
  Deliveries own, others;
  observe(0, "name", own);
  observe(1, "name", others);
  const fs::path counter = _buses.folder() / "name";
  fs::create_directory(counter);
  post(0, "name");
  post(0, "name");
  EXPECT_TRUE(runUntilDelivered(own, 2));
  EXPECT_EQ(_buses.log().count("cannot be sent"), 1u);
  const std::size_t before = others.size();
  fs::remove(counter);
  EXPECT_TRUE(_buses.runUntil([&] { return _buses.log().contains("can be sent again") && others.size() > before; }));
  EXPECT_EQ(own.size(), 2u);
}

std::uint64_t countIn(const fs::path& file) {
  std::uint64_t count = 0;
  const std::string content = contentOf(file);
  if (content.size() == sizeof count) std::memcpy(&count, content.data(), sizeof count);
  return count;
}

TEST(NotifyFolderSettlingTest, PostsAreHeardBeforeTheProcessIsAtRest) {
  const TemporaryFolder folder;
  const LogHandle log("test", "bus", nullptr);
  Process poster, listener;
  const Process::Scope scope(listener);
  const auto bus = NotifyFolder::make(listener, folder.path(), log, NotifyFolder::Hearing::whenSettling);
  int heard = 0;
  bus->addObserver(
      &heard, [&heard] { ++heard; }, "name");
  EXPECT_TRUE(listener.settle(30));
  EXPECT_EQ(heard, 0);
  {
    const Process::Scope other(poster);
    NotifyFolder::make(poster, folder.path(), log)->post("name");
  }
  EXPECT_TRUE(listener.settle(30));
  EXPECT_EQ(heard, 1);
  bus->post("name");
  EXPECT_TRUE(listener.settle(30));
  EXPECT_EQ(heard, 2) << "an own post is delivered once";
}

// Before any other process object of this program exists: the posters are forked.
TEST(NotifyFolderProcessesTest, NoPostOfSeveralProcessesIsLost) {
  constexpr int posters = 3, posts = 2000;
  const TemporaryFolder folder;
  const auto poster = [&folder](const ChildProcess::Report&) {
    Process process;
    const auto bus = NotifyFolder::make(process, folder.path(), LogHandle("test", "bus", nullptr));
    for (int post = 0; post < posts; ++post) bus->post("name");
    return process.settle(30) ? 0 : 1;
  };
  {
    Process process;
    NotifyFolder::make(process, folder.path(), LogHandle("test", "bus", nullptr))->post("name");
  }
  const std::uint64_t start = countIn(folder / "name");
  std::vector<std::unique_ptr<ChildProcess>> children;
  for (int number = 0; number < posters; ++number) children.push_back(std::make_unique<ChildProcess>(poster));

  Process listener;
  const auto bus = NotifyFolder::make(listener, folder.path(), LogHandle("test", "bus", nullptr));
  std::uint64_t heard = 0;
  const auto hear = [&] {
    heard = countIn(folder / "name");
    if (heard == start + posters * posts) listener.mainQueue().stop();
  };
  bus->addObserver(&heard, hear, "name");
  const auto giveUp = Timer::after(listener.mainQueue(), 60, [&listener] { listener.mainQueue().stop(); });
  listener.mainQueue().async(hear);
  listener.mainQueue().run();
  EXPECT_EQ(heard, start + posters * posts) << "the listener is woken by the last post";
  for (const auto& child : children) EXPECT_EQ(child->exitCode(), 0);
}

}  // namespace
}  // namespace pellor
