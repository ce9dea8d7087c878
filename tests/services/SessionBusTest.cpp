#include "pellor/linux/sdbus/SessionBus.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "pellor/linux/sdbus/BusConnection.h"
#include "pellor/testing/LogCollector.h"
#include "pellor/testing/contract/SystemNotifyBusContract.h"
#include "tests/linux/RefusedThreads.h"
#include "tests/linux/ServedProcesses.h"
#include "tests/services/servers/BusDaemon.h"

namespace pellor {
namespace {

namespace fs = std::filesystem;

/// What the processes of a test have in common.
enum class Common { busAndFolder, busAlone, folderAlone };

/// Three processes. In a mixture the second one has no bus, and the folder in common with the others.
template <Common common>
class Buses {
 public:
  Buses() {
    daemon.start();
    for (int number = 0; number < 3; ++number) {
      const bool hasBus = common != Common::folderAlone || number != 1;
      const fs::path folder = common == Common::busAlone ? std::to_string(number) : "common";
      _buses.push_back(make(number, temporary / folder.string(), {hasBus ? daemon.address() : NoBus, Patience}));
    }
  }

  Process& process(int number) { return _processes.at(number); }
  SystemNotifyBus& bus(int number) { return *_buses[static_cast<std::size_t>(number)]; }
  std::shared_ptr<SessionBus> make(int number, const fs::path& folder, SessionBusOptions options,
                                   NotifyFolder::Hearing hearing = NotifyFolder::Hearing::always) {
    const LogHandle log("test", "bus", logs);
    return std::make_shared<SessionBus>(process(number), NotifyFolder::make(process(number), folder, log, hearing), log,
                                        std::move(options));
  }
  void breakConnection(int /*number*/) {
    daemon.kill();
    daemon.start();
  }
  template <class Condition>
  bool runUntil(Condition condition) {
    return _processes.runUntil(condition);
  }

  static constexpr const char* NoBus = "unix:path=/nonexistent";
  static constexpr auto Patience = std::chrono::minutes(1);
  TemporaryFolder temporary;
  BusDaemon daemon{temporary.path()};
  std::shared_ptr<LogCollector> logs = std::make_shared<LogCollector>();

 private:
  ServedProcesses _processes;
  std::vector<std::shared_ptr<SessionBus>> _buses;
};

using Mixtures = ::testing::Types<Buses<Common::busAndFolder>, Buses<Common::busAlone>, Buses<Common::folderAlone>>;
INSTANTIATE_TYPED_TEST_SUITE_P(SessionBus, SystemNotifyBusContract, Mixtures);

constexpr const char* Away = "the session bus is away";

class SessionBusTest : public SystemNotifyBusContract<Buses<Common::busAlone>> {
 protected:
  std::size_t logged(const char* text) { return _buses.logs->count(text); }
};

TEST_F(SessionBusTest, WithoutABusTheFolderServesAloneAndWhatCouldNotBeSentGoesOutOnceItIsThere) {
  const fs::path place = _buses.temporary / "place";
  const SessionBusOptions options{"unix:path=" + place.string(), _buses.Patience};
  const auto poster = _buses.make(0, _buses.temporary / "poster", options);
  int own = 0;
  Deliveries others;
  poster->addObserver(
      &own, [&] { ++own; }, "name");
  poster->post("name");
  EXPECT_TRUE(_buses.process(0).settle(30)) << "a bus that is away is not waited for";
  EXPECT_EQ(own, 1);
  EXPECT_EQ(logged(Away), 1u);
  EXPECT_EQ(SessionBus::report(options).state, ServiceReport::State::fails);
  observe(1, "name", others);
  fs::create_symlink(_buses.temporary / "bus", place);
  EXPECT_TRUE(_buses.runUntil([&] { return others.size() == 1; }));
}

TEST_F(SessionBusTest, ABusThatHangsHoldsNobodyUp) {
  const auto hasty =
      _buses.make(0, _buses.temporary / "hasty", {_buses.daemon.address(), std::chrono::milliseconds(1)});
  _buses.daemon.sendSignal(SIGSTOP);
  int heard = 0;
  hasty->addObserver(
      &heard, [&] { ++heard; }, "name");
  hasty->post("name");
  EXPECT_TRUE(_buses.process(0).settle(30));
  EXPECT_EQ(heard, 1);
  EXPECT_EQ(logged(Away), 1u);
  EXPECT_EQ(SessionBus::report({_buses.daemon.address(), std::chrono::milliseconds(1)}).state,
            ServiceReport::State::fails);
  _buses.daemon.sendSignal(SIGCONT);
  const ServiceReport report = SessionBus::report({_buses.daemon.address(), _buses.Patience});
  EXPECT_EQ(report.state, ServiceReport::State::works) << report.detail;
}

TEST_F(SessionBusTest, AShortProgramIsNotSettledBeforeItsPostsAreOnTheBus) {
  Deliveries heard;
  observe(1, "name/with 'everything'\\\n\xFF", heard);
  {
    Process shortLived;
    const Process::Scope scope(shortLived);
    const LogHandle log("test", "bus", _buses.logs);
    SessionBus bus(shortLived,
                   NotifyFolder::make(shortLived, _buses.temporary / "short", log, NotifyFolder::Hearing::whenSettling),
                   log, {_buses.daemon.address(), _buses.Patience});
    bus.post("name/with 'everything'\\\n\xFF");
    EXPECT_TRUE(shortLived.settle(30));
  }
  EXPECT_TRUE(_buses.runUntil([&] { return heard.size() == 1; }));
}

TEST_F(SessionBusTest, TheSignalIsThatOfTheInterface) {
  Deliveries heard;
  observe(0, "org.tapnote.changed", heard);
  const auto send = [&](const std::string& argument) {
    runTool({"dbus-send", "--bus=" + _buses.daemon.address(), "--type=signal", "/org/tapnote/Pellor/Notify1",
             "org.tapnote.Pellor.Notify1.Posted", argument});
  };
  send("int32:1");
  send("string:org.tapnote");
  send("string:org.tapnote.changed");
  EXPECT_TRUE(_buses.runUntil([&] { return !heard.empty(); }));
  flush(0);
  EXPECT_EQ(heard.size(), 1u);
}

TEST(SessionBusAddressTest, IsThatOfTheVariableElseTheSocketOfTheLogin) {
  const auto addressWith = [](const char* variable, const char* folder) {
    return SessionBusOptions::addressOfUser([=](const char* name) -> std::optional<std::string> {
      const char* value = std::string_view(name) == "XDG_RUNTIME_DIR" ? folder : variable;
      return value ? std::optional<std::string>(value) : std::nullopt;
    });
  };
  EXPECT_EQ(addressWith("unix:path=/a", "/run/user/1"), "unix:path=/a");
  EXPECT_EQ(addressWith("", "/run/user/1,=\xC3\xA4"), "unix:path=/run/user/1%2c%3d%c3%a4/bus");
  EXPECT_EQ(addressWith(nullptr, nullptr), "unix:path=/run/user/" + std::to_string(::getuid()) + "/bus");
}

TEST(SessionBusRefusedThreadsTest, WithoutItsThreadTheBusIsAwayUntilItCanBeStarted) {
  runWithRefusedThreads([](const RefusedThreads& refused) {
    const auto log = std::make_shared<LogCollector>();
    BusConnection::Client client{[](const std::string&) {}, [] {}};
    BusConnection connection("unix:path=/nonexistent", std::chrono::minutes(1), LogHandle("test", "bus", log), client);
    connection.observe("name");
    connection.send("name");
    EXPECT_TRUE(connection.isSettled());
    EXPECT_EQ(log->count(Away), 1U);
    EXPECT_EQ(log->count(RefusedThreads::Refusal), 1U);
    const auto before = threadCount();
    refused.lift();
    connection.send("other name");
    EXPECT_EQ(threadCount(), before + 1);
  });
}

}  // namespace
}  // namespace pellor
