#include "pellor/linux/journal/JournalLog.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "pellor/testing/LogCollector.h"
#include "tests/services/servers/Server.h"

namespace pellor {
namespace {

using Fields = std::map<std::string, std::string>;

/// Field by field `NAME=value\n` or, where the value has line breaks, `NAME\n`, its length in 64 bits, value, `\n`.
Fields fieldsOf(std::string_view entry) {
  Fields fields;
  while (!entry.empty()) {
    const std::size_t end = entry.find_first_of("=\n");
    const std::string name(entry.substr(0, end));
    std::uint64_t size = 0;
    const bool isPlain = entry[end] == '=';
    entry.remove_prefix(end + 1);
    if (isPlain) {
      size = entry.find('\n');
    } else {
      std::memcpy(&size, entry.data(), sizeof size);
      entry.remove_prefix(sizeof size);
    }
    fields[name] = entry.substr(0, size);
    entry.remove_prefix(size + 1);
  }
  return fields;
}

/// The socket of a journal, at its place.
class Journal {
 public:
  Journal() : _socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = addressOf(Path);
    if (::bind(_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
      ADD_FAILURE() << systemError("cannot listen at", Path);
  }
  ~Journal() { ::unlink(Path); }
  /// As a crash does: the socket stays behind.
  void crash() { _socket.close(); }
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  /// The oldest entry; no fields when there is none.
  Fields take() const {
    std::array<char, 4096> buffer{};
    const ssize_t size = ::recv(_socket.get(), buffer.data(), buffer.size(), 0);
    return size > 0 ? fieldsOf({buffer.data(), static_cast<std::size_t>(size)}) : Fields{};
  }
  std::string takeMessage() const { return take()["MESSAGE"]; }

  static constexpr const char* Path = "/run/systemd/journal/socket";

 private:
  FileDescriptor _socket;
};

/// Runs `test` where the system's journal is not to be seen: runs the whole test again, in a process that has a /run of
/// its own. A system that allows no such process fails the test.
void withoutTheJournal(const std::function<void()>& test) {
  if (::getenv("PELLOR_TEST_HAS_OWN_RUN")) return test();
  const testing::TestInfo& self = *testing::UnitTest::GetInstance()->current_test_info();
  const std::string hide =
      "mount -t tmpfs -o mode=0700 none /run && mkdir -p /run/systemd/journal && exec \"$0\" \"$@\"";
  runTool({"env", "PELLOR_TEST_HAS_OWN_RUN=1", "unshare", "--user", "--map-root-user", "--mount", "sh", "-c", hide,
           std::filesystem::read_symlink("/proc/self/exe"),
           std::string("--gtest_filter=") + self.test_suite_name() + "." + self.name()});
}

constexpr const char* Secret = "Anna\nBauer";

/// Gives the source line that it names.
std::uint32_t logLine(const std::shared_ptr<LogSink>& sink) {
  const SourceLocation place = SourceLocation::current();
  LogHandle("org.tapnote.Pellor", "main", sink).log({"renamed [%@] of %u", place}, redactable(Secret), 7);
  return place.line();
}

TEST(JournalLogTest, EntriesHaveFieldsAndPrivateTextAtDebugLevelAlone) {
  withoutTheJournal([] {
    const Journal journal;
    const std::uint32_t line = logLine(std::make_shared<JournalLog>(JournalLog::Options{}, nullptr));
    const Fields expected = {{"MESSAGE", "renamed [<private>] of 7"},
                             {"PRIORITY", "6"},
                             {"SYSLOG_IDENTIFIER", "pellor"},
                             {"CODE_FUNC", "logLine"},
                             {"CODE_LINE", std::to_string(line)},
                             {"PELLOR_SUBSYSTEM", "org.tapnote.Pellor"},
                             {"PELLOR_CATEGORY", "main"}};
    EXPECT_EQ(journal.take(), expected);
    EXPECT_EQ(journal.take(), Fields()) << "no second entry";

    const auto debugging =
        std::make_shared<JournalLog>(JournalLog::Options{"pellor", JournalLog::Debugging::on}, nullptr);
    logLine(debugging);
    Fields shown = expected;
    EXPECT_EQ(journal.take(), expected);
    shown["MESSAGE"] = std::string("renamed [") + Secret + "] of 7";
    shown["PRIORITY"] = "7";
    EXPECT_EQ(journal.take(), shown);
    LogHandle("org.tapnote.Pellor", "main", debugging).log("nothing private");
    EXPECT_EQ(journal.takeMessage(), "nothing private");
    EXPECT_EQ(journal.take(), Fields());
  });
}

TEST(JournalLogTest, AJournalThatIsAwayIsReportedOnceAndUsedAgainWhenItIsBack) {
  withoutTheJournal([] {
    const auto fallback = std::make_shared<LogCollector>();
    const auto sink = std::make_shared<JournalLog>(JournalLog::Options{}, fallback);
    auto journal = std::make_unique<Journal>();
    for (const bool crashes : {false, true}) {
      logLine(sink);
      EXPECT_EQ(fallback->entries().size(), 0u);
      EXPECT_EQ(JournalLog::report().state, ServiceReport::State::works);
      if (crashes)
        journal->crash();
      else
        journal.reset();
      testing::internal::CaptureStderr();
      for (int line = 0; line < 3; ++line) logLine(sink);
      const std::string said = testing::internal::GetCapturedStderr();
      EXPECT_EQ(std::ranges::count(said, '\n'), 1) << said;
      EXPECT_NE(said.find(JournalLog::report().detail), std::string::npos) << said;
      EXPECT_EQ(JournalLog::report().state, ServiceReport::State::fails);
      EXPECT_EQ(fallback->takeMessages().size(), 3u);
      journal.reset();
      journal = std::make_unique<Journal>();
      logLine(sink);
      EXPECT_EQ(journal->takeMessage(), "renamed [<private>] of 7");
      EXPECT_NE(journal->takeMessage().find("is there again"), std::string::npos);
    }
  });
}

}  // namespace
}  // namespace pellor
